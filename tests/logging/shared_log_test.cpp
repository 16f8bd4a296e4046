// Two processes and one log file.
#include <gmock/gmock.h>
#include <process.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/handles.h"
#include "tests/logging/log_test.h"

namespace LoggingTests {
namespace {

constexpr int kLines = 10'000;

/// A running `log_writer`; killed at the end of the scope if it is still there.
class LogWriter {
  public:
    LogWriter(const std::wstring& folder, const std::wstring& arguments) {
        std::wstring program(MAX_PATH, L'\0');
        GetModuleFileNameW(nullptr, program.data(), MAX_PATH);
        program.erase(program.rfind(L'\\') + 1);
        const std::intptr_t process =
            _wspawnl(_P_NOWAIT, (program + L"log_writer.exe").c_str(), L"log_writer",
                     (L"\"" + folder + L"\"").c_str(), arguments.c_str(), nullptr);
        EXPECT_NE(process, -1);
        m_process.Reset(reinterpret_cast<HANDLE>(process));
    }
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;
    ~LogWriter() {
        TerminateProcess(m_process.Get(), 9);
        WaitForSingleObject(m_process.Get(), INFINITE);
    }

    [[nodiscard]] DWORD ExitCode() {
        WaitForSingleObject(m_process.Get(), 100'000);
        DWORD code = STILL_ACTIVE;
        GetExitCodeProcess(m_process.Get(), &code);
        return code;
    }

  private:
    Platform::UniqueHandle m_process;
};

class SharedLogTest : public LogTest {
  protected:
    SharedLogTest() : LogTest(L"log_writer") {}

    /// The messages of all files of the log, the oldest file first.
    [[nodiscard]] std::vector<std::string> AllMessages() const {
        std::vector<std::string> all;
        for (int number = 30; number >= 0; --number) {
            const std::wstring path = number == 0 ? m_appData.Log() : m_appData.Log(number);
            if (Exists(path)) {
                const std::vector<std::string> some = ReadMessages(path);
                all.insert(all.end(), some.begin(), some.end());
            }
        }
        return all;
    }

    /// Two processes write their lines at the same time.
    void RunTwoWriters() const {
        LogWriter first(m_appData.Path(), L"lines first " + std::to_wstring(kLines));
        LogWriter second(m_appData.Path(), L"lines second " + std::to_wstring(kLines));
        EXPECT_EQ(first.ExitCode(), 0U);
        EXPECT_EQ(second.ExitCode(), 0U);
    }
};

/// The numbers of each tag, in the order of the lines.
std::map<std::string, std::vector<int>> NumbersByTag(const std::vector<std::string>& messages) {
    std::map<std::string, std::vector<int>> numbers;
    for (const std::string& message : messages) {
        const std::size_t blank = message.find(' ');
        if (blank == std::string::npos) {
            ADD_FAILURE() << "a torn line: " << message;
            continue;
        }
        numbers[message.substr(0, blank)].push_back(std::stoi(message.substr(blank + 1)));
    }
    return numbers;
}

/// Whether the numbers end with the last line and leave none out.
void ExpectUnbrokenToTheEnd(const std::vector<int>& numbers) {
    ASSERT_FALSE(numbers.empty());
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers[i], numbers[i - 1] + 1);
    }
    EXPECT_EQ(numbers.back(), kLines - 1);
}

TEST_F(SharedLogTest, EveryLineOfTwoProcessesStandsWholeInTheFile) {
    // No rotation gets in the way.
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(100'000));
    RunTwoWriters();
    const auto numbers = NumbersByTag(AllMessages());
    ASSERT_EQ(numbers.size(), 2U);
    for (const auto& [tag, ofTag] : numbers) {
        EXPECT_EQ(ofTag.size(), std::size_t{kLines}) << tag;
        ExpectUnbrokenToTheEnd(ofTag);
    }
}

TEST_F(SharedLogTest, LinesOfTwoProcessesAreLostOnlyWithFilesThatRotationDeletes) {
    // Twenty thousand lines of some eighty bytes are many times this.
    m_policies.OfProduct(L"MaxLogSize", RegistryNumber(64));
    RunTwoWriters();
    EXPECT_TRUE(Exists(m_appData.Log(9)));
    EXPECT_FALSE(Exists(m_appData.Log(10)));
    const auto numbers = NumbersByTag(AllMessages());
    ASSERT_FALSE(numbers.empty());
    for (const auto& [tag, ofTag] : numbers) {
        SCOPED_TRACE(tag);
        ExpectUnbrokenToTheEnd(ofTag);
    }
}

TEST_F(SharedLogTest, LoggerIsMadeOnceWhenManyThreadsAreTheFirstToAsk) {
    EXPECT_EQ(LogWriter(m_appData.Path(), L"first 4").ExitCode(), 1U);
}

TEST_F(SharedLogTest, QueueIsWrittenWhenTheProcessExits) {
    EXPECT_EQ(LogWriter(m_appData.Path(), L"exit 500").ExitCode(), 0U);
    const std::vector<std::string> messages = AllMessages();
    ASSERT_EQ(messages.size(), 500U);
    EXPECT_EQ(messages.back(), "exit 499");
}

}  // namespace
}  // namespace LoggingTests
