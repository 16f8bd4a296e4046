#pragma once

#include <windows.h>

#include <string>

/// Reads and writes the service's own registry data below one root. Neither logs nor throws of
/// its own; callable on any thread.
class Registry {
  public:
    /// `root` is a predefined key.
    explicit Registry(HKEY root) noexcept : m_root(root) {}

    /// The text of a REG_SZ or REG_EXPAND_SZ value (not expanded). Empty on any failure and for a
    /// value of another type, without its terminating null, or of more than 2048 bytes.
    [[nodiscard]] std::wstring GetValue(const std::wstring& keyPath, const std::wstring& valueName) const;

    /// Writes a REG_SZ value with its terminating null, making the key when it is missing.
    /// Returns the Win32 error; ERROR_INVALID_DATA when `text` is null.
    LSTATUS SetValue(const std::wstring& keyPath, const std::wstring& valueName, const wchar_t* text) const;

    /// Deletes a key with all its subkeys. Returns the Win32 error; a missing key is a success.
    [[nodiscard]] LSTATUS DeleteSubkey(const std::wstring& keyPath) const;

  private:
    HKEY m_root;
};
