#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "registry/registry.h"
#include "registry/registry_key.h"
#include "tests/registry/registry_fixture.h"

namespace RegistryTests {
namespace {

constexpr std::size_t kLongestName = 255;

class RegistryDeletionTest : public RegistryFixture {
  protected:
    [[nodiscard]] LSTATUS Delete(const std::wstring& subkey = L"Key") const {
        return Registry(HKEY_LOCAL_MACHINE).DeleteSubkey(tree.Path(subkey));
    }
};

TEST_F(RegistryDeletionTest, TreeIsDeletedDeepestFirstWithItsValuesAndNoDeletionAsksForAView) {
    tree.Create(L"Key\\a\\aa\\aaa");
    tree.Create(L"Key\\b");
    tree.Write(L"Key", L"Value", Rig::RegistryText(L"True"));
    EXPECT_EQ(Delete(), ERROR_SUCCESS);
    EXPECT_THAT(deletions.Names(), ElementsAre(L"aaa", L"aa", L"a", L"b", tree.Path(L"Key")));
    EXPECT_THAT(deletions.Views(), Each(0U));
    EXPECT_FALSE(tree.Exists(L"Key"));
    EXPECT_TRUE(tree.Exists());
}

TEST_F(RegistryDeletionTest, KeyIsClosedBeforeItIsDeleted) {
    tree.Create(L"Key\\a\\aa");
    RegistryKey parent;
    ASSERT_EQ(parent.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    std::vector<std::pair<std::wstring, int>> keysOpen;
    const Rig::ScopedProc<&::RegDeleteKeyExW> watch{
        [&](HKEY key, LPCWSTR name, REGSAM view, DWORD reserved) -> LSTATUS {
            keysOpen.emplace_back(name, ledger.Outstanding(Rig::Kind::kRegistryKey));
            return watch.Original(key, name, view, reserved);
        }};
    EXPECT_EQ(parent.DeleteTree(L"Key"), ERROR_SUCCESS);
    // Only the keys above the deleted one.
    EXPECT_THAT(keysOpen, ElementsAre(Pair(L"aa", 3), Pair(L"a", 2), Pair(L"Key", 1)));
}

TEST_F(RegistryDeletionTest, WhatIsMissingCountsAsDeleted) {
    tree.Create(L"Key\\a");
    EXPECT_EQ(Delete(L"Missing"), ERROR_SUCCESS);
    EXPECT_EQ(Delete(L"No\\Such\\Key"), ERROR_SUCCESS);
    // Somebody else was quicker.
    deletions.Fail(L"a", ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Delete(), ERROR_SUCCESS);
}

TEST_F(RegistryDeletionTest, NamesOfEveryLengthThatWindowsAllowsAreDeleted) {
    tree.Create(L"Key\\" + std::wstring(kLongestName, L'x') + L"\\" + std::wstring(kLongestName, L'y'));
    tree.Create(L"Key\\z");
    EXPECT_EQ(Delete(), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
}

TEST_F(RegistryDeletionTest, LongerNameStopsTheEnumerationAndTheSystemsErrorIsTheResult) {
    tree.Create(L"Key\\Child\\Overlong");
    const ScopedImport<&::RegEnumKeyExW> enumerate{
        [&](HKEY key, DWORD index, LPWSTR name, auto... rest) -> LSTATUS {
            const LSTATUS result = enumerate.Original(key, index, name, rest...);
            return result == ERROR_SUCCESS && std::wcscmp(name, L"Overlong") == 0 ? ERROR_MORE_DATA : result;
        }};
    EXPECT_EQ(Delete(), ERROR_ACCESS_DENIED);
    EXPECT_THAT(deletions.Names(), ElementsAre(L"Child"));
    EXPECT_TRUE(tree.Exists(L"Key\\Child\\Overlong"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryDeletionTest, AnyEnumerationErrorIsTakenForTheEnd) {
    tree.Create(L"Key");
    const ScopedResult<&::RegEnumKeyExW> fails{ERROR_ACCESS_DENIED};
    EXPECT_EQ(Delete(), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
}

TEST_F(RegistryDeletionTest, EnumerationAsksForTheFirstSubkeyAndTheLongestNameEachTime) {
    tree.Create(L"Key\\a long name");
    tree.Create(L"Key\\b");
    std::vector<std::pair<DWORD, DWORD>> asked;
    const ScopedImport<&::RegEnumKeyExW> enumerate{
        [&](HKEY key, DWORD index, LPWSTR name, LPDWORD size, auto... rest) -> LSTATUS {
            asked.emplace_back(index, *size);
            return enumerate.Original(key, index, name, size, rest...);
        }};
    EXPECT_EQ(Delete(), ERROR_SUCCESS);
    // Two keys with nothing below, and three times the key itself.
    EXPECT_EQ(asked.size(), 5U);
    EXPECT_THAT(asked, Each(Pair(0U, kLongestName + 1)));
}

TEST_F(RegistryDeletionTest, FailureBelowEndsTheDeletionAndLeavesTheParents) {
    tree.Create(L"Key\\a\\aa");
    tree.Create(L"Key\\b");
    deletions.Fail(L"aa", ERROR_SHARING_VIOLATION);
    EXPECT_EQ(Delete(), ERROR_SHARING_VIOLATION);
    EXPECT_THAT(deletions.Names(), ElementsAre(L"aa"));
    EXPECT_TRUE(tree.Exists(L"Key\\a"));
    EXPECT_TRUE(tree.Exists(L"Key\\b"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryDeletionTest, KeyThatCannotBeOpenedEndsTheDeletion) {
    tree.Create(L"Key\\a");
    for (const wchar_t* const denied : {L"", L"a"}) {
        const ScopedImport<&::RegOpenKeyExW> open{
            [&](HKEY, LPCWSTR name, auto...) { return std::wcscmp(name, denied) == 0; },
            [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; }};
        EXPECT_EQ(Delete(), ERROR_ACCESS_DENIED);
        EXPECT_EQ(open.Calls(), 1);
        EXPECT_THAT(deletions.Names(), IsEmpty());
        EXPECT_TRUE(tree.Exists(L"Key\\a"));
        EXPECT_TRUE(ledger.Balanced());
    }
}

TEST_F(RegistryDeletionTest, EveryKeyIsOpenedForReadingAndWriting) {
    tree.Create(L"Key\\a");
    const ScopedWatch<&::RegOpenKeyExW> opens;
    EXPECT_EQ(Delete(), ERROR_SUCCESS);
    EXPECT_EQ(opens.Calls(), 3) << "the root, the key, and the one below";
    EXPECT_THAT(opens.Arguments(), Each(FieldsAre(_, _, 0U, kReadAndWrite, _)));
}

TEST_F(RegistryDeletionTest, ViewOfTheKeyIsHandedDownTheTree) {
    tree.Create(L"Key\\a");
    const ScopedWatch<&::RegOpenKeyExW> opens;
    RegistryKey parent;
    ASSERT_EQ(parent.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_EQ(parent.DeleteTree(L"Key"), ERROR_SUCCESS);
    EXPECT_THAT(opens.Arguments(), Each(FieldsAre(_, _, 0U, kReadAndWrite | kView, _)));
    EXPECT_THAT(deletions.Views(), ElementsAre(kView, kView));
}

TEST_F(RegistryDeletionTest, KeysAreClosedWhenAnExceptionPasses) {
    tree.Create(L"Key\\a\\aa");
    const ScopedImport<&::RegEnumKeyExW> enumerate{[&](auto... arguments) -> LSTATUS {
        return enumerate.Calls() < 3 ? enumerate.Original(arguments...) : throw DWORD{ERROR_OUTOFMEMORY};
    }};
    EXPECT_THROW(static_cast<void>(Delete()), DWORD);
    EXPECT_TRUE(ledger.Balanced());
}

}  // namespace
}  // namespace RegistryTests
