#include "registry/registry.h"

#include <array>
#include <cwchar>

#include "registry/registry_key.h"

namespace {

constexpr REGSAM kReadAndWrite = KEY_READ | KEY_WRITE;
/// Longer texts, their end included, read as no text at all.
constexpr std::size_t kTextCharacters = 1024;

/// Whether `bytes` of a buffer hold a text with its end, or an empty one without.
bool IsTerminatedText(const wchar_t* text, DWORD bytes) {
    return bytes == 0 || (bytes % sizeof(wchar_t) == 0 && text[bytes / sizeof(wchar_t) - 1] == L'\0');
}

}  // namespace

std::wstring Registry::GetValue(const std::wstring& keyPath, const std::wstring& valueName) const {
    RegistryKey key;
    if (key.Open(m_root, keyPath.c_str(), KEY_READ) != ERROR_SUCCESS) {
        return {};
    }
    std::array<wchar_t, kTextCharacters> text{};
    DWORD type = REG_NONE;
    DWORD bytes = sizeof(text);
    const LSTATUS queried = RegQueryValueExW(key.Get(), valueName.c_str(), nullptr, &type,
                                             reinterpret_cast<BYTE*>(text.data()), &bytes);
    const bool isText = type == REG_SZ || type == REG_EXPAND_SZ;
    if (queried != ERROR_SUCCESS || !isText || !IsTerminatedText(text.data(), bytes)) {
        return {};
    }
    return text.data();
}

LSTATUS Registry::SetValue(const std::wstring& keyPath, const std::wstring& valueName,
                           const wchar_t* text) const {
    RegistryKey key;
    const LSTATUS created = key.Create(m_root, keyPath.c_str(), kReadAndWrite);
    if (created != ERROR_SUCCESS) {
        return created;
    }
    if (text == nullptr) {
        return ERROR_INVALID_DATA;
    }
    const auto bytes = static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t));
    return RegSetValueExW(key.Get(), valueName.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                          bytes);
}

LSTATUS Registry::DeleteSubkey(const std::wstring& keyPath) const {
    RegistryKey root;
    LSTATUS result = root.Open(m_root, L"", kReadAndWrite);
    if (result == ERROR_SUCCESS) {
        result = root.DeleteTree(keyPath.c_str());
    }
    return result == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : result;
}
