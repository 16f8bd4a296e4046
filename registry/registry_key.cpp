#include "registry/registry_key.h"

#include <atomic>
#include <utility>

namespace {

constexpr wchar_t kFunctionLibrary[] = L"Advapi32.dll";
constexpr REGSAM kViewBits = KEY_WOW64_64KEY | KEY_WOW64_32KEY;
constexpr DWORD kSubkeyNameCharacters = 256;  ///< the longest name allowed and its end

using DeleteKeyEx = decltype(RegDeleteKeyExW);
std::atomic<DeleteKeyEx*> deleteKeyEx{nullptr};
std::atomic<bool> deleteKeyExLookedUp{false};

/// Looked up once a process, absent or not. Two threads may do it at the same time and find the
/// same, which needs no lock.
DeleteKeyEx* FindDeleteKeyEx() {
    if (!deleteKeyExLookedUp) {
        deleteKeyEx = Platform::LookUp<DeleteKeyEx>(kFunctionLibrary, "RegDeleteKeyExW");
        deleteKeyExLookedUp = true;
    }
    return deleteKeyEx;
}

/// Calls one of the transacted functions, if Windows has it.
template <class Function, class... Args>
LSTATUS CallTransacted(const char* name, Args... arguments) {
    auto* const function = Platform::LookUp<Function>(kFunctionLibrary, name);
    return function != nullptr ? function(arguments...) : ERROR_INVALID_FUNCTION;
}

/// Does an operation in whichever way the transaction asks for.
template <class Plain, class Transacted>
LSTATUS Do(const RegistryTransaction* transaction, Plain plain, Transacted transacted) {
    if (transaction != nullptr && transaction->handle != nullptr) {
        return transacted(transaction->handle);
    }
    return transaction == nullptr || transaction->plainWithoutHandle ? plain() : ERROR_INVALID_FUNCTION;
}

}  // namespace

LSTATUS RegistryKey::Open(HKEY parent, const wchar_t* subkey, REGSAM access) {
    Platform::UniqueRegistryKey opened;
    const LSTATUS result = Do(
        m_transaction, [&] { return RegOpenKeyExW(parent, subkey, 0, access, opened.Put()); },
        [&](HANDLE transaction) {
            return CallTransacted<decltype(RegOpenKeyTransactedW)>("RegOpenKeyTransactedW", parent, subkey,
                                                                   DWORD{0}, access, opened.Put(),
                                                                   transaction, nullptr);
        });
    return result == ERROR_SUCCESS ? Hold(std::move(opened), access) : result;
}

LSTATUS RegistryKey::Create(HKEY parent, const wchar_t* subkey, REGSAM access) {
    Platform::UniqueRegistryKey created;
    DWORD disposition = 0;
    const LSTATUS result = Do(
        m_transaction,
        [&] {
            return RegCreateKeyExW(parent, subkey, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                                   created.Put(), &disposition);
        },
        [&](HANDLE transaction) {
            return CallTransacted<decltype(RegCreateKeyTransactedW)>(
                "RegCreateKeyTransactedW", parent, subkey, DWORD{0}, nullptr, DWORD{REG_OPTION_NON_VOLATILE},
                access, nullptr, created.Put(), &disposition, transaction, nullptr);
        });
    return result == ERROR_SUCCESS ? Hold(std::move(created), access) : result;
}

LSTATUS RegistryKey::DeleteKey(HKEY parent, const wchar_t* subkey) {
    // Only the newer function knows views, and only a key without a transaction object uses it.
    if (m_transaction == nullptr) {
        if (DeleteKeyEx* const deleteKey = FindDeleteKeyEx()) {
            return deleteKey(parent, subkey, m_view, 0);
        }
    }
    return Do(
        m_transaction, [&] { return RegDeleteKeyW(parent, subkey); },
        [&](HANDLE transaction) {
            return CallTransacted<decltype(RegDeleteKeyTransactedW)>(
                "RegDeleteKeyTransactedW", parent, subkey, m_view, DWORD{0}, transaction, nullptr);
        });
}

LSTATUS RegistryKey::DeleteTree(const wchar_t* subkey) {
    // The child takes no part in this key's transaction, so it is opened, and its subkeys are
    // deleted, outside of it; only the deletion at the end goes through the transaction.
    RegistryKey child;
    LSTATUS result = child.Open(Get(), subkey, KEY_READ | KEY_WRITE | m_view);
    if (result == ERROR_SUCCESS) {
        result = child.DeleteSubkeys();
    }
    if (result != ERROR_SUCCESS) {
        return result;
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
        if (const LSTATUS deleted = DeleteTree(name); deleted != ERROR_SUCCESS) {
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
