#include "tests/support/registry_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iomanip>
#include <ostream>
#include <stdexcept>

#include "tests/support/scoped_import.h"

namespace Rig {

namespace {

/// Longest name of a key (255) or a value (16383) with its terminator.
constexpr std::size_t kMostNameCharacters = 16'384;

void Require(LSTATUS status, const char* call) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(std::string("The test's ") + call + " fails with " + std::to_string(status));
    }
}

/// An open key, past every fake.
class Key {
  public:
    /// Empty when there is no such key.
    static Key Open(HKEY root, const std::wstring& path, REGSAM access) {
        Key key;
        const LSTATUS status = Real<&::RegOpenKeyExW>(root, path.c_str(), 0, access, &key.m_key);
        if (status != ERROR_FILE_NOT_FOUND && status != ERROR_PATH_NOT_FOUND) {
            Require(status, "RegOpenKeyExW");
        }
        return key;
    }
    static Key Make(HKEY root, const std::wstring& path) {
        Key key;
        Require(Real<&::RegCreateKeyExW>(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                         KEY_READ | KEY_WRITE, nullptr, &key.m_key, nullptr),
                "RegCreateKeyExW");
        return key;
    }
    Key(Key&& other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    Key& operator=(Key&&) = delete;
    ~Key() {
        if (m_key != nullptr) {
            Real<&::RegCloseKey>(m_key);
        }
    }

    explicit operator bool() const { return m_key != nullptr; }
    [[nodiscard]] HKEY Get() const { return m_key; }

  private:
    Key() = default;
    HKEY m_key = nullptr;
};

/// Null for no bytes, which the registry functions take.
BYTE* Data(std::vector<std::byte>& bytes) {
    return reinterpret_cast<BYTE*>(bytes.data());
}

std::optional<RegistryValue> ReadFrom(const Key& key, const std::wstring& name) {
    RegistryValue value{REG_NONE, {}};
    DWORD size = 0;
    const LSTATUS status =
        Real<&::RegQueryValueExW>(key.Get(), name.c_str(), nullptr, &value.type, nullptr, &size);
    if (status == ERROR_FILE_NOT_FOUND) {
        return std::nullopt;
    }
    Require(status, "RegQueryValueExW");
    value.bytes.resize(size);
    if (size != 0) {
        Require(Real<&::RegQueryValueExW>(key.Get(), name.c_str(), nullptr, &value.type, Data(value.bytes),
                                          &size),
                "RegQueryValueExW");
    }
    return value;
}

std::wstring Joined(const std::wstring& path, const std::wstring& subkey) {
    return subkey.empty() ? path : path + L"\\" + subkey;
}

std::string TypeText(DWORD type) {
    static const std::map<DWORD, std::string> names{
        {REG_NONE, "REG_NONE"},     {REG_SZ, "REG_SZ"},       {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
        {REG_BINARY, "REG_BINARY"}, {REG_DWORD, "REG_DWORD"}, {REG_MULTI_SZ, "REG_MULTI_SZ"},
        {REG_QWORD, "REG_QWORD"}};
    const auto found = names.find(type);
    return found != names.end() ? found->second : "type " + std::to_string(type);
}

bool IsText(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

std::wstring AsText(const std::vector<std::byte>& bytes) {
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

}  // namespace

void PrintTo(const RegistryValue& value, std::ostream* out) {
    *out << TypeText(value.type) << " " << value.bytes.size() << " bytes:" << std::hex << std::setfill('0');
    for (const std::byte byte : value.bytes) {
        *out << " " << std::setw(2) << std::to_integer<int>(byte);
    }
    *out << std::dec << std::setfill(' ');
    if (IsText(value.type)) {
        *out << "  " << testing::PrintToString(AsText(value.bytes));
    }
}

RegistryValue RegistryText(std::wstring_view text) {
    const std::wstring terminated(text);
    const auto* const first = reinterpret_cast<const std::byte*>(terminated.c_str());
    return {REG_SZ, {first, first + (terminated.size() + 1) * sizeof(wchar_t)}};
}

RegistryValue RegistryNumber(DWORD number) {
    const auto* const first = reinterpret_cast<const std::byte*>(&number);
    return {REG_DWORD, {first, first + sizeof(number)}};
}

RegistryValue RegistryBytes(DWORD type, std::initializer_list<int> bytes) {
    RegistryValue value{type, {}};
    for (const int byte : bytes) {
        value.bytes.push_back(static_cast<std::byte>(byte));
    }
    return value;
}

void CreateRegistryKey(HKEY root, const std::wstring& path) {
    Key::Make(root, path);
}

void WriteRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name,
                        const RegistryValue& value) {
    const Key key = Key::Make(root, path);
    std::vector<std::byte> bytes = value.bytes;
    Require(Real<&::RegSetValueExW>(key.Get(), name.c_str(), 0, value.type, Data(bytes),
                                    static_cast<DWORD>(bytes.size())),
            "RegSetValueExW");
}

std::optional<RegistryValue> ReadRegistryValue(HKEY root, const std::wstring& path,
                                               const std::wstring& name) {
    const Key key = Key::Open(root, path, KEY_READ);
    return key ? ReadFrom(key, name) : std::nullopt;
}

void DeleteRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name) {
    const Key key = Key::Open(root, path, KEY_READ | KEY_WRITE);
    if (key && ReadFrom(key, name)) {
        Require(Real<&::RegDeleteValueW>(key.Get(), name.c_str()), "RegDeleteValueW");
    }
}

bool RegistryKeyExists(HKEY root, const std::wstring& path) {
    return static_cast<bool>(Key::Open(root, path, KEY_READ));
}

std::vector<std::wstring> RegistrySubkeys(HKEY root, const std::wstring& path) {
    std::vector<std::wstring> names;
    const Key key = Key::Open(root, path, KEY_READ);
    std::vector<wchar_t> name(kMostNameCharacters);
    for (DWORD index = 0; key; ++index) {
        auto length = static_cast<DWORD>(name.size());
        const LSTATUS status = Real<&::RegEnumKeyExW>(key.Get(), index, name.data(), &length, nullptr,
                                                      nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) {
            break;
        }
        Require(status, "RegEnumKeyExW");
        names.emplace_back(name.data(), length);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::map<std::wstring, RegistryValue> RegistryValues(HKEY root, const std::wstring& path) {
    std::map<std::wstring, RegistryValue> values;
    const Key key = Key::Open(root, path, KEY_READ);
    std::vector<wchar_t> name(kMostNameCharacters);
    for (DWORD index = 0; key; ++index) {
        auto length = static_cast<DWORD>(name.size());
        const LSTATUS status = Real<&::RegEnumValueW>(key.Get(), index, name.data(), &length, nullptr,
                                                      nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) {
            break;
        }
        Require(status, "RegEnumValueW");
        const std::wstring text(name.data(), length);
        values.emplace(text, ReadFrom(key, text).value());
    }
    return values;
}

void DeleteRegistryTree(HKEY root, const std::wstring& path) {
    for (const std::wstring& subkey : RegistrySubkeys(root, path)) {
        DeleteRegistryTree(root, Joined(path, subkey));
    }
    if (RegistryKeyExists(root, path)) {
        Require(Real<&::RegDeleteKeyW>(root, path.c_str()), "RegDeleteKeyW");
    }
}

ScopedRegistryTree::ScopedRegistryTree(HKEY root, std::wstring path) : m_root(root), m_path(std::move(path)) {
    if (RegistryKeyExists(m_root, m_path)) {
        m_before = Save(m_root, m_path);
        DeleteRegistryTree(m_root, m_path);
    }
}

ScopedRegistryTree::~ScopedRegistryTree() {
    try {
        DeleteRegistryTree(m_root, m_path);
        if (m_before) {
            PutBack(m_root, m_path, *m_before);
        }
    } catch (const std::runtime_error& error) {
        ADD_FAILURE() << error.what();
    }
}

ScopedRegistryTree::Saved ScopedRegistryTree::Save(HKEY root, const std::wstring& path) {
    Saved saved{RegistryValues(root, path), {}};
    for (const std::wstring& subkey : RegistrySubkeys(root, path)) {
        saved.subkeys.emplace(subkey, Save(root, Joined(path, subkey)));
    }
    return saved;
}

void ScopedRegistryTree::PutBack(HKEY root, const std::wstring& path, const Saved& saved) {
    CreateRegistryKey(root, path);
    for (const auto& [name, value] : saved.values) {
        WriteRegistryValue(root, path, name, value);
    }
    for (const auto& [name, subkey] : saved.subkeys) {
        PutBack(root, Joined(path, name), subkey);
    }
}

void ScopedRegistryTree::Create(const std::wstring& subkey) const {
    CreateRegistryKey(m_root, Path(subkey));
}

void ScopedRegistryTree::Write(const std::wstring& subkey, const std::wstring& name,
                               const RegistryValue& value) const {
    WriteRegistryValue(m_root, Path(subkey), name, value);
}

std::optional<RegistryValue> ScopedRegistryTree::Read(const std::wstring& subkey,
                                                      const std::wstring& name) const {
    return ReadRegistryValue(m_root, Path(subkey), name);
}

bool ScopedRegistryTree::Exists(const std::wstring& subkey) const {
    return RegistryKeyExists(m_root, Path(subkey));
}

void ScopedRegistryTree::Delete(const std::wstring& subkey) const {
    DeleteRegistryTree(m_root, Path(subkey));
}

std::wstring ScopedRegistryTree::Path(const std::wstring& subkey) const {
    return Joined(m_path, subkey);
}

}  // namespace Rig
