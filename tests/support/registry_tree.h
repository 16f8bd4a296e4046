#pragma once

#include <windows.h>

#include <cstddef>
#include <initializer_list>
#include <iosfwd>
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

/// Prints as `type 1, 4 bytes: 54 00 00 00  L"T\0"`.
void PrintTo(const RegistryValue& value, std::ostream* out);

/// A REG_SZ with its terminator, as Windows stores it.
[[nodiscard]] RegistryValue RegistryText(std::wstring_view text);
/// A REG_DWORD.
[[nodiscard]] RegistryValue RegistryNumber(DWORD number);
/// Any type and any bytes: `RegistryBytes(REG_SZ, {0x41})` is a text without its terminator.
[[nodiscard]] RegistryValue RegistryBytes(DWORD type, std::initializer_list<int> bytes);

/// A part of the registry itself, in the prefix or on the machine where the tests run, that is the test's
/// for a scope. It begins without the key. At the end the key is deleted with all below it, and what had
/// been there before comes back. Keys above it that had to be made for it stay.
///
///     ScopedRegistryTree policies{HKEY_LOCAL_MACHINE, L"Software\\Policies\\Orva"};
///     policies.Write(L"Some Product", L"MinLogLevel", RegistryText(L"Error"));
///
/// None of this goes through a test's fakes. What cannot be done throws `std::runtime_error`. A `subkey` is
/// below the tree's key, empty for the key itself; an empty value name is a key's default value.
class ScopedRegistryTree {
  public:
    ScopedRegistryTree(HKEY root, std::wstring path);
    ScopedRegistryTree(const ScopedRegistryTree&) = delete;
    ScopedRegistryTree& operator=(const ScopedRegistryTree&) = delete;
    ~ScopedRegistryTree();

    [[nodiscard]] std::wstring Path(const std::wstring& subkey = {}) const;
    [[nodiscard]] bool Exists(const std::wstring& subkey = {}) const;
    void Create(const std::wstring& subkey = {}) const;
    /// Deletes a key and all below it. Does nothing when it is missing.
    void Delete(const std::wstring& subkey = {}) const;

    /// Makes the key where it is missing.
    void Write(const std::wstring& subkey, const std::wstring& name, const RegistryValue& value) const;
    /// Empty when there is no such value.
    [[nodiscard]] std::optional<RegistryValue> Read(const std::wstring& subkey,
                                                    const std::wstring& name) const;
    /// Does nothing when there is no such value.
    void DeleteValue(const std::wstring& subkey, const std::wstring& name) const;

  private:
    const HKEY m_root;
    const std::wstring m_path;
    std::wstring m_before;  ///< below the user's root, what was there; empty when nothing was
};

}  // namespace Rig
