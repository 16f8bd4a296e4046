#include "registry/registry_key.h"

#include <cstdlib>
#include <cwchar>
#include <string>

#include "tests/registry/registry_fixture.h"

namespace RegistryTests {
namespace {

class RegistryKeyTest : public RegistryFixture {
  protected:
    RegistryKeyTest() {
        tree.Create(L"First");
        tree.Create(L"Second");
    }

    LSTATUS Open(const wchar_t* subkey, REGSAM access = KEY_READ) {
        return key.Open(HKEY_LOCAL_MACHINE, tree.Path(subkey).c_str(), access);
    }
    LSTATUS Create(const wchar_t* subkey, REGSAM access = KEY_READ) {
        return key.Create(HKEY_LOCAL_MACHINE, tree.Path(subkey).c_str(), access);
    }
    void ExpectEmpty() const {
        EXPECT_EQ(key.Get(), nullptr);
        EXPECT_EQ(key.View(), 0U);
    }

    RegistryKey key;
};

TEST_F(RegistryKeyTest, IsEmptyAtFirstAndWhenItWasClosed) {
    ExpectEmpty();
    EXPECT_EQ(Open(L"First", KEY_READ | kView), ERROR_SUCCESS);
    EXPECT_EQ(key.Close(), ERROR_SUCCESS);
    ExpectEmpty();
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryKeyTest, KeepsTheViewBitsOfTheAccessAndNoOther) {
    EXPECT_EQ(Open(L"First", kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.View(), kView);
    EXPECT_EQ(Create(L"New", KEY_READ | kView), ERROR_SUCCESS);
    EXPECT_TRUE(tree.Exists(L"New"));
    EXPECT_EQ(key.View(), kView);
    constexpr REGSAM kEveryView = KEY_WOW64_32KEY | KEY_WOW64_64KEY;
    const ScopedImport<&::RegOpenKeyExW> open{
        [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) -> LSTATUS {
            EXPECT_EQ(access, KEY_READ | kEveryView);
            return open.Original(root, path, options, KEY_READ, opened);
        }};
    EXPECT_EQ(Open(L"First", KEY_READ | kEveryView), ERROR_SUCCESS);
    EXPECT_EQ(key.View(), kEveryView);
}

TEST_F(RegistryKeyTest, FailureLeavesTheKeyHeldBefore) {
    EXPECT_EQ(Open(L"First", KEY_READ | kView), ERROR_SUCCESS);
    HKEY const before = key.Get();
    EXPECT_EQ(Open(L"Missing"), ERROR_FILE_NOT_FOUND);
    const ScopedResult<&::RegCreateKeyExW> create{ERROR_ACCESS_DENIED};
    EXPECT_EQ(Create(L"New"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(key.Get(), before);
    EXPECT_EQ(key.View(), kView);
}

TEST_F(RegistryKeyTest, FormerKeyIsClosedBeforeTheNewOneIsHeld) {
    EXPECT_EQ(Open(L"First"), ERROR_SUCCESS);
    HKEY former = nullptr;
    const ScopedImport<&::RegCloseKey> close{[&](HKEY closed) -> LSTATUS {
        EXPECT_EQ(closed, former);
        EXPECT_TRUE(key.Get() == former || key.Get() == nullptr);
        return close.Original(closed);
    }};
    former = key.Get();
    EXPECT_EQ(Create(L"New"), ERROR_SUCCESS);
    EXPECT_EQ(close.Calls(), 1);
    former = key.Get();
    EXPECT_EQ(Open(L"Second"), ERROR_SUCCESS);
    EXPECT_EQ(close.Calls(), 2);
}

/// Keys can be closed, which is told as a failure.
class RegistryKeyThatFailsToClose : public RegistryKeyTest {
  protected:
    ScopedImport<&::RegCloseKey> close{[this](HKEY closed) -> LSTATUS {
        close.Original(closed);
        return ERROR_INVALID_HANDLE;
    }};
};

TEST_F(RegistryKeyThatFailsToClose, OpeningAndCreatingTellItAndHoldTheNewKey) {
    EXPECT_EQ(Open(L"First"), ERROR_SUCCESS);
    HKEY const former = key.Get();
    EXPECT_EQ(Create(L"Second", KEY_READ | kView), ERROR_INVALID_HANDLE);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_NE(key.Get(), former);
    EXPECT_EQ(key.View(), kView);
    EXPECT_EQ(Open(L"First"), ERROR_INVALID_HANDLE);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.View(), 0U);
}

TEST_F(RegistryKeyThatFailsToClose, ClosingTellsItOnceAndForgetsTheKey) {
    EXPECT_EQ(Open(L"First"), ERROR_SUCCESS);
    EXPECT_EQ(key.Close(), ERROR_INVALID_HANDLE);
    ExpectEmpty();
    EXPECT_EQ(key.Close(), ERROR_SUCCESS);
    EXPECT_EQ(close.Calls(), 1);
}

TEST_F(RegistryKeyTest, DeletionGoesThroughTheViewOfTheKey) {
    EXPECT_EQ(Open(L"", kReadAndWrite | kView), ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteKey(key.Get(), L"First"), ERROR_SUCCESS);
    EXPECT_THAT(deletions.Views(), ElementsAre(kView));
    EXPECT_FALSE(tree.Exists(L"First"));
}

TEST_F(RegistryKeyTest, DeletionFunctionIsLookedUpOnceAProcess) {
    static_cast<void>(key.DeleteKey(HKEY_LOCAL_MACHINE, tree.Path(L"First").c_str()));
    const ScopedProcAddress counted{"RegDeleteKeyExW", nullptr};
    EXPECT_EQ(key.DeleteKey(HKEY_LOCAL_MACHINE, tree.Path(L"Second").c_str()), ERROR_SUCCESS);
    EXPECT_EQ(counted.Calls(), 0);
    EXPECT_THAT(deletions.Names(), ElementsAre(tree.Path(L"First"), tree.Path(L"Second")));
}

/// In a process of its own, in which nothing was looked up before: whether deletion, done twice,
/// goes through the older function and looks for the newer one no more than `lookups` times.
[[noreturn]] void DeleteTwiceWithoutTheNewerFunction(int lookups) {
    const ScopedProcAddress hidden{"RegDeleteKeyExW", nullptr};
    const ScopedResult<&::RegDeleteKeyW> older{ERROR_CRC};
    RegistryKey key;
    const bool failed = key.DeleteKey(HKEY_LOCAL_MACHINE, L"x") == ERROR_CRC &&
                        key.DeleteKey(HKEY_LOCAL_MACHINE, L"x") == ERROR_CRC;
    std::exit(failed && older.Calls() == 2 && hidden.Calls() == lookups ? 0 : 1);
}

TEST(RegistryKeyDeathTest, AbsenceOfTheDeletionFunctionIsRemembered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(DeleteTwiceWithoutTheNewerFunction(1), testing::ExitedWithCode(0), "");
}

TEST(RegistryKeyDeathTest, AbsenceOfTheLibraryIsRemembered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const ScopedImport<&::GetModuleHandleW> noLibrary(
                [](LPCWSTR name) { return name != nullptr && std::wcscmp(name, L"Advapi32.dll") == 0; },
                [](LPCWSTR) -> HMODULE { return nullptr; });
            DeleteTwiceWithoutTheNewerFunction(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace RegistryTests
