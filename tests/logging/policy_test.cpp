#include "logging/policy.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "logging/level.h"
#include "tests/logging/log_test.h"
#include "tests/support/ledger.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using namespace Orva::Shared;

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

TEST(ProductName, IsEmptyWithoutAVersionResourceThatCanBeRead) {
    EXPECT_EQ(GetProductName(L"C:\\no\\such\\file.exe"), L"");
    EXPECT_EQ(GetProductName(L""), L"");
    const ScopedResult<&::GetFileVersionInfoW> fails{FALSE, ERROR_ACCESS_DENIED};
    EXPECT_EQ(GetProductName(OwnPath().c_str()), L"");
    EXPECT_EQ(fails.Calls(), 1);
}

TEST(ProductName, IsAskedForInTheWindowsCodePageAndThenInUnicode) {
    const std::wstring first = L"\\StringFileInfo\\040904E4\\ProductName";
    const std::wstring second = L"\\StringFileInfo\\040904B0\\ProductName";
    struct Case {
        std::vector<ScopedVersion::Text> texts;
        std::wstring name;
        std::vector<std::wstring> asked;
    };
    for (const Case& one : {
             Case{{{L"040904E4", L"First", 6}, {L"040904B0", L"Second", 7}}, L"First", {first}},
             Case{{{L"040904B0", L"Second", 7}}, L"Second", {first, second}},
             Case{{{L"040904E4", L"First", 0}, {L"040904B0", L"Second", 7}}, L"Second", {first, second}},
             Case{{{L"040904E4", L"First", 0}, {L"040904B0", L"Second", 0}}, L"", {first, second}},
             // The length that is returned counts.
             Case{{{L"040904B0", L"Second and more", 6}}, L"Second", {first, second}},
         }) {
        const ScopedVersion version(one.texts);
        EXPECT_EQ(GetProductName(L"x.exe"), one.name);
        EXPECT_EQ(version.asked, one.asked);
    }
}

TEST(ProductName, IsEmptyWhereALengthIsFoundAndNoText) {
    const ScopedVersion version({});
    const ScopedImport<&::VerQueryValueW> nowhere{[](LPCVOID, LPCWSTR, void** text, UINT* characters) {
        *text = nullptr;
        *characters = 6;
        return TRUE;
    }};
    EXPECT_EQ(GetProductName(L"x.exe"), L"");
    EXPECT_EQ(nowhere.Calls(), 2);
}

TEST(ModuleNames, KeepThePathAndCutTheBaseName) {
    const std::wstring longPath = L"C:\\d.d\\" + std::wstring(600, L'x') + L".exe";
    struct Case {
        std::wstring path;
        std::wstring baseName;
    };
    for (const Case& one :
         {Case{L"C:\\Orva\\LinkvaneService.exe", L"LinkvaneService"},
          Case{L"C:\\Orva\\two.dots.exe", L"two.dots"}, Case{L"C:\\with.dot\\name", L"with"},
          Case{L"\\\\server\\share\\a b.exe", L"a b"}, Case{L"C:\\.exe", L""}, Case{L"\\x.", L"x"},
          // Longer than the buffer: cut.
          Case{longPath, L"d"}}) {
        const ScopedModulePath module(one.path);
        const std::optional<ModuleNames> names = GetModuleNames();
        ASSERT_TRUE(names.has_value());
        EXPECT_EQ(names->path, one.path.substr(0, 519));
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

class PolicyKeysTest : public testing::Test {
  protected:
    const PolicyKeys& Keys() {
        OpenPolicyKeys(m_keys);
        return m_keys;
    }

    Policies m_policies;
    PolicyKeys m_keys;
};

TEST_F(PolicyKeysTest, MayBeMissing) {
    EXPECT_FALSE(Keys().product);
    EXPECT_FALSE(Keys().executable);
    m_policies.Create();
    EXPECT_TRUE(Keys().product);
    EXPECT_FALSE(Keys().executable);
}

TEST_F(PolicyKeysTest, AreOpenedForReading) {
    m_policies.CreateExecutable();
    const ScopedWatch<&::RegOpenKeyExW> open;
    const ScopedModulePath module(OwnPath());
    EXPECT_TRUE(Keys().product);
    EXPECT_TRUE(m_keys.executable);
    const auto forReading = FieldsAre(_, _, DWORD{0}, REGSAM{KEY_READ}, _);
    EXPECT_THAT(open.Arguments(), ElementsAre(forReading, forReading));
    EXPECT_THAT(module.Sizes(), ElementsAre(260U, 520U));
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

// --- The settings -----------------------------------------------------------------------------

int Min(const PolicyKeys& keys) {
    return ReadLogLevels(keys).minLevel;
}
int Max(const PolicyKeys& keys) {
    return ReadLogLevels(keys).maxLevel;
}
int Size(const PolicyKeys& keys) {
    return static_cast<int>(ReadMaxLogSize(keys));
}
/// Of a listener that was made with queued writes, or without.
int Queued(const PolicyKeys& keys) {
    return ReadQueuedWrites(keys, true) ? 1 : 0;
}
int NotQueued(const PolicyKeys& keys) {
    return ReadQueuedWrites(keys, false) ? 1 : 0;
}

/// The characters of a text without its terminator.
RegistryValue Unterminated(DWORD type, const std::wstring& text) {
    RegistryValue value{type, std::vector<std::byte>(text.size() * sizeof(wchar_t))};
    std::memcpy(value.bytes.data(), text.data(), value.bytes.size());
    return value;
}

using Value = std::optional<RegistryValue>;
constexpr std::nullopt_t kNone = std::nullopt;

Value Text(const std::wstring& text) {
    return RegistryText(text);
}
Value Number(DWORD number) {
    return RegistryNumber(number);
}
Value Eight(unsigned char first) {
    return RegistryBytes(REG_QWORD, {first, 0, 0, 0, 0, 0, 0, 0});
}

struct Setting {
    const char* situation;
    Value ofExecutable;
    Value ofProduct;
    int expected;
};

class Settings : public PolicyKeysTest {
  protected:
    void Expect(const std::wstring& name, int (*read)(const PolicyKeys&),
                const std::vector<Setting>& settings) {
        for (const Setting& setting : settings) {
            const Policies policies;
            policies.CreateExecutable();
            if (setting.ofExecutable) {
                policies.OfExecutable(name, *setting.ofExecutable);
            }
            if (setting.ofProduct) {
                policies.OfProduct(name, *setting.ofProduct);
            }
            EXPECT_EQ(read(Keys()), setting.expected) << setting.situation;
        }
    }
};

TEST_F(Settings, HaveDefaultsWithoutAnyKey) {
    EXPECT_EQ(Min(Keys()), Level::kTraceIn);
    EXPECT_EQ(Max(Keys()), Level::kError);
    EXPECT_EQ(Size(Keys()), 2048);
    EXPECT_EQ(Queued(Keys()), 1);
    EXPECT_EQ(NotQueued(Keys()), 0);
    EXPECT_EQ(ReadOutputSelection(Keys()), ListenerType::kQueuedFile);
}

TEST_F(Settings, LowestLevel) {
    // 127 characters and the terminator: not a name that is known, but short enough to be read.
    const std::wstring justTheLimit = L"Error" + std::wstring(122, L' ');
    Expect(L"MinLogLevel", &Min,
           {{"without policy", kNone, kNone, Level::kTraceIn},
            {"the product's", kNone, Text(L"Information"), Level::kInformation},
            {"the executable's comes first", Text(L"VERBOSE"), Text(L"Information"), Level::kVerbose},
            {"an unknown name hides the product's", Text(L"loud"), Text(L"Information"), Level::kNever},
            {"a text of just the limit", Text(justTheLimit), kNone, Level::kNever},
            {"a text without terminator", Unterminated(REG_SZ, L"Error"), kNone, Level::kError}});
}

TEST_F(Settings, HighestLevel) {
    Expect(L"MaxLogLevel", &Max,
           {{"without policy", kNone, kNone, Level::kError},
            {"the product's", kNone, Text(L"diag"), Level::kDiag},
            {"the executable's comes first", Text(L"Verbose"), Text(L"diag"), Level::kVerbose},
            {"an unknown name", kNone, Text(L" Error"), Level::kNever}});
}

TEST_F(Settings, LevelsThatCountAsAbsent) {
    for (const Value& ignored :
         {Number(5), Text(L""), Value(RegistryBytes(REG_SZ, {})),
          Value(Unterminated(REG_EXPAND_SZ, L"Error")), Value(Unterminated(REG_MULTI_SZ, L"Error")),
          Value(Unterminated(REG_BINARY, L"Error")), Value(Unterminated(REG_NONE, L"Error")),
          Value(Unterminated(REG_SZ, L"Error" + std::wstring(124, L' ')))}) {
        SCOPED_TRACE("type " + std::to_string(ignored->type) + ", bytes " +
                     std::to_string(ignored->bytes.size()));
        Expect(L"MinLogLevel", &Min,
               {{"both", ignored, ignored, Level::kTraceIn},
                {"falls through", ignored, Text(L"Warning"), Level::kWarning}});
        Expect(L"MaxLogLevel", &Max,
               {{"both", ignored, ignored, Level::kError},
                {"falls through", ignored, Text(L"Verbose"), Level::kVerbose}});
    }
}

TEST_F(Settings, MaxLogSize) {
    Expect(L"MaxLogSize", &Size,
           {{"without policy", kNone, kNone, 2048},
            {"the product's", kNone, Number(100), 100},
            {"the executable's comes first", Number(7), Number(100), 7},
            {"zero falls through to the product's", Number(0), Number(100), 100},
            {"zero twice", Number(0), Number(0), 2048},
            {"the bytes of a text", Text(L"5"), kNone, 0x35},
            {"two bytes", RegistryBytes(REG_BINARY, {1, 2}), kNone, 0x201},
            {"no bytes", RegistryBytes(REG_DWORD, {}), Number(100), 100},
            {"too many bytes", Eight(9), Number(100), 100},
            {"too many bytes twice", Eight(9), Text(L"100"), 2048}});
}

TEST_F(Settings, QueuedWrites) {
    Expect(L"QueuedWrites", &Queued,
           {{"without policy as it was", kNone, kNone, 1},
            {"the executable's comes first", Number(0), Number(1), 0},
            {"no bytes are zero", RegistryBytes(REG_BINARY, {}), kNone, 0},
            {"nor has an empty text any", Text(L""), kNone, 0}});
    Expect(L"QueuedWrites", &NotQueued,
           {{"without policy as it was", kNone, kNone, 0},
            {"the product's", kNone, Number(1), 1},
            {"any number but zero", Number(2), Number(0), 1},
            {"the bytes of a text", Text(L"0"), kNone, 1},
            {"too many bytes fall through", Eight(0), Number(1), 1},
            {"too many bytes twice", Eight(0), Text(L"no"), 0}});
}

TEST_F(Settings, LoggingType) {
    constexpr int kFile = ListenerType::kFile;
    constexpr int kDebug = ListenerType::kDebug;
    constexpr int kEvent = ListenerType::kEvent;
    constexpr int kQueuedFile = ListenerType::kQueuedFile;
    constexpr int kAll = kEvent | kFile | kDebug | ListenerType::kConsole;
    const auto dots = [](std::size_t count) { return std::wstring(count, L'.'); };
    Expect(L"LoggingType", &ReadOutputSelection,
           {{"without policy", kNone, kNone, kQueuedFile},
            {"event", kNone, Text(L"EVENT"), kEvent},
            {"in any case", kNone, Text(L"event"), kEvent},
            {"file", kNone, Text(L"File"), kFile},
            {"console", kNone, Text(L"console"), ListenerType::kConsole},
            {"debug", kNone, Text(L"dEBUG"), kDebug},
            {"with a comma", kNone, Text(L"FILE,DEBUG"), kFile | kDebug},
            {"with a blank", kNone, Text(L"Debug File"), kFile | kDebug},
            {"in one word", kNone, Text(L"EVENTFILE"), kEvent | kFile},
            {"inside a word", kNone, Text(L"profile"), kFile},
            {"all of them", kNone, Text(L"Event;Debug;Console;File"), kAll},
            {"no known word", kNone, Text(L"NONE"), kQueuedFile},
            {"half a word", kNone, Text(L"EVEN"), kQueuedFile},
            {"empty", kNone, Text(L""), kQueuedFile},
            {"the executable's comes first", Text(L"DEBUG"), Text(L"EVENT"), kDebug},
            {"an empty one hides the product's", Text(L""), Text(L"EVENT"), kQueuedFile},
            {"so does one without bytes", RegistryBytes(REG_NONE, {}), Text(L"EVENT"), kQueuedFile},
            {"and a number", Number(5), Text(L"EVENT"), kQueuedFile},
            {"the characters of any type", Unterminated(REG_MULTI_SZ, L"Debug"), kNone, kDebug},
            {"64 characters without terminator", Unterminated(REG_BINARY, dots(60) + L"FILE"), kNone, kFile},
            {"63 and the terminator", kNone, Text(dots(59) + L"FILE"), kFile},
            {"64 and the terminator fall through", Text(dots(60) + L"FILE"), Text(L"EVENT"), kEvent},
            {"too long twice", Text(dots(60) + L"FILE"), Text(L"FILE" + dots(60)), kQueuedFile}});
}

}  // namespace
}  // namespace LoggingTests
