#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace Notebook {

/// Puts text into a fixed field, cut to fit and always terminated.
template <class Char, std::size_t N>
void CopyText(Char (&field)[N], std::basic_string_view<Char> text) {
    const std::size_t length = std::min(text.size(), N - 1);
    std::copy_n(text.begin(), length, field);
    std::fill(field + length, field + N, Char{});
}

template <class Char, std::size_t N>
void CopyText(Char (&field)[N], const std::basic_string<Char>& text) {
    CopyText(field, std::basic_string_view<Char>(text));
}

inline std::wstring Widen(std::string_view utf8) {
    const int size = static_cast<int>(utf8.size());
    const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(needed), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), needed);
    return wide;
}

inline std::string Narrow(std::wstring_view wide) {
    const int size = static_cast<int>(wide.size());
    const int needed = WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, narrow.data(), needed, nullptr, nullptr);
    return narrow;
}

/// Text in double quotes; quotes, backslashes and control characters are written as \", \\, \r, \n and \xHH.
inline std::string InQuotes(std::string_view text) {
    std::string quoted = "\"";
    for (const char letter : text) {
        constexpr std::string_view kEscaped = "\"\\\r\n";
        const std::size_t known = kEscaped.find(letter);
        const auto code = static_cast<unsigned char>(letter);
        if (known != std::string_view::npos) {
            quoted += {'\\', "\"\\rn"[known]};
        } else if (code < ' ') {
            constexpr std::string_view kDigits = "0123456789abcdef";
            quoted += {'\\', 'x', kDigits[code / 16], kDigits[code % 16]};
        } else {
            quoted += letter;
        }
    }
    return quoted + '"';
}

/// A GUID in registry form, in upper-case letters.
inline std::wstring GuidText(const GUID& id) {
    wchar_t text[40];
    const auto length = static_cast<std::size_t>(
        swprintf_s(text, std::size(text), L"{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1,
                   id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4],
                   id.Data4[5], id.Data4[6], id.Data4[7]));
    return {text, length};
}

}  // namespace Notebook
