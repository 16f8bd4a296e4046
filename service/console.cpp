#include "service/console.h"

#include <cstdio>
#include <cwchar>

void Console::PrintText(const wchar_t* text) {
    std::fputws(text, stdout);
    std::fflush(stdout);
}
