#include "logging/format.h"

#include <cstdio>
#include <cwchar>

namespace Orva::Shared {

void FormatTextList(wchar_t* buffer, std::size_t characters, const wchar_t* format, va_list arguments) {
    if (characters == 0) {
        return;
    }
    va_list again;
    va_copy(again, arguments);
    // Cutting leaves the buffer unterminated, so its last place is kept out of reach.
    if (_vsnwprintf(buffer, characters - 1, format, arguments) < 0) {
        // Cut, or given up halfway, and then unterminated too: the result does not tell which. In a
        // cleared buffer the text ends where the second run stops writing.
        std::wmemset(buffer, L'\0', characters);
        _vsnwprintf(buffer, characters - 1, format, again);
    }
    va_end(again);
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
