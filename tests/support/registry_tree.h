#pragma once

#include <windows.h>

#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Rig {

/// The type and the bytes of a registry value.
struct RegistryValue {
    DWORD type;
    std::vector<std::byte> bytes;

    friend bool operator==(const RegistryValue&, const RegistryValue&) = default;
};

/// Prints as `REG_SZ 14 bytes: 54 00 72 00 ...  "Tr"`.
void PrintTo(const RegistryValue& value, std::ostream* out);

/// A REG_SZ with its terminator, as Windows stores it.
[[nodiscard]] RegistryValue RegistryText(std::wstring_view text);
/// A REG_DWORD.
[[nodiscard]] RegistryValue RegistryNumber(DWORD number);
/// Any type and any bytes: `RegistryBytes(REG_SZ, {0x41})` is a text without its terminator.
[[nodiscard]] RegistryValue RegistryBytes(DWORD type, std::initializer_list<int> bytes);

/// The registry itself, in the prefix or on the machine where the tests run. `path` is below
/// `root`; an empty value name is the key's default value. None of this goes through a test's
/// fakes. What cannot be done throws `std::runtime_error`.
///
///     WriteRegistryValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva", L"Level", RegistryNumber(3));
///     EXPECT_EQ(ReadRegistryValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva", L"Level"),
///               RegistryNumber(3));
void CreateRegistryKey(HKEY root, const std::wstring& path);
/// Makes the key where it is missing.
void WriteRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name,
                        const RegistryValue& value);
/// Empty when there is no such value.
[[nodiscard]] std::optional<RegistryValue> ReadRegistryValue(HKEY root, const std::wstring& path,
                                                             const std::wstring& name);
/// Does nothing when there is no such value.
void DeleteRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name);
[[nodiscard]] bool RegistryKeyExists(HKEY root, const std::wstring& path);
/// Names of the subkeys, sorted; none when the key is missing.
[[nodiscard]] std::vector<std::wstring> RegistrySubkeys(HKEY root, const std::wstring& path);
/// The key's own values by name; none when the key is missing.
[[nodiscard]] std::map<std::wstring, RegistryValue> RegistryValues(HKEY root, const std::wstring& path);
/// Deletes a key and all below it. Does nothing when it is missing.
void DeleteRegistryTree(HKEY root, const std::wstring& path);

/// A part of the registry that is the test's for a scope. It begins without the key. At the end
/// the key is deleted with all below it, and what had been there before comes back. Keys above it
/// that had to be made for it stay.
///
///     ScopedRegistryTree policies{HKEY_LOCAL_MACHINE, L"Software\\Policies\\Orva"};
///     policies.Write(L"Some Product", L"MinLogLevel", RegistryText(L"Error"));
class ScopedRegistryTree {
  public:
    ScopedRegistryTree(HKEY root, std::wstring path);
    ScopedRegistryTree(const ScopedRegistryTree&) = delete;
    ScopedRegistryTree& operator=(const ScopedRegistryTree&) = delete;
    ~ScopedRegistryTree();

    /// The operations above, below this tree's key; an empty `subkey` is the key itself.
    void Create(const std::wstring& subkey = {}) const;
    void Write(const std::wstring& subkey, const std::wstring& name, const RegistryValue& value) const;
    [[nodiscard]] std::optional<RegistryValue> Read(const std::wstring& subkey,
                                                    const std::wstring& name) const;
    [[nodiscard]] bool Exists(const std::wstring& subkey = {}) const;
    void Delete(const std::wstring& subkey = {}) const;
    [[nodiscard]] std::wstring Path(const std::wstring& subkey = {}) const;

  private:
    struct Saved {
        std::map<std::wstring, RegistryValue> values;
        std::map<std::wstring, Saved> subkeys;
    };
    [[nodiscard]] static Saved Save(HKEY root, const std::wstring& path);
    static void PutBack(HKEY root, const std::wstring& path, const Saved& saved);

    HKEY m_root;
    std::wstring m_path;
    std::optional<Saved> m_before;
};

}  // namespace Rig
