#include "logging/format.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

namespace Orva::Shared {

void FormatTextList(wchar_t* buffer, std::size_t characters, const wchar_t* format, va_list arguments) {
    if (characters == 0) {
        return;
    }
    // Neither a cut text nor one whose conversion failed is terminated: cleared, the buffer ends it.
    std::fill_n(buffer, characters, L'\0');
    _vsnwprintf(buffer, characters - 1, format, arguments);
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
