#include "logging/format.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cwchar>
#include <limits>
#include <string>

#include "tests/support/scoped_import.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

using Orva::Shared::FormatText;

/// Formats into so many places, and looks at what lies behind them.
template <std::size_t Places = 200, class... Args>
std::wstring Format(const wchar_t* format, Args... args) {
    std::array<wchar_t, Places + 1> text{};
    text.fill(L'#');
    FormatText(text.data(), Places, format, args...);
    EXPECT_EQ(text.back(), L'#');
    return text.data();
}

TEST(FormatText, HasTheWindowsRuntimesConversions) {
    EXPECT_EQ(Format(L"<%s> <%ws> <%ls>", L"one", L"two", L"three"), L"<one> <two> <three>");
    EXPECT_EQ(Format(L"%S : %s", "CMainService::OnStart", L"Started"), L"CMainService::OnStart : Started");
    EXPECT_EQ(Format(L"<%s>", static_cast<const wchar_t*>(nullptr)), L"<(null)>");
    EXPECT_EQ(Format(L"%d %d", -42, std::numeric_limits<int>::min()), L"-42 -2147483648");
    EXPECT_EQ(Format(L"%u %lu %ld", 4000000000U, 4000000000UL, -2000000000L),
              L"4000000000 4000000000 -2000000000");
    EXPECT_EQ(Format(L"%x %08X 0x%08lx %#x", 0x80041071U, 0x1a2cU, 5UL, 255U),
              L"80041071 00001A2C 0x00000005 0xff");
    EXPECT_EQ(Format(L"Elapsed time = %7.1Lf ms.", 12.34), L"Elapsed time =    12.3 ms.");
    EXPECT_EQ(Format(L"%7.1Lf|%d", 999999.9, 7), L"999999.9|7");
    EXPECT_EQ(Format(L"%-11s|%04d|%02d|%03d", L"Error", 7, 7, 7), L"Error      |0007|07|007");
    EXPECT_EQ(Format(L"100%% done"), L"100% done");
}

TEST(FormatText, CutsAndTerminates) {
    EXPECT_EQ(Format<5>(L"%s", L"abcdefgh"), L"abcd");
    EXPECT_EQ(Format<5>(L"%s", L"abcd"), L"abcd");
    EXPECT_EQ(Format<7>(L"%d %s %S %d", 1, L"xy", "z", 12345), L"1 xy z");
    EXPECT_EQ(Format<1>(L"%s", L"abcd"), L"");
}

TEST(FormatText, LeavesABufferWithoutPlacesAlone) {
    wchar_t place = L'#';
    FormatText(&place, 0, L"%s", L"abcd");
    EXPECT_EQ(place, L'#');
}

TEST(FormatText, EndsWhereAConversionFails) {
    SKIP_UNLESS_IMPORTED(_vsnwprintf);
    // No conversion can be made to fail in the runtime's own locale.
    const Rig::ScopedImport<&::_vsnwprintf> failsHalfway{
        [](wchar_t* buffer, std::size_t characters, const wchar_t* format, va_list) {
            EXPECT_EQ(characters, 9U);
            EXPECT_STREQ(format, L"ab%S");
            buffer[0] = L'a';
            buffer[1] = L'b';
            return -1;
        }};
    EXPECT_EQ(Format<10>(L"ab%S", "narrow"), L"ab");
    EXPECT_EQ(failsHalfway.Calls(), 1);
}

}  // namespace
}  // namespace LoggingTests
