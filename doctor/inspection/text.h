#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace Inspection {

/// UTF-8 of a text of Windows. What is no text (half of a surrogate pair) becomes U+FFFD.
[[nodiscard]] inline std::string Utf8(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

/// UTF-8 of a text in the system's code page, such as an adapter's description.
[[nodiscard]] inline std::string Utf8FromSystem(std::string_view text) {
    const int length = static_cast<int>(text.size());
    const int characters = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(characters), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), characters);
    return Utf8(wide);
}

/// The opposite of `Utf8`.
[[nodiscard]] inline std::wstring Wide(std::string_view text) {
    const int length = static_cast<int>(text.size());
    const int characters = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(characters), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), characters);
    return wide;
}

}  // namespace Inspection
