#include "registry/registry_key.h"

#include <gmock/gmock.h>

#include <cwchar>
#include <string>
#include <vector>

#include "tests/registry/delete_key_fake.h"
#include "tests/support/ledger.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace {

using RegistryTests::DeletionWatch;
using RegistryTests::KeepReplaceable;
using Rig::Ledger;
using Rig::ScopedImport;
using Rig::ScopedProcAddress;
using Rig::ScopedRegistryTree;
using Rig::ScopedResult;
using testing::ElementsAre;

constexpr REGSAM kEveryView = KEY_WOW64_32KEY | KEY_WOW64_64KEY;

class RegistryKeyTest : public testing::Test {
  protected:
    RegistryKeyTest() {
        KeepReplaceable();
        tree.Create(L"First");
        tree.Create(L"Second");
    }

    LSTATUS OpenFirst(REGSAM access = KEY_READ) {
        return key.Open(HKEY_LOCAL_MACHINE, tree.Path(L"First").c_str(), access);
    }
    LSTATUS OpenSecond(REGSAM access = KEY_READ) {
        return key.Open(HKEY_LOCAL_MACHINE, tree.Path(L"Second").c_str(), access);
    }

    ScopedRegistryTree tree{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Linkvane Key Test"};
    Ledger ledger;
    RegistryKey key;
};

TEST_F(RegistryKeyTest, IsEmptyAtFirst) {
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.View(), 0U);
}

TEST_F(RegistryKeyTest, OpeningKeepsTheViewBitsOfTheAccessAndNoOther) {
    EXPECT_EQ(OpenFirst(KEY_READ | KEY_WRITE | KEY_WOW64_64KEY), ERROR_SUCCESS);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.View(), REGSAM{KEY_WOW64_64KEY});
}

TEST_F(RegistryKeyTest, BothViewBitsAreKept) {
    const ScopedImport<&::RegOpenKeyExW> open{
        [&](HKEY, LPCWSTR, DWORD, REGSAM access, PHKEY opened) -> LSTATUS {
            EXPECT_EQ(access, KEY_READ | kEveryView);
            *opened = ledger.MakeHandle<HKEY>(Rig::Kind::kRegistryKey);
            return ERROR_SUCCESS;
        }};
    EXPECT_EQ(OpenFirst(KEY_READ | kEveryView), ERROR_SUCCESS);
    EXPECT_EQ(key.View(), kEveryView);
}

TEST_F(RegistryKeyTest, OpeningAnotherKeyClosesTheFirstAndForgetsItsView) {
    EXPECT_EQ(OpenFirst(KEY_READ | KEY_WOW64_64KEY), ERROR_SUCCESS);
    EXPECT_EQ(OpenSecond(), ERROR_SUCCESS);
    EXPECT_EQ(key.View(), 0U);
    EXPECT_EQ(ledger.Outstanding(Rig::Kind::kRegistryKey), 1);
}

TEST_F(RegistryKeyTest, FailedOpeningLeavesTheKeyHeldBefore) {
    EXPECT_EQ(OpenFirst(KEY_READ | KEY_WOW64_64KEY), ERROR_SUCCESS);
    HKEY const before = key.Get();
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, tree.Path(L"Missing").c_str(), KEY_READ), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key.Get(), before);
    EXPECT_EQ(key.View(), REGSAM{KEY_WOW64_64KEY});
}

TEST_F(RegistryKeyTest, FailedCreationLeavesTheKeyHeldBefore) {
    EXPECT_EQ(OpenFirst(KEY_READ | KEY_WOW64_64KEY), ERROR_SUCCESS);
    HKEY const before = key.Get();
    const ScopedResult<&::RegCreateKeyExW> create{ERROR_ACCESS_DENIED};
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, tree.Path(L"New").c_str(), KEY_READ), ERROR_ACCESS_DENIED);
    EXPECT_EQ(key.Get(), before);
    EXPECT_EQ(key.View(), REGSAM{KEY_WOW64_64KEY});
}

/// What became of the key held before, in the order of the calls, and whether the object still had
/// it or nothing when it was closed: never the new one.
class Replacement {
  public:
    explicit Replacement(const RegistryKey& key) : m_key(key), m_former(key.Get()) {}

    std::vector<std::string> calls;

  private:
    const RegistryKey& m_key;
    HKEY const m_former;
    ScopedImport<&::RegOpenKeyExW> m_open{[this](auto... arguments) -> LSTATUS {
        calls.emplace_back("open");
        return m_open.Original(arguments...);
    }};
    ScopedImport<&::RegCreateKeyExW> m_create{[this](auto... arguments) -> LSTATUS {
        calls.emplace_back("create");
        return m_create.Original(arguments...);
    }};
    ScopedImport<&::RegCloseKey> m_close{[this](HKEY closed) -> LSTATUS {
        const bool isNewHeld = m_key.Get() != m_former && m_key.Get() != nullptr;
        calls.push_back(closed == m_former && !isNewHeld ? "close the former" : "close another");
        return m_close.Original(closed);
    }};
};

TEST_F(RegistryKeyTest, FormerKeyIsClosedAfterTheCreationAndBeforeTheNewOneIsHeld) {
    EXPECT_EQ(OpenFirst(), ERROR_SUCCESS);
    const Replacement replacement(key);
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, tree.Path(L"New").c_str(), KEY_READ), ERROR_SUCCESS);
    EXPECT_THAT(replacement.calls, ElementsAre("create", "close the former"));
}

TEST_F(RegistryKeyTest, FormerKeyIsClosedAfterTheOpeningAndBeforeTheNewOneIsHeld) {
    EXPECT_EQ(OpenFirst(), ERROR_SUCCESS);
    const Replacement replacement(key);
    EXPECT_EQ(OpenSecond(), ERROR_SUCCESS);
    EXPECT_THAT(replacement.calls, ElementsAre("open", "close the former"));
}

TEST_F(RegistryKeyTest, CreatingMakesTheKeyAndKeepsItsView) {
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, tree.Path(L"New").c_str(), KEY_READ | KEY_WOW64_64KEY),
              ERROR_SUCCESS);
    EXPECT_TRUE(tree.Exists(L"New"));
    EXPECT_EQ(key.View(), REGSAM{KEY_WOW64_64KEY});
}

TEST_F(RegistryKeyTest, CreatingTellsHowClosingTheFormerKeyWentAndHoldsTheNewOne) {
    EXPECT_EQ(OpenFirst(), ERROR_SUCCESS);
    HKEY const former = key.Get();
    {
        const ScopedImport<&::RegCloseKey> close{[&](HKEY closed) -> LSTATUS {
            close.Original(closed);
            return ERROR_INVALID_HANDLE;
        }};
        EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, tree.Path(L"Second").c_str(), KEY_READ | KEY_WOW64_64KEY),
                  ERROR_INVALID_HANDLE);
    }
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_NE(key.Get(), former);
    EXPECT_EQ(key.View(), REGSAM{KEY_WOW64_64KEY});
}

TEST_F(RegistryKeyTest, OpeningTellsHowClosingTheFormerKeyWentAndHoldsTheNewOne) {
    EXPECT_EQ(OpenFirst(), ERROR_SUCCESS);
    {
        const ScopedImport<&::RegCloseKey> close{[&](HKEY closed) -> LSTATUS {
            close.Original(closed);
            return ERROR_INVALID_HANDLE;
        }};
        EXPECT_EQ(OpenSecond(), ERROR_INVALID_HANDLE);
    }
    EXPECT_NE(key.Get(), nullptr);
}

TEST_F(RegistryKeyTest, ClosingForgetsKeyAndView) {
    EXPECT_EQ(OpenFirst(KEY_READ | KEY_WOW64_64KEY), ERROR_SUCCESS);
    EXPECT_EQ(key.Close(), ERROR_SUCCESS);
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.View(), 0U);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryKeyTest, ClosingForgetsAKeyThatCannotBeClosed) {
    EXPECT_EQ(OpenFirst(), ERROR_SUCCESS);
    const ScopedImport<&::RegCloseKey> close{[&](HKEY closed) -> LSTATUS {
        close.Original(closed);
        return ERROR_INVALID_HANDLE;
    }};
    EXPECT_EQ(key.Close(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.Close(), ERROR_SUCCESS);
    EXPECT_EQ(close.Calls(), 1);
}

TEST_F(RegistryKeyTest, DeletionGoesThroughTheViewOfTheKey) {
    DeletionWatch watch;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, tree.Path().c_str(), KEY_READ | KEY_WRITE | KEY_WOW64_64KEY),
              ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteKey(key.Get(), L"First"), ERROR_SUCCESS);
    EXPECT_THAT(watch.Views(), ElementsAre(REGSAM{KEY_WOW64_64KEY}));
    EXPECT_FALSE(tree.Exists(L"First"));
}

TEST_F(RegistryKeyTest, DeletionFunctionIsLookedUpOnceAProcess) {
    const DeletionWatch watch;
    static_cast<void>(key.DeleteKey(HKEY_LOCAL_MACHINE, tree.Path(L"First").c_str()));
    const ScopedProcAddress counted{"RegDeleteKeyExW", nullptr};
    EXPECT_EQ(key.DeleteKey(HKEY_LOCAL_MACHINE, tree.Path(L"Second").c_str()), ERROR_SUCCESS);
    EXPECT_EQ(counted.Lookups(), 0);
    EXPECT_THAT(watch.Names(), ElementsAre(tree.Path(L"First"), tree.Path(L"Second")));
}

/// In a process of its own, in which nothing was looked up before: whether deletion, done twice,
/// goes through the older function and looks for the newer one no more than `lookups` times.
[[noreturn]] void DeleteTwiceWithoutTheNewerFunction(int lookups) {
    const ScopedProcAddress hidden{"RegDeleteKeyExW", nullptr};
    const ScopedResult<&::RegDeleteKeyW> older{ERROR_CRC};
    RegistryKey key;
    const bool failed = key.DeleteKey(HKEY_LOCAL_MACHINE, L"x") == ERROR_CRC &&
                        key.DeleteKey(HKEY_LOCAL_MACHINE, L"x") == ERROR_CRC;
    ExitProcess(failed && older.Calls() == 2 && hidden.Lookups() == lookups ? 0 : 1);
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
