#include <gmock/gmock.h>

#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "registry/registry.h"
#include "registry/registry_key.h"
#include "tests/registry/delete_key_fake.h"
#include "tests/support/ledger.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace {

using RegistryTests::DeleteKeyExFake;
using RegistryTests::DeletionWatch;
using RegistryTests::KeepReplaceable;
using RegistryTests::RealDeleteKeyEx;
using Rig::Ledger;
using Rig::RegistryText;
using Rig::ScopedImport;
using Rig::ScopedRegistryTree;
using Rig::ScopedResult;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr REGSAM kReadAndWrite = 0x2001F;
constexpr std::size_t kLongestName = 255;

class RegistryDeletionTest : public testing::Test {
  protected:
    RegistryDeletionTest() { KeepReplaceable(); }

    [[nodiscard]] LSTATUS Delete(const std::wstring& subkey) const {
        return Registry(HKEY_LOCAL_MACHINE).DeleteSubkey(tree.Path(subkey));
    }

    ScopedRegistryTree tree{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Linkvane Deletion Test"};
    Ledger ledger;
};

TEST_F(RegistryDeletionTest, KeyIsDeletedWithItsValues) {
    tree.Write(L"Key", L"Value", RegistryText(L"True"));
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
    EXPECT_TRUE(tree.Exists());
}

TEST_F(RegistryDeletionTest, TreeIsDeletedDeepestFirst) {
    tree.Create(L"Key\\a\\aa\\aaa");
    tree.Create(L"Key\\b");
    const DeletionWatch watch;
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    EXPECT_THAT(watch.Names(), ElementsAre(L"aaa", L"aa", L"a", L"b", tree.Path(L"Key")));
    EXPECT_FALSE(tree.Exists(L"Key"));
}

TEST_F(RegistryDeletionTest, KeyIsClosedBeforeItIsDeleted) {
    tree.Create(L"Key\\a\\aa");
    RegistryKey parent;
    ASSERT_EQ(parent.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite), ERROR_SUCCESS);
    std::vector<std::pair<std::wstring, int>> keysOpen;
    const DeleteKeyExFake fake{[&](HKEY key, LPCWSTR name, REGSAM view, DWORD reserved) {
        keysOpen.emplace_back(name, ledger.Outstanding(Rig::Kind::kRegistryKey));
        return RealDeleteKeyEx(key, name, view, reserved);
    }};
    EXPECT_EQ(parent.DeleteTree(L"Key"), ERROR_SUCCESS);
    // Only the keys above the deleted one.
    using Open = std::pair<std::wstring, int>;
    EXPECT_THAT(keysOpen, ElementsAre(Open(L"aa", 3), Open(L"a", 2), Open(L"Key", 1)));
}

TEST_F(RegistryDeletionTest, MissingKeyCountsAsDeleted) {
    tree.Create();
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
}

TEST_F(RegistryDeletionTest, KeyUnderAMissingKeyCountsAsDeleted) {
    EXPECT_EQ(Delete(L"No\\Such\\Key"), ERROR_SUCCESS);
}

TEST_F(RegistryDeletionTest, KeyThatDisappearsWhileItIsDeletedCountsAsDeleted) {
    tree.Create(L"Key\\a");
    DeletionWatch watch;
    watch.Fail(L"a", ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
}

TEST_F(RegistryDeletionTest, NamesOfEveryLengthThatWindowsAllowsAreDeleted) {
    tree.Create(L"Key\\" + std::wstring(kLongestName, L'x') + L"\\" + std::wstring(kLongestName, L'y'));
    tree.Create(L"Key\\z");
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
}

TEST_F(RegistryDeletionTest, LongerNameStopsTheEnumerationAndTheSystemsErrorIsTheResult) {
    tree.Create(L"Key\\Child\\Overlong");
    const ScopedImport<&::RegEnumKeyExW> enumerate{[&](HKEY key, DWORD index, LPWSTR name, LPDWORD size,
                                                       LPDWORD reserved, LPWSTR keyClass, LPDWORD classSize,
                                                       PFILETIME time) -> LSTATUS {
        const LSTATUS result =
            enumerate.Original(key, index, name, size, reserved, keyClass, classSize, time);
        return result == ERROR_SUCCESS && std::wcscmp(name, L"Overlong") == 0 ? ERROR_MORE_DATA : result;
    }};
    const DeletionWatch watch;
    EXPECT_EQ(Delete(L"Key"), ERROR_ACCESS_DENIED);
    EXPECT_THAT(watch.Names(), ElementsAre(L"Child"));
    EXPECT_TRUE(tree.Exists(L"Key\\Child\\Overlong"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryDeletionTest, AnyEnumerationErrorIsTakenForTheEnd) {
    tree.Create(L"Key");
    const ScopedResult<&::RegEnumKeyExW> fails{ERROR_ACCESS_DENIED};
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    EXPECT_FALSE(tree.Exists(L"Key"));
}

TEST_F(RegistryDeletionTest, EnumerationAsksForTheFirstSubkeyAndTheLongestNameEachTime) {
    tree.Create(L"Key\\a long name");
    tree.Create(L"Key\\b");
    std::vector<std::pair<DWORD, DWORD>> asked;
    const ScopedImport<&::RegEnumKeyExW> enumerate{[&](HKEY key, DWORD index, LPWSTR name, LPDWORD size,
                                                       LPDWORD reserved, LPWSTR keyClass, LPDWORD classSize,
                                                       PFILETIME time) -> LSTATUS {
        asked.emplace_back(index, *size);
        return enumerate.Original(key, index, name, size, reserved, keyClass, classSize, time);
    }};
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    // Two keys with nothing below, and three times the key itself.
    EXPECT_EQ(asked.size(), 5U);
    EXPECT_THAT(asked, Each(std::pair<DWORD, DWORD>(0, kLongestName + 1)));
}

TEST_F(RegistryDeletionTest, FailureBelowEndsTheDeletionAndLeavesTheParents) {
    tree.Create(L"Key\\a\\aa");
    tree.Create(L"Key\\b");
    DeletionWatch watch;
    watch.Fail(L"aa", ERROR_SHARING_VIOLATION);
    EXPECT_EQ(Delete(L"Key"), ERROR_SHARING_VIOLATION);
    EXPECT_THAT(watch.Names(), ElementsAre(L"aa"));
    EXPECT_TRUE(tree.Exists(L"Key\\a"));
    EXPECT_TRUE(tree.Exists(L"Key\\b"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryDeletionTest, SubkeyThatCannotBeOpenedEndsTheDeletion) {
    tree.Create(L"Key\\a");
    const ScopedImport<&::RegOpenKeyExW> open{
        [](HKEY, LPCWSTR name, auto...) { return std::wcscmp(name, L"a") == 0; },
        [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; }};
    const DeletionWatch watch;
    EXPECT_EQ(Delete(L"Key"), ERROR_ACCESS_DENIED);
    EXPECT_THAT(watch.Names(), IsEmpty());
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryDeletionTest, RootThatCannotBeOpenedIsTheResult) {
    tree.Create(L"Key");
    const ScopedResult<&::RegOpenKeyExW> open{ERROR_ACCESS_DENIED};
    EXPECT_EQ(Delete(L"Key"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(open.Calls(), 1);
    EXPECT_TRUE(tree.Exists(L"Key"));
}

TEST_F(RegistryDeletionTest, EveryKeyIsOpenedForReadingAndWriting) {
    tree.Create(L"Key\\a");
    std::vector<std::pair<std::wstring, REGSAM>> opened;
    const ScopedImport<&::RegOpenKeyExW> open{
        [&](HKEY key, LPCWSTR name, DWORD options, REGSAM access, PHKEY result) -> LSTATUS {
            opened.emplace_back(name, access);
            return open.Original(key, name, options, access, result);
        }};
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    using Opened = std::pair<std::wstring, REGSAM>;
    EXPECT_THAT(opened, ElementsAre(Opened(L"", kReadAndWrite), Opened(tree.Path(L"Key"), kReadAndWrite),
                                    Opened(L"a", kReadAndWrite)));
}

TEST_F(RegistryDeletionTest, NoDeletionAsksForAView) {
    tree.Create(L"Key\\a");
    const DeletionWatch watch;
    EXPECT_EQ(Delete(L"Key"), ERROR_SUCCESS);
    EXPECT_THAT(watch.Views(), ElementsAre(0U, 0U));
}

TEST_F(RegistryDeletionTest, ViewOfTheKeyIsHandedDownTheTree) {
    tree.Create(L"Key\\a");
    std::vector<REGSAM> opened;
    const ScopedImport<&::RegOpenKeyExW> open{
        [&](HKEY key, LPCWSTR name, DWORD options, REGSAM access, PHKEY result) -> LSTATUS {
            opened.push_back(access);
            return open.Original(key, name, options, access, result);
        }};
    const DeletionWatch watch;
    {
        RegistryKey parent;
        ASSERT_EQ(parent.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), kReadAndWrite | KEY_WOW64_64KEY),
                  ERROR_SUCCESS);
        EXPECT_EQ(parent.DeleteTree(L"Key"), ERROR_SUCCESS);
    }
    EXPECT_THAT(opened, Each(kReadAndWrite | KEY_WOW64_64KEY));
    EXPECT_THAT(watch.Views(), ElementsAre(REGSAM{KEY_WOW64_64KEY}, REGSAM{KEY_WOW64_64KEY}));
}

TEST_F(RegistryDeletionTest, KeysAreClosedWhenAnExceptionPasses) {
    tree.Create(L"Key\\a\\aa");
    const ScopedImport<&::RegEnumKeyExW> enumerate{
        [&, calls = 0](HKEY key, DWORD index, LPWSTR name, LPDWORD size, LPDWORD reserved, LPWSTR keyClass,
                       LPDWORD classSize, PFILETIME time) mutable -> LSTATUS {
            if (++calls == 3) {
                throw DWORD{ERROR_OUTOFMEMORY};
            }
            return enumerate.Original(key, index, name, size, reserved, keyClass, classSize, time);
        }};
    EXPECT_THROW(static_cast<void>(Delete(L"Key")), DWORD);
    EXPECT_TRUE(ledger.Balanced());
}

}  // namespace
