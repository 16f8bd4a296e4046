#pragma once

#include <cstddef>
#include <cstdio>
#include <cwchar>

#include "logging/format.h"

/// What the person at the console reads.
namespace Console {

/// Characters of one text, its end included; longer texts are cut.
constexpr std::size_t kTextCharacters = 512;

/// Writes text to standard output and hands it on at once, so that progress shows in a pipe too.
/// Without a console or a pipe, as in a service, nothing happens.
inline void PrintText(const wchar_t* text) {
    std::fputws(text, stdout);
    std::fflush(stdout);
}

/// Formats (see `FormatText`: `%s` is wide text) and writes to standard output.
template <class... Args>
void Print(const wchar_t* format, const Args&... args) {
    wchar_t text[kTextCharacters] = {};
    Orva::Shared::FormatText(text, kTextCharacters, format, args...);
    PrintText(text);
}

}  // namespace Console
