#include "registry/registry_key.h"

#include <atomic>

namespace {

constexpr wchar_t kFunctionLibrary[] = L"Advapi32.dll";
constexpr REGSAM kViewBits = KEY_WOW64_64KEY | KEY_WOW64_32KEY;
constexpr DWORD kSubkeyNameCharacters = 256;  ///< the longest name allowed and its end

/// A function of the library that every process here has loaded; null where Windows lacks it.
template <class Function>
Function* LookUp(const char* name) {
    const HMODULE library = GetModuleHandleW(kFunctionLibrary);
    if (library == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

using DeleteKeyEx = decltype(RegDeleteKeyExW);
std::atomic<DeleteKeyEx*> deleteKeyEx{nullptr};
std::atomic<bool> deleteKeyExLookedUp{false};

/// Looked up once a process, absent or not. Two threads may do it at the same time and find the
/// same, which needs no lock.
DeleteKeyEx* FindDeleteKeyEx() {
    if (!deleteKeyExLookedUp) {
        deleteKeyEx = LookUp<DeleteKeyEx>("RegDeleteKeyExW");
        deleteKeyExLookedUp = true;
    }
    return deleteKeyEx;
}

/// How an operation is to be done under a transaction.
enum class Path : unsigned char { kPlain, kTransacted, kNone };

Path ChoosePath(const RegistryTransaction* transaction) {
    if (transaction == nullptr) {
        return Path::kPlain;
    }
    if (transaction->handle != nullptr) {
        return Path::kTransacted;
    }
    return transaction->plainWithoutHandle ? Path::kPlain : Path::kNone;
}

LSTATUS OpenTransacted(HKEY parent, const wchar_t* subkey, REGSAM access, HANDLE transaction, HKEY* key) {
    auto* const open = LookUp<decltype(RegOpenKeyTransactedW)>("RegOpenKeyTransactedW");
    if (open == nullptr) {
        return ERROR_INVALID_FUNCTION;
    }
    return open(parent, subkey, 0, access, key, transaction, nullptr);
}

LSTATUS CreateTransacted(HKEY parent, const wchar_t* subkey, REGSAM access, HANDLE transaction, HKEY* key) {
    auto* const create = LookUp<decltype(RegCreateKeyTransactedW)>("RegCreateKeyTransactedW");
    if (create == nullptr) {
        return ERROR_INVALID_FUNCTION;
    }
    DWORD disposition = 0;
    return create(parent, subkey, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, key, &disposition,
                  transaction, nullptr);
}

LSTATUS CreatePlain(HKEY parent, const wchar_t* subkey, REGSAM access, HKEY* key) {
    DWORD disposition = 0;
    return RegCreateKeyExW(parent, subkey, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, key,
                           &disposition);
}

LSTATUS DeleteTransacted(HKEY parent, const wchar_t* subkey, REGSAM view, HANDLE transaction) {
    auto* const deleteKey = LookUp<decltype(RegDeleteKeyTransactedW)>("RegDeleteKeyTransactedW");
    if (deleteKey == nullptr) {
        return ERROR_INVALID_FUNCTION;
    }
    return deleteKey(parent, subkey, view, 0, transaction, nullptr);
}

}  // namespace

LSTATUS RegistryKey::Open(HKEY parent, const wchar_t* subkey, REGSAM access) {
    Platform::UniqueRegistryKey opened;
    LSTATUS result = ERROR_INVALID_FUNCTION;
    switch (ChoosePath(m_transaction)) {
        case Path::kTransacted:
            result = OpenTransacted(parent, subkey, access, m_transaction->handle, opened.Put());
            break;
        case Path::kPlain:
            result = RegOpenKeyExW(parent, subkey, 0, access, opened.Put());
            break;
        case Path::kNone:
            break;
    }
    return result == ERROR_SUCCESS ? Hold(std::move(opened), access) : result;
}

LSTATUS RegistryKey::Create(HKEY parent, const wchar_t* subkey, REGSAM access) {
    Platform::UniqueRegistryKey created;
    LSTATUS result = ERROR_INVALID_FUNCTION;
    switch (ChoosePath(m_transaction)) {
        case Path::kTransacted:
            result = CreateTransacted(parent, subkey, access, m_transaction->handle, created.Put());
            break;
        case Path::kPlain:
            result = CreatePlain(parent, subkey, access, created.Put());
            break;
        case Path::kNone:
            break;
    }
    return result == ERROR_SUCCESS ? Hold(std::move(created), access) : result;
}

LSTATUS RegistryKey::DeleteKey(HKEY parent, const wchar_t* subkey) {
    if (m_transaction == nullptr) {
        DeleteKeyEx* const deleteKey = FindDeleteKeyEx();
        return deleteKey != nullptr ? deleteKey(parent, subkey, m_view, 0) : RegDeleteKeyW(parent, subkey);
    }
    switch (ChoosePath(m_transaction)) {
        case Path::kTransacted:
            return DeleteTransacted(parent, subkey, m_view, m_transaction->handle);
        case Path::kPlain:
            return RegDeleteKeyW(parent, subkey);
        case Path::kNone:
            break;
    }
    return ERROR_INVALID_FUNCTION;
}

LSTATUS RegistryKey::DeleteTree(const wchar_t* subkey) {
    // The child takes no part in this key's transaction, so it is opened, and its subkeys are
    // deleted, outside of it; only the deletion at the end goes through the transaction. It is
    // meant to be so.
    RegistryKey child;
    const LSTATUS opened = child.Open(Get(), subkey, KEY_READ | KEY_WRITE | m_view);
    if (opened != ERROR_SUCCESS) {
        return opened;
    }
    const LSTATUS emptied = child.DeleteSubkeys();
    if (emptied != ERROR_SUCCESS) {
        return emptied;
    }
    child.Close();
    return DeleteKey(Get(), subkey);
}

LSTATUS RegistryKey::DeleteSubkeys() {
    for (;;) {
        wchar_t name[kSubkeyNameCharacters] = {};
        DWORD characters = kSubkeyNameCharacters;
        // Always the first: the one before it is gone and the next has moved up. Whatever ends the
        // enumeration ends it quietly: the deletion of this key then tells what is wrong.
        if (RegEnumKeyExW(Get(), 0, name, &characters, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return ERROR_SUCCESS;
        }
        const LSTATUS deleted = DeleteTree(name);
        if (deleted != ERROR_SUCCESS) {
            return deleted;
        }
    }
}

LSTATUS RegistryKey::Close() {
    const DWORD error = m_key.TryClose();
    // A key that could not be closed is forgotten all the same: there is nothing else to do with it.
    static_cast<void>(m_key.Detach());
    m_view = 0;
    return static_cast<LSTATUS>(error);
}

LSTATUS RegistryKey::Hold(Platform::UniqueRegistryKey&& key, REGSAM access) {
    const LSTATUS closed = Close();
    m_key = std::move(key);
    m_view = access & kViewBits;
    return closed;
}
