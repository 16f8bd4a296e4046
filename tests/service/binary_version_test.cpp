#include <string>

#include "service/service_utilities.h"
#include "tests/service/service_test.h"
#include "tests/support/ledger.h"

namespace ServiceTests {
namespace {

constexpr char kGetBinaryVersion[] = "Utils::GetBinaryVersion";
constexpr wchar_t kUnknown[] = L"0.0.0.0";
constexpr DWORD kResourceBytes = 48;

/// A version resource, which the test executable has none of.
class BinaryVersionTest : public testing::Test {
  protected:
    void SetVersion(WORD major, WORD minor, WORD build, WORD revision) {
        info.dwFileVersionMS = static_cast<DWORD>(MAKELONG(minor, major));
        info.dwFileVersionLS = static_cast<DWORD>(MAKELONG(revision, build));
    }

    void ExpectUnknown(const wchar_t* line) {
        log.Clear();
        EXPECT_EQ(Utils::GetBinaryVersion(), kUnknown);
        EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kGetBinaryVersion), Error(kGetBinaryVersion, line),
                                             TraceOut(kGetBinaryVersion)));
        EXPECT_TRUE(ledger.Balanced());
    }

    LogRecorder log;
    Rig::Ledger ledger;
    VS_FIXEDFILEINFO info = [] {
        VS_FIXEDFILEINFO sound{};
        sound.dwSignature = 0xFEEF04BD;
        return sound;
    }();
    void* found = &info;
    UINT foundBytes = sizeof(info);
    std::wstring path;
    void* resource = nullptr;

    ScopedImport<&::GetFileVersionInfoSizeW> size{[this](LPCWSTR file, LPDWORD) -> DWORD {
        path = file;
        return kResourceBytes;
    }};
    ScopedImport<&::GetFileVersionInfoW> read{
        [this](LPCWSTR file, DWORD, DWORD bytes, LPVOID buffer) -> BOOL {
            EXPECT_EQ(path, file);
            EXPECT_EQ(bytes, kResourceBytes);
            EXPECT_EQ(std::string(static_cast<const char*>(buffer), bytes), std::string(bytes, '\0'));
            resource = buffer;
            return TRUE;
        }};
    ScopedImport<&::VerQueryValueW> query{
        [this](LPCVOID block, LPCWSTR name, LPVOID* value, PUINT bytes) -> BOOL {
            EXPECT_EQ(block, resource);
            EXPECT_STREQ(name, L"\\");
            *value = found;
            *bytes = foundBytes;
            return TRUE;
        }};
};

TEST_F(BinaryVersionTest, VersionIsReadFromTheRunningExecutable) {
    SetVersion(1, 0, 0, 12);
    EXPECT_EQ(Utils::GetBinaryVersion(), L"1.0.0.12");
    wchar_t own[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    EXPECT_EQ(path, own);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kGetBinaryVersion), TraceOut(kGetBinaryVersion)));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(BinaryVersionTest, GreatestVersionIsReadWhole) {
    SetVersion(0xFFFF, 0xFFFE, 0xFFFD, 0xFFFC);
    EXPECT_EQ(Utils::GetBinaryVersion(), L"65535.65534.65533.65532");
}

TEST_F(BinaryVersionTest, PathThatIsUnknownOrTooLongSaysNothing) {
    {
        const ScopedResult<&::GetModuleFileNameW> fails{0, ERROR_ACCESS_DENIED};
        EXPECT_EQ(Utils::GetBinaryVersion(), kUnknown);
    }
    const ScopedImport<&::GetModuleFileNameW> cut{[](HMODULE, LPWSTR text, DWORD characters) {
        EXPECT_EQ(characters, 260U);
        text[characters - 1] = L'\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return characters;
    }};
    EXPECT_EQ(Utils::GetBinaryVersion(), kUnknown);
    EXPECT_THAT(log.From(kVerbose), IsEmpty());
    EXPECT_EQ(size.Calls(), 0);
}

TEST_F(BinaryVersionTest, ResourceThatIsMissingOrUnsoundIsLogged) {
    {
        const ScopedResult<&::LocalAlloc> fails{nullptr, ERROR_NOT_ENOUGH_MEMORY};
        ExpectUnknown(L"Version String Allocation failed");
        EXPECT_EQ(read.Calls(), 0);
    }
    {
        const ScopedResult<&::GetFileVersionInfoW> fails{FALSE, ERROR_RESOURCE_TYPE_NOT_FOUND};
        ExpectUnknown(L"GetFileVersionInfo failed with error 1813");
        EXPECT_EQ(query.Calls(), 0);
    }
    {
        const ScopedResult<&::VerQueryValueW> fails{FALSE, ERROR_INVALID_DATA};
        ExpectUnknown(L"VerQueryValue failed with error 13");
    }
    info.dwSignature = 0xFEEF04BC;
    ExpectUnknown(L"Signature not correct");
    found = nullptr;
    ExpectUnknown(L"VS_FIXEDFILEINFO buffer is NULL");
    foundBytes = sizeof(info) - 1;
    ExpectUnknown(L"VerQueryValue returned size = 51");
    foundBytes = 0;
    ExpectUnknown(L"VerQueryValue returned size = 0");
}

TEST(BinaryVersionTestOfThisExecutable, ExecutableWithoutVersionResourceHasNoVersion) {
    const LogRecorder log;
    const Rig::Ledger ledger;
    EXPECT_EQ(Utils::GetBinaryVersion(), kUnknown);
    EXPECT_THAT(
        log.From(kVerbose),
        ElementsAre(Error(kGetBinaryVersion, L"GetFileVersionInfoSize Return Value  = 0 Error Code = ")));
}

}  // namespace
}  // namespace ServiceTests
