#include "doctor/inspection/registry_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "doctor/inspection/text.h"

namespace Inspection {
namespace {

/// Longest name of a key and of a value, their ends included ("Registry Element Size Limits").
constexpr DWORD kKeyNameCharacters = 256;
constexpr DWORD kValueNameCharacters = 16384;

constexpr std::size_t kMostBytesShown = 64;
/// Deeper than anything of the service's; a registry link may lead in a circle.
constexpr int kMostLevels = 8;

std::string TypeName(DWORD type) {
    switch (type) {
        case REG_NONE:
            return "REG_NONE";
        case REG_SZ:
            return "REG_SZ";
        case REG_EXPAND_SZ:
            return "REG_EXPAND_SZ";
        case REG_BINARY:
            return "REG_BINARY";
        case REG_DWORD:
            return "REG_DWORD";
        case REG_MULTI_SZ:
            return "REG_MULTI_SZ";
        case REG_QWORD:
            return "REG_QWORD";
        default:
            return fmt::format("type {}", type);
    }
}

std::string Hexadecimal(const std::vector<BYTE>& data) {
    std::string text;
    for (std::size_t i = 0; i < std::min(data.size(), kMostBytesShown); ++i) {
        text += fmt::format("{}{:02x}", i == 0 ? "" : " ", data[i]);
    }
    return data.size() > kMostBytesShown ? fmt::format("{} ... {} bytes", text, data.size()) : text;
}

std::wstring Characters(const RawValue& value) {
    std::wstring text(value.data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value.data.data(), text.size() * sizeof(wchar_t));
    return text;
}

std::string Strings(const RawValue& value) {
    std::wstring text = Characters(value);
    while (!text.empty() && text.back() == L'\0') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), L'\0', L' ');
    return Utf8(text);
}

void DumpKey(HKEY key, const std::string& path, int levels, std::string& dump) {
    dump += fmt::format("[{}]\r\n", path);
    for (const RawValue& raw : ReadValues(key)) {
        const Value value = Describe(raw);
        dump += fmt::format("\"{}\" {}: {}\r\n", value.name, value.type, value.text);
    }
    dump += "\r\n";
    if (levels == 0) {
        return;
    }
    for (const std::wstring& name : ReadSubkeys(key)) {
        Platform::UniqueRegistryKey subkey;
        if (OpenForReading(key, name, subkey) == ERROR_SUCCESS) {
            DumpKey(subkey.Get(), path + "\\" + Utf8(name), levels - 1, dump);
        }
    }
}

}  // namespace

LSTATUS OpenForReading(HKEY root, const std::wstring& path, Platform::UniqueRegistryKey& key) {
    return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.Put());
}

LSTATUS ReadValue(HKEY key, const wchar_t* name, RawValue& value) {
    value.name = name != nullptr ? name : L"";
    LSTATUS error = ERROR_MORE_DATA;
    // It may grow between the two questions.
    for (int tries = 0; tries < 4 && error == ERROR_MORE_DATA; ++tries) {
        DWORD bytes = 0;
        error = RegQueryValueExW(key, name, nullptr, &value.type, nullptr, &bytes);
        if (error != ERROR_SUCCESS) {
            return error;
        }
        value.data.resize(bytes);
        error = RegQueryValueExW(key, name, nullptr, &value.type, value.data.data(), &bytes);
        if (error == ERROR_SUCCESS) {
            value.data.resize(bytes);
        }
    }
    return error;
}

std::vector<RawValue> ReadValues(HKEY key) {
    std::vector<RawValue> values;
    std::vector<wchar_t> name(kValueNameCharacters);
    for (DWORD index = 0;; ++index) {
        auto characters = static_cast<DWORD>(name.size());
        if (RegEnumValueW(key, index, name.data(), &characters, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            return values;
        }
        RawValue value;
        if (ReadValue(key, name.data(), value) == ERROR_SUCCESS) {
            values.push_back(std::move(value));
        }
    }
}

std::vector<std::wstring> ReadSubkeys(HKEY key) {
    std::vector<std::wstring> names;
    std::array<wchar_t, kKeyNameCharacters> name{};
    for (DWORD index = 0;; ++index) {
        auto characters = static_cast<DWORD>(name.size());
        if (RegEnumKeyExW(key, index, name.data(), &characters, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            return names;
        }
        names.emplace_back(name.data());
    }
}

std::wstring TextOf(const RawValue& value) {
    const std::wstring text = Characters(value);
    return text.substr(0, text.find(L'\0'));
}

Value Describe(const RawValue& value) {
    Value described{Utf8(value.name), TypeName(value.type), {}};
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
        described.text = Utf8(TextOf(value));
    } else if (value.type == REG_MULTI_SZ) {
        described.text = Strings(value);
    } else if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, value.data.data(), sizeof(number));
        described.text = std::to_string(number);
    } else {
        described.text = Hexadecimal(value.data);
    }
    return described;
}

std::string Dump(HKEY root, const std::wstring& path, Below below) {
    const std::string shown = "HKEY_LOCAL_MACHINE\\" + Utf8(path);
    Platform::UniqueRegistryKey key;
    const LSTATUS error = OpenForReading(root, path, key);
    if (error != ERROR_SUCCESS) {
        return fmt::format("[{}]\r\nnot opened: error {}\r\n\r\n", shown, error);
    }
    std::string dump;
    DumpKey(key.Get(), shown, below == Below::kToo ? kMostLevels : 0, dump);
    return dump;
}

}  // namespace Inspection
