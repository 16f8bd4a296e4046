#include "tests/support/registry_tree.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "tests/support/scoped_import.h"

namespace Rig {

namespace {

/// An open key, past every fake; null when there is no such key.
struct KeyCloser {
    using pointer = HKEY;
    void operator()(HKEY key) const { Real<&::RegCloseKey>(key); }
};
using Key = std::unique_ptr<HKEY, KeyCloser>;

/// Whether what was looked for is there.
bool IsThere(LSTATUS status, const char* call) {
    if (status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND) {
        return false;
    }
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string("The test's ") + call + " fails with " + std::to_string(status));
    }
    return true;
}

Key Open(HKEY root, const std::wstring& path) {
    HKEY key = nullptr;
    return Key(IsThere(Real<&::RegOpenKeyExW>(root, path.c_str(), 0, KEY_READ, &key), "RegOpenKeyExW")
                   ? key
                   : nullptr);
}

Key Make(HKEY root, const std::wstring& path) {
    HKEY key = nullptr;
    IsThere(Real<&::RegCreateKeyExW>(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_READ | KEY_WRITE, nullptr, &key, nullptr),
            "RegCreateKeyExW");
    return Key(key);
}

void DeleteTree(HKEY root, const std::wstring& path) {
    IsThere(Real<&::RegDeleteTreeW>(root, path.c_str()), "RegDeleteTreeW");
}

void Copy(HKEY fromRoot, const std::wstring& from, HKEY toRoot, const std::wstring& to) {
    IsThere(Real<&::RegCopyTreeW>(fromRoot, from.c_str(), Make(toRoot, to).get()), "RegCopyTreeW");
}

/// Null for no bytes, which the registry functions take.
BYTE* Data(std::vector<std::byte>& bytes) {
    return reinterpret_cast<BYTE*>(bytes.data());
}

RegistryValue Value(DWORD type, const void* first, std::size_t bytes) {
    const auto* const start = static_cast<const std::byte*>(first);
    return {type, {start, start + bytes}};
}

}  // namespace

void PrintTo(const RegistryValue& value, std::ostream* out) {
    *out << "type " << value.type << ", " << value.bytes.size() << " bytes:" << std::hex << std::setfill('0');
    for (const std::byte byte : value.bytes) {
        *out << " " << std::setw(2) << std::to_integer<int>(byte);
    }
    *out << std::dec << std::setfill(' ');
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
        std::wstring text(value.bytes.size() / sizeof(wchar_t), L'\0');
        std::memcpy(text.data(), value.bytes.data(), text.size() * sizeof(wchar_t));
        *out << "  " << testing::PrintToString(text);
    }
}

RegistryValue RegistryText(std::wstring_view text) {
    const std::wstring terminated(text);
    return Value(REG_SZ, terminated.c_str(), (terminated.size() + 1) * sizeof(wchar_t));
}

RegistryValue RegistryNumber(DWORD number) {
    return Value(REG_DWORD, &number, sizeof(number));
}

RegistryValue RegistryBytes(DWORD type, std::initializer_list<int> bytes) {
    RegistryValue value{type, {}};
    for (const int byte : bytes) {
        value.bytes.push_back(static_cast<std::byte>(byte));
    }
    return value;
}

ScopedRegistryTree::ScopedRegistryTree(HKEY root, std::wstring path) : m_root(root), m_path(std::move(path)) {
    static int trees = 0;
    ++trees;
    if (Exists()) {
        m_before = L"Software\\Linkvane Rig\\" + std::to_wstring(trees);
        DeleteTree(HKEY_CURRENT_USER, m_before);
        Copy(m_root, m_path, HKEY_CURRENT_USER, m_before);
        Delete();
    }
}

ScopedRegistryTree::~ScopedRegistryTree() {
    try {
        Delete();
        if (!m_before.empty()) {
            Copy(HKEY_CURRENT_USER, m_before, m_root, m_path);
            DeleteTree(HKEY_CURRENT_USER, m_before);
        }
    } catch (const std::runtime_error& error) {
        ADD_FAILURE() << error.what();
    }
}

std::wstring ScopedRegistryTree::Path(const std::wstring& subkey) const {
    return subkey.empty() ? m_path : m_path + L"\\" + subkey;
}

bool ScopedRegistryTree::Exists(const std::wstring& subkey) const {
    return Open(m_root, Path(subkey)) != nullptr;
}

void ScopedRegistryTree::Create(const std::wstring& subkey) const {
    Make(m_root, Path(subkey));
}

void ScopedRegistryTree::Delete(const std::wstring& subkey) const {
    DeleteTree(m_root, Path(subkey));
}

void ScopedRegistryTree::Write(const std::wstring& subkey, const std::wstring& name,
                               const RegistryValue& value) const {
    const Key key = Make(m_root, Path(subkey));
    std::vector<std::byte> bytes = value.bytes;
    IsThere(Real<&::RegSetValueExW>(key.get(), name.c_str(), 0, value.type, Data(bytes),
                                    static_cast<DWORD>(bytes.size())),
            "RegSetValueExW");
}

std::optional<RegistryValue> ScopedRegistryTree::Read(const std::wstring& subkey,
                                                      const std::wstring& name) const {
    const Key key = Open(m_root, Path(subkey));
    RegistryValue value{REG_NONE, {}};
    DWORD size = 0;
    const auto query = [&] {
        return IsThere(Real<&::RegQueryValueExW>(key.get(), name.c_str(), nullptr, &value.type,
                                                 Data(value.bytes), &size),
                       "RegQueryValueExW");
    };
    // First without room, for the size.
    if (key == nullptr || !query()) {
        return std::nullopt;
    }
    value.bytes.resize(size);
    query();
    return value;
}

void ScopedRegistryTree::DeleteValue(const std::wstring& subkey, const std::wstring& name) const {
    IsThere(Real<&::RegDeleteKeyValueW>(m_root, Path(subkey).c_str(), name.c_str()), "RegDeleteKeyValueW");
}

}  // namespace Rig
