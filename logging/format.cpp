#include "logging/format.h"

#include <cstdio>
#include <cwchar>

namespace Orva::Shared {

void FormatTextList(wchar_t* buffer, std::size_t characters, const wchar_t* format, va_list arguments) {
    if (characters == 0) {
        return;
    }
    // Cutting leaves the buffer unterminated, so its last place is kept out of reach.
    _vsnwprintf(buffer, characters - 1, format, arguments);
    buffer[characters - 1] = L'\0';
}

void FormatText(wchar_t* buffer, std::size_t characters, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatTextList(buffer, characters, format, arguments);
    va_end(arguments);
}

void PrintText(const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vwprintf_s(format, arguments);
    va_end(arguments);
}

}  // namespace Orva::Shared
