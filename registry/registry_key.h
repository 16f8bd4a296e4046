#pragma once

#include <windows.h>

#include "platform/handles.h"

/// A kernel transaction that registry operations can take part in.
struct RegistryTransaction {
    HANDLE handle = nullptr;  ///< not owned; null when there is no transaction
    /// Use the plain functions while there is no transaction.
    bool plainWithoutHandle = false;
};

/// An open registry key, with the view (32 or 64 bit) through which it was opened. Results are
/// Win32 errors, ERROR_SUCCESS on success. The transacted functions are looked up at run time;
/// where they are missing, an operation that needs one gives ERROR_INVALID_FUNCTION.
class RegistryKey {
  public:
    /// `transaction` may be null; it is not owned and must outlive the key.
    explicit RegistryKey(const RegistryTransaction* transaction = nullptr) noexcept
        : m_transaction(transaction) {}

    /// Opens a key; a null or empty `subkey` stands for `parent` itself. A key held before is
    /// closed; how that went is the result.
    LSTATUS Open(HKEY parent, const wchar_t* subkey, REGSAM access);

    /// Opens a key, making it when it is missing. A key held before is closed; how that went is
    /// the result.
    LSTATUS Create(HKEY parent, const wchar_t* subkey, REGSAM access);

    /// Deletes a key without subkeys, in the view of this key.
    LSTATUS DeleteKey(HKEY parent, const wchar_t* subkey);

    /// Deletes a key below this one with all its subkeys, deepest first.
    LSTATUS DeleteTree(const wchar_t* subkey);

    /// Closes the key, if one is open, and forgets its view.
    LSTATUS Close();

    [[nodiscard]] HKEY Get() const noexcept { return m_key.Get(); }
    [[nodiscard]] REGSAM View() const noexcept { return m_view; }

  private:
    /// `DeleteTree` for each subkey of this key. An enumeration that fails counts as finished.
    LSTATUS DeleteSubkeys();
    /// Takes over a key that was opened with `access`, in place of the one held before.
    LSTATUS Hold(Platform::UniqueRegistryKey&& key, REGSAM access);

    Platform::UniqueRegistryKey m_key;
    REGSAM m_view = 0;
    const RegistryTransaction* m_transaction;
};
