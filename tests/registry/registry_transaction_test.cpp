#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "registry/registry_key.h"
#include "tests/registry/delete_key_fake.h"
#include "tests/support/ledger.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace {

using RegistryTests::DeletionWatch;
using RegistryTests::KeepReplaceable;
using Rig::Ledger;
using Rig::ScopedImport;
using Rig::ScopedProc;
using Rig::ScopedProcAddress;
using Rig::ScopedRegistryTree;
using Rig::ScopedResult;
using testing::ElementsAre;
using testing::IsEmpty;

using OpenTransacted =
    ScopedProc<"RegOpenKeyTransactedW", LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY, HANDLE, PVOID)>;
using CreateTransacted =
    ScopedProc<"RegCreateKeyTransactedW", LSTATUS(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                                                  LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD, HANDLE, PVOID)>;
using DeleteTransacted =
    ScopedProc<"RegDeleteKeyTransactedW", LSTATUS(HKEY, LPCWSTR, REGSAM, DWORD, HANDLE, PVOID)>;

constexpr REGSAM kReadAndWrite = KEY_READ | KEY_WRITE;
constexpr REGSAM kView = KEY_WOW64_64KEY;

/// Windows' plain functions stand here: a test sees that they are not called.
struct PlainFunctions {
    ScopedResult<&::RegOpenKeyExW> open{ERROR_CRC};
    ScopedResult<&::RegCreateKeyExW> create{ERROR_CRC};
    ScopedResult<&::RegDeleteKeyW> deleteKey{ERROR_CRC};
    DeletionWatch deleteKeyEx;

    [[nodiscard]] int Calls() const {
        return open.Calls() + create.Calls() + deleteKey.Calls() +
               static_cast<int>(deleteKeyEx.Names().size());
    }
};

class RegistryTransactionTest : public testing::Test {
  protected:
    RegistryTransactionTest() { KeepReplaceable(); }

    ScopedRegistryTree tree{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Linkvane Transaction Test"};
    Ledger ledger;
    HANDLE handle = ledger.MakeHandle("transaction");
    RegistryTransaction transaction{.handle = handle, .plainWithoutHandle = false};
    RegistryKey key{&transaction};

    // The transaction is never the key's to close.
    ~RegistryTransactionTest() override { ledger.TookBack("transaction", handle); }
};

TEST_F(RegistryTransactionTest, KeyIsOpenedInTheTransaction) {
    const PlainFunctions plain;
    HKEY const opened = ledger.MakeHandle<HKEY>(Rig::Kind::kRegistryKey);
    const OpenTransacted open{[&](HKEY parent, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY result,
                                  HANDLE usedTransaction, PVOID reserved) -> LSTATUS {
        EXPECT_EQ(parent, HKEY_LOCAL_MACHINE);
        EXPECT_STREQ(subkey, L"Key");
        EXPECT_EQ(options, 0U);
        EXPECT_EQ(access, kReadAndWrite | kView);
        EXPECT_EQ(usedTransaction, handle);
        EXPECT_EQ(reserved, nullptr);
        *result = opened;
        return ERROR_SUCCESS;
    }};
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Key", kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_EQ(open.Calls(), 1);
    EXPECT_EQ(plain.Calls(), 0);
    EXPECT_EQ(key.Get(), opened);
    EXPECT_EQ(key.View(), kView);
}

TEST_F(RegistryTransactionTest, ErrorOfTheTransactedOpeningIsTheResult) {
    const OpenTransacted open{[](auto...) -> LSTATUS { return ERROR_SHARING_VIOLATION; }};
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(key.Get(), nullptr);
}

TEST_F(RegistryTransactionTest, KeyIsCreatedInTheTransaction) {
    const PlainFunctions plain;
    const CreateTransacted create{[&](HKEY parent, LPCWSTR subkey, DWORD reserved, LPWSTR keyClass,
                                      DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES security,
                                      PHKEY result, LPDWORD disposition, HANDLE usedTransaction,
                                      PVOID extended) -> LSTATUS {
        EXPECT_EQ(parent, HKEY_LOCAL_MACHINE);
        EXPECT_STREQ(subkey, L"Key");
        EXPECT_EQ(reserved, 0U);
        EXPECT_EQ(keyClass, nullptr);
        EXPECT_EQ(options, DWORD{REG_OPTION_NON_VOLATILE});
        EXPECT_EQ(access, kReadAndWrite | kView);
        EXPECT_EQ(security, nullptr);
        EXPECT_NE(disposition, nullptr);
        EXPECT_EQ(usedTransaction, handle);
        EXPECT_EQ(extended, nullptr);
        *result = ledger.MakeHandle<HKEY>(Rig::Kind::kRegistryKey);
        return ERROR_SUCCESS;
    }};
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Key", kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_EQ(create.Calls(), 1);
    EXPECT_EQ(plain.Calls(), 0);
    EXPECT_EQ(key.View(), kView);
}

TEST_F(RegistryTransactionTest, KeyIsDeletedInTheTransactionAndItsView) {
    const PlainFunctions plain;
    const OpenTransacted open{[&](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY result, auto...) -> LSTATUS {
        *result = ledger.MakeHandle<HKEY>(Rig::Kind::kRegistryKey);
        return ERROR_SUCCESS;
    }};
    const DeleteTransacted deleteKey{[&](HKEY parent, LPCWSTR subkey, REGSAM view, DWORD reserved,
                                         HANDLE usedTransaction, PVOID extended) -> LSTATUS {
        EXPECT_EQ(parent, HKEY_LOCAL_MACHINE);
        EXPECT_STREQ(subkey, L"Key");
        EXPECT_EQ(view, kView);
        EXPECT_EQ(reserved, 0U);
        EXPECT_EQ(usedTransaction, handle);
        EXPECT_EQ(extended, nullptr);
        return ERROR_DIR_NOT_EMPTY;
    }};
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Key", kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteKey(HKEY_LOCAL_MACHINE, L"Key"), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(deleteKey.Calls(), 1);
    EXPECT_EQ(plain.Calls(), 0);
}

TEST_F(RegistryTransactionTest, MissingFunctionsFailWithoutFallingBack) {
    const ScopedProcAddress noOpen{"RegOpenKeyTransactedW", nullptr};
    const ScopedProcAddress noCreate{"RegCreateKeyTransactedW", nullptr};
    const ScopedProcAddress noDelete{"RegDeleteKeyTransactedW", nullptr};
    const PlainFunctions plain;
    transaction.plainWithoutHandle = true;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(key.DeleteKey(HKEY_LOCAL_MACHINE, L"Key"), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(noOpen.Lookups(), 1);
    EXPECT_EQ(noCreate.Lookups(), 1);
    EXPECT_EQ(noDelete.Lookups(), 1);
    EXPECT_EQ(plain.Calls(), 0);
}

TEST_F(RegistryTransactionTest, MissingLibraryFailsWithoutLookingForTheFunctions) {
    const ScopedImport<&::GetModuleHandleW> library{[](LPCWSTR name) -> HMODULE {
        EXPECT_STREQ(name, L"Advapi32.dll");
        return nullptr;
    }};
    const ScopedProcAddress open{"RegOpenKeyTransactedW", nullptr};
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(key.DeleteKey(HKEY_LOCAL_MACHINE, L"Key"), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(library.Calls(), 3);
    EXPECT_EQ(open.Lookups(), 0);
}

TEST_F(RegistryTransactionTest, WithoutHandleAndFallbackEverythingFails) {
    transaction.handle = nullptr;
    const PlainFunctions plain;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Key", KEY_READ), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(key.DeleteKey(HKEY_LOCAL_MACHINE, L"Key"), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(plain.Calls(), 0);
}

TEST_F(RegistryTransactionTest, FallbackWithoutHandleUsesThePlainFunctions) {
    transaction = {.handle = nullptr, .plainWithoutHandle = true};
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, tree.Path(L"Key").c_str(), kReadAndWrite), ERROR_SUCCESS);
    EXPECT_TRUE(tree.Exists(L"Key"));
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    const DeletionWatch newer;
    EXPECT_EQ(key.DeleteKey(key.Get(), L"Key"), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
    // Without a transaction object it would be the newer function, which knows views.
    EXPECT_THAT(newer.Names(), IsEmpty());
}

TEST_F(RegistryTransactionTest, OnlyTheLastDeletionOfATreeGoesThroughTheTransaction) {
    tree.Create(L"Key\\a\\aa");
    RegistryKey root;
    ASSERT_EQ(root.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    const OpenTransacted open{[&](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY result, auto...) -> LSTATUS {
        return Rig::Real<&::RegOpenKeyExW>(HKEY_LOCAL_MACHINE, tree.Path().c_str(), DWORD{0}, kReadAndWrite,
                                           result);
    }};
    std::vector<std::wstring> transacted;
    const DeleteTransacted deleteKey{
        [&](HKEY, LPCWSTR subkey, REGSAM, DWORD, HANDLE usedTransaction, PVOID) -> LSTATUS {
            EXPECT_EQ(usedTransaction, handle);
            transacted.emplace_back(subkey);
            return ERROR_SUCCESS;
        }};
    const DeletionWatch plain;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteTree(L"Key"), ERROR_SUCCESS);
    EXPECT_EQ(open.Calls(), 1);
    EXPECT_THAT(plain.Names(), ElementsAre(L"aa", L"a"));
    EXPECT_THAT(transacted, ElementsAre(L"Key"));
    EXPECT_TRUE(tree.Exists(L"Key"));
}

}  // namespace
