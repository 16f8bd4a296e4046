#include <string>
#include <vector>

#include "registry/registry_key.h"
#include "tests/registry/registry_fixture.h"

namespace RegistryTests {
namespace {

/// Windows' plain functions stand here: a test sees that they are not called.
struct PlainFunctions {
    ScopedResult<&::RegOpenKeyExW> open{ERROR_CRC};
    ScopedResult<&::RegCreateKeyExW> create{ERROR_CRC};
    ScopedResult<&::RegDeleteKeyW> deleteKey{ERROR_CRC};
    ScopedProc<&::RegDeleteKeyExW> deleteKeyEx{[](auto...) -> LSTATUS { return ERROR_CRC; }};

    [[nodiscard]] int Calls() const {
        return open.Calls() + create.Calls() + deleteKey.Calls() + deleteKeyEx.Calls();
    }
};

/// A key in a transaction, which stays the test's to close.
class RegistryTransactionTest : public RegistryFixture {
  protected:
    ~RegistryTransactionTest() override { EXPECT_NE(CloseHandle(handle), FALSE); }

    /// Gives out a key past all that stands in for Windows.
    LSTATUS GiveKey(PHKEY given) {
        const LSTATUS result =
            Rig::Real<&::RegOpenKeyExW>(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_READ, given);
        ledger.Gave(Rig::Kind::kRegistryKey, *given);
        return result;
    }
    LSTATUS Open(REGSAM access = KEY_READ) { return key.Open(HKEY_LOCAL_MACHINE, L"Key", access); }
    LSTATUS Create(REGSAM access = KEY_READ) { return key.Create(HKEY_LOCAL_MACHINE, L"Key", access); }
    LSTATUS Delete() { return key.DeleteKey(HKEY_LOCAL_MACHINE, L"Key"); }
    void ExpectInvalid() {
        EXPECT_EQ(Open(), ERROR_INVALID_FUNCTION);
        EXPECT_EQ(Create(), ERROR_INVALID_FUNCTION);
        EXPECT_EQ(Delete(), ERROR_INVALID_FUNCTION);
    }

    HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    RegistryTransaction transaction{.handle = handle};
    RegistryKey key{&transaction};
};

TEST_F(RegistryTransactionTest, KeyIsCreatedOpenedAndDeletedInTheTransactionAndItsView) {
    const PlainFunctions plain;
    const ScopedProc<&::RegCreateKeyTransactedW> create{[&](HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                                                            const SECURITY_ATTRIBUTES*, PHKEY result,
                                                            auto...) -> LSTATUS { return GiveKey(result); }};
    const ScopedProc<&::RegOpenKeyTransactedW> open{
        [&](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY result, auto...) -> LSTATUS { return GiveKey(result); }};
    const ScopedProc<&::RegDeleteKeyTransactedW> deleteKey{
        [](auto...) -> LSTATUS { return ERROR_DIR_NOT_EMPTY; }};
    const ScopedWatch<&::RegCreateKeyTransactedW> creations;
    const ScopedWatch<&::RegOpenKeyTransactedW> opens;
    const ScopedWatch<&::RegDeleteKeyTransactedW> deletes;

    EXPECT_EQ(Create(KEY_READ | kView), ERROR_SUCCESS);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.View(), kView);
    EXPECT_EQ(Open(kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.View(), kView);
    EXPECT_EQ(Delete(), ERROR_DIR_NOT_EMPTY);

    const auto isTheKey = StrEq(L"Key");
    EXPECT_THAT(creations.Arguments(), ElementsAre(FieldsAre(HKEY_LOCAL_MACHINE, isTheKey, 0U, nullptr,
                                                             DWORD{REG_OPTION_NON_VOLATILE}, KEY_READ | kView,
                                                             nullptr, _, NotNull(), handle, nullptr)));
    EXPECT_THAT(opens.Arguments(), ElementsAre(FieldsAre(HKEY_LOCAL_MACHINE, isTheKey, 0U,
                                                         kReadAndWrite | kView, _, handle, nullptr)));
    EXPECT_THAT(deletes.Arguments(),
                ElementsAre(FieldsAre(HKEY_LOCAL_MACHINE, isTheKey, kView, 0U, handle, nullptr)));
    EXPECT_EQ(plain.Calls(), 0);
}

TEST_F(RegistryTransactionTest, ErrorOfTheTransactedOpeningIsTheResult) {
    const ScopedProc<&::RegOpenKeyTransactedW> open{
        [](auto...) -> LSTATUS { return ERROR_SHARING_VIOLATION; }};
    EXPECT_EQ(Open(), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(key.Get(), nullptr);
}

TEST_F(RegistryTransactionTest, MissingFunctionsFailWithoutFallingBack) {
    const ScopedProcAddress noOpen{"RegOpenKeyTransactedW", nullptr};
    const ScopedProcAddress noCreate{"RegCreateKeyTransactedW", nullptr};
    const ScopedProcAddress noDelete{"RegDeleteKeyTransactedW", nullptr};
    const PlainFunctions plain;
    transaction.plainWithoutHandle = true;
    ExpectInvalid();
    EXPECT_EQ(noOpen.Calls(), 1);
    EXPECT_EQ(noCreate.Calls(), 1);
    EXPECT_EQ(noDelete.Calls(), 1);
    EXPECT_EQ(plain.Calls(), 0);
}

TEST_F(RegistryTransactionTest, MissingLibraryFailsWithoutLookingForTheFunctions) {
    const ScopedImport<&::GetModuleHandleW> library{[](LPCWSTR name) -> HMODULE {
        EXPECT_STREQ(name, L"Advapi32.dll");
        return nullptr;
    }};
    const ScopedProcAddress open{"RegOpenKeyTransactedW", nullptr};
    ExpectInvalid();
    EXPECT_EQ(library.Calls(), 3);
    EXPECT_EQ(open.Calls(), 0);
}

TEST_F(RegistryTransactionTest, WithoutHandleAndFallbackEverythingFails) {
    transaction.handle = nullptr;
    const PlainFunctions plain;
    ExpectInvalid();
    EXPECT_EQ(plain.Calls(), 0);
}

TEST_F(RegistryTransactionTest, FallbackWithoutHandleUsesThePlainFunctions) {
    transaction = {.handle = nullptr, .plainWithoutHandle = true};
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, tree.Path(L"Key").c_str(), kReadAndWrite), ERROR_SUCCESS);
    EXPECT_TRUE(tree.Exists(L"Key"));
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteKey(key.Get(), L"Key"), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
    // Without a transaction object it would be the newer function, which knows views.
    EXPECT_THAT(deletions.Names(), IsEmpty());
}

TEST_F(RegistryTransactionTest, OnlyTheLastDeletionOfATreeGoesThroughTheTransaction) {
    tree.Create(L"Key\\a\\aa");
    const ScopedProc<&::RegOpenKeyTransactedW> open{
        [&](HKEY parent, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY result, auto...) -> LSTATUS {
            return RegOpenKeyExW(parent, subkey, options, access, result);
        }};
    std::vector<std::wstring> transacted;
    const ScopedProc<&::RegDeleteKeyTransactedW> deleteKey{[&](HKEY, LPCWSTR subkey, auto...) -> LSTATUS {
        transacted.emplace_back(subkey);
        return ERROR_SUCCESS;
    }};
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteTree(L"Key"), ERROR_SUCCESS);
    EXPECT_EQ(open.Calls(), 1);
    EXPECT_THAT(deletions.Names(), ElementsAre(L"aa", L"a"));
    EXPECT_THAT(transacted, ElementsAre(L"Key"));
    EXPECT_TRUE(tree.Exists(L"Key"));
}

}  // namespace
}  // namespace RegistryTests
