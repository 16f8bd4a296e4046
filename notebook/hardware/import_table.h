#pragma once

namespace Notebook {

/// Puts `replacement` in every place of the executable's import table that holds `function`.
/// Returns what stood there, or null when the executable does not import it.
void* ReplaceImport(const char* function, void* replacement);

/// The same, typed from the replacement.
template <class Function>
Function* ReplaceImport(const char* function, Function* replacement) {
    return reinterpret_cast<Function*>(ReplaceImport(function, reinterpret_cast<void*>(replacement)));
}

}  // namespace Notebook
