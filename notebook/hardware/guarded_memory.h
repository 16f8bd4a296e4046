#pragma once

#include <cstddef>

namespace Notebook {

/// Zeroed memory that ends where the next page cannot be read, but for what `alignment` leaves. A look
/// behind it ends the process, and so does any look after it was given back. Null: there is none.
[[nodiscard]] void* AllocateGuarded(std::size_t bytes, std::size_t alignment) noexcept;

/// Gives it back. False when this is not memory of that kind, or was given back before.
bool FreeGuarded(void* memory) noexcept;

}  // namespace Notebook
