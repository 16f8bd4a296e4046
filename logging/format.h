#pragma once

#include <cstdarg>
#include <cstddef>

namespace Orva::Shared {

/// Formats into `buffer`, cut to what fits and always terminated. The conversions have the
/// Windows C runtime's wide meaning: `%s` and `%ws` are wide text, `%S` narrow, `%Lf` a double.
/// Not the standard functions, which follow C99 under some compilers: there `%s` is narrow.
void FormatText(wchar_t* buffer, std::size_t characters, const wchar_t* format, ...);
void FormatTextList(wchar_t* buffer, std::size_t characters, const wchar_t* format, va_list arguments);

/// Prints to standard output, with the same conversions.
void PrintText(const wchar_t* format, ...);

}  // namespace Orva::Shared
