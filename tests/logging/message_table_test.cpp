#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace LoggingTests {
namespace {

constexpr DWORD kLanguage = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);

/// The sentence under which an entry is shown, without its line end.
std::wstring Sentence(DWORD identifier, std::array<const wchar_t*, 2> texts, DWORD flags = 0) {
    std::array<wchar_t, 500> buffer{};
    std::array<DWORD_PTR, 2> arguments{reinterpret_cast<DWORD_PTR>(texts[0]),
                                       reinterpret_cast<DWORD_PTR>(texts[1])};
    const DWORD characters = FormatMessageW(
        FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY | flags, nullptr, identifier, kLanguage,
        buffer.data(), static_cast<DWORD>(buffer.size()), reinterpret_cast<va_list*>(arguments.data()));
    EXPECT_NE(characters, 0U) << "error " << GetLastError();
    std::wstring sentence(buffer.data());
    while (!sentence.empty() && (sentence.back() == L'\n' || sentence.back() == L'\r')) {
        sentence.pop_back();
    }
    return sentence;
}

constexpr const wchar_t* kLine = L"2019/04/05 13:07:09.042|00001A2C|Error      |A::B|100% %1 text";

TEST(MessageTable, ShowsALineOfTheLogForEveryLevel) {
    for (DWORD level = 1; level <= 5; ++level) {
        EXPECT_EQ(Sentence(level, {kLine, nullptr}), kLine);
    }
}

TEST(MessageTable, ShowsNameAndMessageOfTheServicesOwnEntries) {
    EXPECT_EQ(Sentence(0, {L"LinkvaneService", L"Service Start failed w/err 0x00000005"}),
              L"LinkvaneService\r\nService Start failed w/err 0x00000005");
}

TEST(MessageTable, ShowsATraceLineWholeAndBeforeThePlaceThatHasNoText) {
    // Viewers leave a place without a text as it is written in the message.
    EXPECT_EQ(Sentence(0, {kLine, L"%2"}), std::wstring(kLine) + L"\r\n%2");
    EXPECT_EQ(Sentence(0, {kLine, L""}), kLine);
}

TEST(MessageTable, HasNoPlacesButTheOnesThatEntriesFill) {
    for (DWORD level = 1; level <= 5; ++level) {
        EXPECT_EQ(Sentence(level, {}, FORMAT_MESSAGE_IGNORE_INSERTS), L"%1");
    }
    EXPECT_EQ(Sentence(0, {}, FORMAT_MESSAGE_IGNORE_INSERTS), L"%1\r\n%2");
}

TEST(MessageTable, EndsWithTheHighestLevelThatIsReported) {
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, 6,
                             kLanguage, std::array<wchar_t, 10>{}.data(), 10, nullptr),
              0U);
}

}  // namespace
}  // namespace LoggingTests
