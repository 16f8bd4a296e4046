#include "logging/policy.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "logging/level.h"
#include "logging/listener.h"
#include "tests/logging/policy_keys.h"
#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using namespace Orva::Shared;
using Rig::RegistryBytes;
using Rig::RegistryNumber;
using Rig::RegistryText;
using Rig::RegistryValue;
using Rig::ScopedImport;
using Rig::ScopedResult;
using testing::ElementsAre;

/// The executable's path as Windows tells it, for a scope.
class ScopedModulePath {
  public:
    explicit ScopedModulePath(std::wstring path)
        : m_path(std::move(path)), m_name([this](HMODULE module, LPWSTR buffer, DWORD characters) {
              EXPECT_EQ(module, nullptr);
              m_sizes.push_back(characters);
              std::wcsncpy(buffer, m_path.c_str(), characters);
              return static_cast<DWORD>(std::min<std::size_t>(m_path.size(), characters));
          }) {}

    [[nodiscard]] const std::vector<DWORD>& Sizes() const { return m_sizes; }

  private:
    std::wstring m_path;
    std::vector<DWORD> m_sizes;
    ScopedImport<&::GetModuleFileNameW> m_name;
};

/// The version resource that every file has, for a scope: texts by their block.
class ScopedVersion {
  public:
    struct Text {
        std::wstring block;
        std::wstring text;
        UINT characters;
    };

    explicit ScopedVersion(std::vector<Text> texts) : m_texts(std::move(texts)) {}

    std::vector<std::wstring> asked;

  private:
    BOOL Query(LPCWSTR name, void** text, UINT* characters) {
        asked.emplace_back(name);
        for (Text& one : m_texts) {
            if (L"\\StringFileInfo\\" + one.block + L"\\ProductName" == name) {
                *text = one.text.data();
                *characters = one.characters;
                return TRUE;
            }
        }
        return FALSE;
    }

    std::vector<Text> m_texts;
    ScopedResult<&::GetFileVersionInfoSizeW> m_size{64};
    ScopedResult<&::GetFileVersionInfoW> m_info{TRUE};
    ScopedImport<&::VerQueryValueW> m_query{[this](LPCVOID, LPCWSTR name, void** text, UINT* characters) {
        return Query(name, text, characters);
    }};
};

std::wstring OwnPath() {
    std::array<wchar_t, MAX_PATH> path{};
    Rig::Real<&::GetModuleFileNameW>(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return path.data();
}

TEST(ProductName, ComesFromTheExecutablesVersionResource) {
    EXPECT_EQ(GetProductName(OwnPath().c_str()), L"Orva Brimlet Support");
}

TEST(ProductName, IsEmptyWithoutAVersionResource) {
    EXPECT_EQ(GetProductName(L"C:\\no\\such\\file.exe"), L"");
    EXPECT_EQ(GetProductName(L""), L"");
}

TEST(ProductName, IsEmptyWhenTheResourceCannotBeRead) {
    const ScopedResult<&::GetFileVersionInfoW> fails{FALSE, ERROR_ACCESS_DENIED};
    EXPECT_EQ(GetProductName(OwnPath().c_str()), L"");
    EXPECT_EQ(fails.Calls(), 1);
}

TEST(ProductName, IsAskedForInTheWindowsCodePageFirst) {
    ScopedVersion version({{L"040904E4", L"First", 6}, {L"040904B0", L"Second", 7}});
    EXPECT_EQ(GetProductName(L"x.exe"), L"First");
    EXPECT_THAT(version.asked, ElementsAre(L"\\StringFileInfo\\040904E4\\ProductName"));
}

TEST(ProductName, IsAskedForInUnicodeWhenTheFirstIsMissing) {
    ScopedVersion version({{L"040904B0", L"Second", 7}});
    EXPECT_EQ(GetProductName(L"x.exe"), L"Second");
    EXPECT_THAT(version.asked, ElementsAre(L"\\StringFileInfo\\040904E4\\ProductName",
                                           L"\\StringFileInfo\\040904B0\\ProductName"));
}

TEST(ProductName, IsAskedForInUnicodeWhenTheFirstHasNoLength) {
    const ScopedVersion version({{L"040904E4", L"First", 0}, {L"040904B0", L"Second", 7}});
    EXPECT_EQ(GetProductName(L"x.exe"), L"Second");
}

TEST(ProductName, IsEmptyWhenNeitherHasALength) {
    const ScopedVersion version({{L"040904E4", L"First", 0}, {L"040904B0", L"Second", 0}});
    EXPECT_EQ(GetProductName(L"x.exe"), L"");
}

TEST(ProductName, HasTheLengthThatIsReturned) {
    const ScopedVersion version({{L"040904B0", L"Second and more", 6}});
    EXPECT_EQ(GetProductName(L"x.exe"), L"Second");
}

struct ModuleCase {
    const wchar_t* path;
    const wchar_t* baseName;
};

TEST(ModuleNames, KeepThePathAndCutTheBaseName) {
    for (const ModuleCase& one :
         {ModuleCase{L"C:\\Orva\\LinkvaneService.exe", L"LinkvaneService"},
          ModuleCase{L"C:\\Orva\\two.dots.exe", L"two.dots"}, ModuleCase{L"C:\\with.dot\\name", L"with"},
          ModuleCase{L"\\\\server\\share\\a b.exe", L"a b"}, ModuleCase{L"C:\\.exe", L""},
          ModuleCase{L"\\x.", L"x"}}) {
        const ScopedModulePath module(one.path);
        const std::optional<ModuleNames> names = GetModuleNames();
        ASSERT_TRUE(names.has_value());
        EXPECT_EQ(names->path, one.path);
        EXPECT_EQ(names->baseName, one.baseName);
        EXPECT_THAT(module.Sizes(), ElementsAre(520U));
    }
}

TEST(ModuleNames, AreMissingWhenThePathHasNoDotOrNoBackslash) {
    for (const wchar_t* path :
         {L"", L"C:\\Orva\\LinkvaneService", L"LinkvaneService.exe", L"x", L"a.b\\c", L"."}) {
        const ScopedModulePath module(path);
        EXPECT_FALSE(GetModuleNames().has_value()) << testing::PrintToString(std::wstring(path));
    }
}

TEST(ModuleNames, PathLongerThanTheBufferIsCut) {
    const std::wstring path = L"C:\\d.d\\" + std::wstring(600, L'x') + L".exe";
    const ScopedModulePath module(path);
    const std::optional<ModuleNames> names = GetModuleNames();
    ASSERT_TRUE(names.has_value());
    EXPECT_EQ(names->path, path.substr(0, 519));
    EXPECT_EQ(names->baseName, L"d");
}

class PolicyKeysTest : public testing::Test {
  protected:
    const PolicyKeys& Keys() {
        OpenPolicyKeys(m_keys);
        return m_keys;
    }

    Policies m_policies;
    PolicyKeys m_keys;
};

TEST_F(PolicyKeysTest, AreEmptyWithoutPolicies) {
    EXPECT_FALSE(Keys().product);
    EXPECT_FALSE(Keys().executable);
}

TEST_F(PolicyKeysTest, ExecutablesMayBeMissing) {
    m_policies.Create();
    EXPECT_TRUE(Keys().product);
    EXPECT_FALSE(Keys().executable);
}

TEST_F(PolicyKeysTest, AreOpenedForReading) {
    m_policies.CreateExecutable();
    std::vector<REGSAM> rights;
    const ScopedImport<&::RegOpenKeyExW> open{
        [&](HKEY key, LPCWSTR name, DWORD options, REGSAM access, PHKEY result) {
            rights.push_back(access);
            return open.Original(key, name, options, access, result);
        }};
    EXPECT_TRUE(Keys().product);
    EXPECT_TRUE(m_keys.executable);
    EXPECT_THAT(rights, ElementsAre(REGSAM{KEY_READ}, REGSAM{KEY_READ}));
}

TEST_F(PolicyKeysTest, PathIsReadOnceForTheProductAndOnceForTheExecutable) {
    m_policies.CreateExecutable();
    const ScopedModulePath module(OwnPath());
    EXPECT_TRUE(Keys().product);
    EXPECT_TRUE(m_keys.executable);
    EXPECT_THAT(module.Sizes(), ElementsAre(260U, 520U));
}

TEST_F(PolicyKeysTest, AreNotOpenedWithoutAProductName) {
    m_policies.CreateExecutable();
    const ScopedResult<&::GetFileVersionInfoSizeW> noVersion{0};
    EXPECT_FALSE(Keys().product);
    EXPECT_FALSE(m_keys.executable);
}

TEST_F(PolicyKeysTest, ExecutablesIsNotOpenedWithoutABaseName) {
    m_policies.CreateExecutable();
    const std::wstring own = OwnPath();
    int call = 0;
    // The product name is asked for first, with the real path.
    const ScopedImport<&::GetModuleFileNameW> name{[&](HMODULE, LPWSTR buffer, DWORD characters) {
        std::wcsncpy(buffer, ++call == 1 ? own.c_str() : L"nameless", characters);
        return DWORD{8};
    }};
    EXPECT_TRUE(Keys().product);
    EXPECT_FALSE(m_keys.executable);
}

TEST_F(PolicyKeysTest, ThatWereOpenAreClosedFirst) {
    m_policies.CreateExecutable();
    const Rig::Ledger ledger;
    PolicyKeys keys;
    OpenPolicyKeys(keys);
    OpenPolicyKeys(keys);
    EXPECT_TRUE(keys.executable);
    const ScopedResult<&::GetFileVersionInfoSizeW> noVersion{0};
    OpenPolicyKeys(keys);
    EXPECT_FALSE(keys.product);
    EXPECT_FALSE(keys.executable);
}

TEST_F(PolicyKeysTest, PathTooLongForAFileNameGivesNone) {
    m_policies.CreateExecutable();
    const ScopedModulePath module(L"C:\\" + std::wstring(300, L'x') + L".exe");
    EXPECT_FALSE(Keys().product);
}

// --- Levels -----------------------------------------------------------------------------------

class LogLevels : public PolicyKeysTest {
  protected:
    int Min() { return ReadLogLevels(Keys()).minLevel; }
    int Max() { return ReadLogLevels(Keys()).maxLevel; }
};

TEST_F(LogLevels, AreTraceInToErrorWithoutPolicy) {
    EXPECT_EQ(Min(), Level::kTraceIn);
    EXPECT_EQ(Max(), Level::kError);
    m_policies.CreateExecutable();
    EXPECT_EQ(Min(), Level::kTraceIn);
    EXPECT_EQ(Max(), Level::kError);
}

TEST_F(LogLevels, ComeFromTheProduct) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Information"));
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L"diag"));
    EXPECT_EQ(Min(), Level::kInformation);
    EXPECT_EQ(Max(), Level::kDiag);
}

TEST_F(LogLevels, ComeFromTheExecutableBeforeTheProduct) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Information"));
    m_policies.OfExecutable(L"MinLogLevel", RegistryText(L"VERBOSE"));
    EXPECT_EQ(Min(), Level::kVerbose);
}

TEST_F(LogLevels, UnknownNameReadsAsNeverAndHidesTheProducts) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Information"));
    m_policies.OfExecutable(L"MinLogLevel", RegistryText(L"loud"));
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L" Error"));
    EXPECT_EQ(Min(), Level::kNever);
    EXPECT_EQ(Max(), Level::kNever);
}

struct IgnoredValue {
    const char* name;
    RegistryValue value;
};

void PrintTo(const IgnoredValue& value, std::ostream* out) {
    *out << value.name;
}

/// Exactly so many bytes of "Error" and blanks, without a terminator.
RegistryValue TextOfBytes(DWORD type, std::size_t bytes) {
    const std::wstring text = L"Error" + std::wstring(bytes / sizeof(wchar_t), L' ');
    RegistryValue value{type, std::vector<std::byte>(bytes)};
    std::memcpy(value.bytes.data(), text.data(), bytes);
    return value;
}

class IgnoredLevel : public LogLevels, public testing::WithParamInterface<IgnoredValue> {};

TEST_P(IgnoredLevel, FallsThroughToTheProductAndThenToTheDefault) {
    m_policies.OfExecutable(L"MinLogLevel", GetParam().value);
    EXPECT_EQ(Min(), Level::kTraceIn);
    m_policies.OfProduct(L"MinLogLevel", GetParam().value);
    EXPECT_EQ(Min(), Level::kTraceIn);
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Warning"));
    EXPECT_EQ(Min(), Level::kWarning);
}

TEST_P(IgnoredLevel, OfTheHighestFallsThroughToo) {
    m_policies.OfExecutable(L"MaxLogLevel", GetParam().value);
    EXPECT_EQ(Max(), Level::kError);
    m_policies.OfProduct(L"MaxLogLevel", GetParam().value);
    EXPECT_EQ(Max(), Level::kError);
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L"Verbose"));
    EXPECT_EQ(Max(), Level::kVerbose);
}

INSTANTIATE_TEST_SUITE_P(Values, IgnoredLevel,
                         testing::Values(IgnoredValue{"Number", RegistryNumber(5)},
                                         IgnoredValue{"EmptyText", RegistryText(L"")},
                                         IgnoredValue{"NoBytes", RegistryBytes(REG_SZ, {})},
                                         IgnoredValue{"ExpandableText", TextOfBytes(REG_EXPAND_SZ, 10)},
                                         IgnoredValue{"ManyTexts", TextOfBytes(REG_MULTI_SZ, 10)},
                                         IgnoredValue{"Binary", TextOfBytes(REG_BINARY, 10)},
                                         IgnoredValue{"NoType", TextOfBytes(REG_NONE, 10)},
                                         IgnoredValue{"TooLong", TextOfBytes(REG_SZ, 258)}),
                         [](const auto& chosen) { return std::string(chosen.param.name); });

TEST_F(LogLevels, TextOfJustTheLimitIsTaken) {
    // 127 characters and the terminator: not a name that is known.
    m_policies.OfExecutable(L"MinLogLevel", RegistryText(L"Error" + std::wstring(122, L' ')));
    EXPECT_EQ(Min(), Level::kNever);
}

TEST_F(LogLevels, TextWithoutTerminatorIsTaken) {
    m_policies.OfExecutable(L"MinLogLevel", TextOfBytes(REG_SZ, 10));
    EXPECT_EQ(Min(), Level::kError);
}

TEST_F(LogLevels, EveryListenerReadsThem) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Warning"));
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L"Never"));
    class Listener final : public CorvaLogListener {
      public:
        explicit Listener(PolicyLevels levels) : CorvaLogListener(levels) {}
        using CorvaLogListener::PolicyLevels;
        void Log(const LogData&) override {}
        [[nodiscard]] int GetType() const override { return ListenerType::kDebug; }
    };
    const Rig::Ledger ledger;
    const Listener listener(Listener::PolicyLevels::kRead);
    EXPECT_EQ(listener.MinLogLevel(), Level::kWarning);
    EXPECT_EQ(listener.MaxLogLevel(), Level::kNever);
    const Listener ignorant(Listener::PolicyLevels::kIgnore);
    EXPECT_EQ(ignorant.MinLogLevel(), Level::kTraceIn);
    EXPECT_EQ(ignorant.MaxLogLevel(), Level::kError);
}

// --- MaxLogSize -------------------------------------------------------------------------------

class MaxLogSize : public PolicyKeysTest {
  protected:
    std::uint32_t Size() { return ReadMaxLogSize(Keys()); }
};

TEST_F(MaxLogSize, Is2048WithoutPolicy) {
    EXPECT_EQ(Size(), 2048U);
    m_policies.CreateExecutable();
    EXPECT_EQ(Size(), 2048U);
}

TEST_F(MaxLogSize, ComesFromTheExecutableBeforeTheProduct) {
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(100));
    EXPECT_EQ(Size(), 100U);
    m_policies.OfExecutable(L"MaxLogSize", RegistryNumber(7));
    EXPECT_EQ(Size(), 7U);
}

TEST_F(MaxLogSize, ZeroFallsThroughToTheProductAndThenTo2048) {
    m_policies.OfExecutable(L"MaxLogSize", RegistryNumber(0));
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(100));
    EXPECT_EQ(Size(), 100U);
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(0));
    EXPECT_EQ(Size(), 2048U);
}

TEST_F(MaxLogSize, TakesTheBytesOfAnyType) {
    m_policies.OfExecutable(L"MaxLogSize", RegistryText(L"5"));
    EXPECT_EQ(Size(), 0x35U);
    m_policies.OfExecutable(L"MaxLogSize", RegistryBytes(REG_BINARY, {1, 2}));
    EXPECT_EQ(Size(), 0x201U);
}

TEST_F(MaxLogSize, TooLongValueFallsThrough) {
    m_policies.OfExecutable(L"MaxLogSize", RegistryBytes(REG_QWORD, {9, 0, 0, 0, 0, 0, 0, 0}));
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(100));
    EXPECT_EQ(Size(), 100U);
    m_policies.OfProduct(L"MaxLogSize", RegistryText(L"100"));
    EXPECT_EQ(Size(), 2048U);
}

TEST_F(MaxLogSize, ValueWithoutBytesFallsThrough) {
    m_policies.OfExecutable(L"MaxLogSize", RegistryBytes(REG_DWORD, {}));
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(100));
    EXPECT_EQ(Size(), 100U);
}

// --- QueuedWrites -----------------------------------------------------------------------------

class QueuedWrites : public PolicyKeysTest {};

TEST_F(QueuedWrites, StayAsTheyWereWithoutPolicy) {
    EXPECT_TRUE(ReadQueuedWrites(Keys(), true));
    EXPECT_FALSE(ReadQueuedWrites(Keys(), false));
    m_policies.CreateExecutable();
    EXPECT_TRUE(ReadQueuedWrites(Keys(), true));
    EXPECT_FALSE(ReadQueuedWrites(Keys(), false));
}

TEST_F(QueuedWrites, ComeFromTheExecutableBeforeTheProduct) {
    m_policies.OfProduct(L"QueuedWrites", RegistryNumber(1));
    EXPECT_TRUE(ReadQueuedWrites(Keys(), false));
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(0));
    EXPECT_FALSE(ReadQueuedWrites(Keys(), true));
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(2));
    EXPECT_TRUE(ReadQueuedWrites(Keys(), false));
}

TEST_F(QueuedWrites, TakeTheBytesOfAnyType) {
    m_policies.OfExecutable(L"QueuedWrites", RegistryText(L"0"));
    EXPECT_TRUE(ReadQueuedWrites(Keys(), false));
    m_policies.OfExecutable(L"QueuedWrites", RegistryText(L""));
    EXPECT_FALSE(ReadQueuedWrites(Keys(), true));
    m_policies.OfExecutable(L"QueuedWrites", RegistryBytes(REG_BINARY, {}));
    EXPECT_FALSE(ReadQueuedWrites(Keys(), true));
}

TEST_F(QueuedWrites, TooLongValueFallsThrough) {
    m_policies.OfExecutable(L"QueuedWrites", RegistryBytes(REG_QWORD, {0, 0, 0, 0, 0, 0, 0, 0}));
    m_policies.OfProduct(L"QueuedWrites", RegistryNumber(1));
    EXPECT_TRUE(ReadQueuedWrites(Keys(), false));
    m_policies.OfProduct(L"QueuedWrites", RegistryText(L"no"));
    EXPECT_FALSE(ReadQueuedWrites(Keys(), false));
}

// --- LoggingType ------------------------------------------------------------------------------

class LoggingType : public PolicyKeysTest {
  protected:
    int Selection() { return ReadOutputSelection(Keys()); }
    int SelectionOf(const std::wstring& text) {
        m_policies.OfProduct(L"LoggingType", RegistryText(text));
        return Selection();
    }
};

TEST_F(LoggingType, IsTheQueuedFileWithoutPolicy) {
    EXPECT_EQ(Selection(), ListenerType::kQueuedFile);
    m_policies.CreateExecutable();
    EXPECT_EQ(Selection(), ListenerType::kQueuedFile);
}

TEST_F(LoggingType, IsWhatTheWordsName) {
    EXPECT_EQ(SelectionOf(L"EVENT"), ListenerType::kEvent);
    EXPECT_EQ(SelectionOf(L"event"), ListenerType::kEvent);
    EXPECT_EQ(SelectionOf(L"File"), ListenerType::kFile);
    EXPECT_EQ(SelectionOf(L"console"), ListenerType::kConsole);
    EXPECT_EQ(SelectionOf(L"dEBUG"), ListenerType::kDebug);
}

TEST_F(LoggingType, WordsMayStandAnywhere) {
    EXPECT_EQ(SelectionOf(L"FILE,DEBUG"), ListenerType::kFile | ListenerType::kDebug);
    EXPECT_EQ(SelectionOf(L"Debug File"), ListenerType::kFile | ListenerType::kDebug);
    EXPECT_EQ(SelectionOf(L"EVENTFILE"), ListenerType::kEvent | ListenerType::kFile);
    EXPECT_EQ(SelectionOf(L"profile"), ListenerType::kFile);
    EXPECT_EQ(SelectionOf(L"Event;Debug;Console;File"),
              ListenerType::kEvent | ListenerType::kFile | ListenerType::kConsole | ListenerType::kDebug);
}

TEST_F(LoggingType, WithoutAKnownWordIsTheQueuedFile) {
    EXPECT_EQ(SelectionOf(L"NONE"), ListenerType::kQueuedFile);
    EXPECT_EQ(SelectionOf(L""), ListenerType::kQueuedFile);
    EXPECT_EQ(SelectionOf(L"EVEN"), ListenerType::kQueuedFile);
}

TEST_F(LoggingType, OfTheExecutableComesFirst) {
    m_policies.OfProduct(L"LoggingType", RegistryText(L"EVENT"));
    m_policies.OfExecutable(L"LoggingType", RegistryText(L"DEBUG"));
    EXPECT_EQ(Selection(), ListenerType::kDebug);
}

TEST_F(LoggingType, EmptyTextOfTheExecutableHidesTheProducts) {
    m_policies.OfProduct(L"LoggingType", RegistryText(L"EVENT"));
    m_policies.OfExecutable(L"LoggingType", RegistryText(L""));
    EXPECT_EQ(Selection(), ListenerType::kQueuedFile);
    m_policies.OfExecutable(L"LoggingType", RegistryBytes(REG_NONE, {}));
    EXPECT_EQ(Selection(), ListenerType::kQueuedFile);
}

TEST_F(LoggingType, TakesTheCharactersOfAnyType) {
    m_policies.OfExecutable(L"LoggingType", TextOfBytes(REG_BINARY, 10));
    EXPECT_EQ(Selection(), ListenerType::kQueuedFile);
    m_policies.OfExecutable(L"LoggingType",
                            RegistryBytes(REG_MULTI_SZ, {'D', 0, 'e', 0, 'b', 0, 'u', 0, 'g', 0}));
    EXPECT_EQ(Selection(), ListenerType::kDebug);
    m_policies.OfProduct(L"LoggingType", RegistryText(L"EVENT"));
    m_policies.OfExecutable(L"LoggingType", RegistryNumber(5));
    EXPECT_EQ(Selection(), ListenerType::kQueuedFile);
}

TEST_F(LoggingType, MayFillItsLimitWithoutATerminator) {
    std::wstring text(60, L'.');
    text += L"FILE";
    RegistryValue value{REG_BINARY, std::vector<std::byte>(128)};
    std::memcpy(value.bytes.data(), text.data(), 128);
    m_policies.OfExecutable(L"LoggingType", value);
    EXPECT_EQ(Selection(), ListenerType::kFile);
}

TEST_F(LoggingType, LongerThanItsLimitFallsThrough) {
    m_policies.OfProduct(L"LoggingType", RegistryText(L"EVENT"));
    // 64 characters and the terminator.
    m_policies.OfExecutable(L"LoggingType", RegistryText(std::wstring(60, L'.') + L"FILE"));
    EXPECT_EQ(Selection(), ListenerType::kEvent);
}

TEST_F(LoggingType, OfTheProductLongerThanItsLimitIsTheQueuedFile) {
    EXPECT_EQ(SelectionOf(std::wstring(60, L'.') + L"FILE"), ListenerType::kQueuedFile);
    EXPECT_EQ(SelectionOf(L"FILE" + std::wstring(60, L'.')), ListenerType::kQueuedFile);
    EXPECT_EQ(SelectionOf(std::wstring(59, L'.') + L"FILE"), ListenerType::kFile) << "just the limit";
}

}  // namespace
}  // namespace LoggingTests
