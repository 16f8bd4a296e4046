#include <gmock/gmock.h>

#include <cstring>
#include <string>

#include "doctor/inspection/readers.h"

namespace {

using Inspection::JudgePolicy;
using Inspection::RawValue;
using Inspection::RememberedOddity;

RawValue Text(const std::wstring& name, const std::wstring& text, DWORD type = REG_SZ) {
    RawValue value{name, type, std::vector<BYTE>((text.size() + 1) * sizeof(wchar_t))};
    std::memcpy(value.data.data(), text.data(), text.size() * sizeof(wchar_t));
    return value;
}

RawValue Number(const std::wstring& name, BYTE number) {
    return {name, REG_DWORD, {number, 0, 0, 0}};
}

struct PolicyCase {
    RawValue value;
    const char* oddity;
};

class PolicyOddityTest : public testing::TestWithParam<PolicyCase> {};

TEST_P(PolicyOddityTest, IsPointedOut) {
    EXPECT_EQ(JudgePolicy(GetParam().value, true).oddity, GetParam().oddity);
}

INSTANTIATE_TEST_SUITE_P(
    Values, PolicyOddityTest,
    testing::Values(
        PolicyCase{Text(L"MinLogLevel", L"warning"), "none"},
        PolicyCase{Text(L"minloglevel", L"NEVER"), "none"},
        PolicyCase{Text(L"MinLogLevel", L"Warn"), "unknown-word"},
        PolicyCase{Text(L"MinLogLevel", L""), "none"},
        PolicyCase{Text(L"MinLogLevel", L"Warning", REG_EXPAND_SZ), "wrong-type"},
        PolicyCase{Text(L"MaxLogLevel", std::wstring(128, L'x')), "too-long"},
        PolicyCase{Number(L"MaxLogLevel", 5), "wrong-type"},
        PolicyCase{Text(L"LoggingType", L"file; Event"), "none"},
        PolicyCase{Text(L"LoggingType", L"File, Evnt"), "unknown-word"},
        PolicyCase{Text(L"LoggingType", L""), "empty"},
        PolicyCase{Text(L"LoggingType", std::wstring(64, L' ')), "too-long"},
        PolicyCase{Number(L"LoggingType", 1), "wrong-type"}, PolicyCase{Number(L"MaxLogSize", 5), "none"},
        PolicyCase{Number(L"MaxLogSize", 0), "zero"}, PolicyCase{Text(L"MaxLogSize", L"5"), "wrong-type"},
        PolicyCase{Text(L"MaxLogSize", L"10240"), "too-long"}, PolicyCase{Number(L"QueuedWrites", 0), "none"},
        PolicyCase{Text(L"QueuedWrites", L"0"), "wrong-type"},
        PolicyCase{Number(L"Unheard", 1), "unknown-name"}));

TEST(PolicyNameTest, MisspeltNameComesWithTheOneThatItResembles) {
    EXPECT_EQ(JudgePolicy(Text(L"MinLogLevels", L"x"), true).meantName, "MinLogLevel");
    EXPECT_EQ(JudgePolicy(Text(L"LogginType", L"x"), true).meantName, "LoggingType");
    EXPECT_EQ(JudgePolicy(Text(L"Something else", L"x"), true).meantName, "");
    EXPECT_EQ(JudgePolicy(Text(std::wstring(10000, L'M'), L"x"), true).meantName, "");
}

TEST(PolicyNameTest, EmptyOutputsOfTheProductHideNothing) {
    EXPECT_EQ(JudgePolicy(Text(L"LoggingType", L""), false).oddity, "none");
}

TEST(RememberedOddityTest, IsWhatTheServiceDoesNotReadAsWritten) {
    EXPECT_EQ(RememberedOddity(Text(L"PowerOnOff", L"True")), "none");
    EXPECT_EQ(RememberedOddity(Text(L"PowerOnOff", L"False", REG_EXPAND_SZ)), "none");
    EXPECT_EQ(RememberedOddity(Text(L"PowerOnOff", L"")), "none");
    EXPECT_EQ(RememberedOddity(Text(L"PowerOnOff", L"true")), "other-text");
    EXPECT_EQ(RememberedOddity(Number(L"PowerOnOff", 1)), "wrong-type");
    EXPECT_EQ(RememberedOddity(Text(L"PowerOnOff", L"True", REG_MULTI_SZ)), "wrong-type");
    EXPECT_EQ(RememberedOddity(Text(L"PowerOnOff", std::wstring(1024, L'x'))), "too-long");
    RawValue cut = Text(L"PowerOnOff", L"False");
    cut.data.resize(cut.data.size() - sizeof(wchar_t));
    EXPECT_EQ(RememberedOddity(cut), "not-terminated");
    cut.data.resize(1);
    EXPECT_EQ(RememberedOddity(cut), "not-terminated");
    cut.data.clear();
    EXPECT_EQ(RememberedOddity(cut), "none");
}

}  // namespace
