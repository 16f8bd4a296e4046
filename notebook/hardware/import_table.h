#pragma once

#include <string_view>
#include <vector>

namespace Notebook {

/// The places of an import table that hold `function`: imported by its name, or by its ordinal (Microsoft's
/// import library of oleaut32 names no functions). `image` is where the module lies.
std::vector<void**> FindImports(void* image, std::string_view function);

/// Puts `replacement` in every place of the executable's import table that holds `function`.
/// Returns what stood there, or null when the executable does not import it.
void* ReplaceImport(const char* function, void* replacement);

/// The same, typed from the replacement.
template <class Function>
Function* ReplaceImport(const char* function, Function* replacement) {
    return reinterpret_cast<Function*>(ReplaceImport(function, reinterpret_cast<void*>(replacement)));
}

}  // namespace Notebook
