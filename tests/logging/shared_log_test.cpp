// Two processes and one log file.
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "logging/file_listener.h"
#include "platform/handles.h"
#include "tests/logging/held_mutex.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {
namespace {

using Orva::Shared::CorvaLogListenerFile;
using Platform::UniqueHandle;
using testing::ElementsAre;

constexpr int kLines = 10'000;

/// A running `log_writer`; killed at the end of the scope if it is still there.
class LogWriter {
  public:
    LogWriter(const std::wstring& folder, const std::wstring& arguments) {
        std::array<wchar_t, MAX_PATH> path{};
        Rig::Real<&::GetModuleFileNameW>(nullptr, path.data(), static_cast<DWORD>(path.size()));
        std::wstring program = path.data();
        program.erase(program.rfind(L'\\') + 1);
        std::wstring line = L"\"" + program + L"log_writer.exe\" \"" + folder + L"\" " + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        EXPECT_NE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                                 &process),
                  FALSE)
            << "error " << GetLastError();
        m_process.Reset(process.hProcess);
        CloseHandle(process.hThread);
    }
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;
    ~LogWriter() { Kill(); }

    void Kill() {
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
    UniqueHandle m_process;
};

class SharedLogTest : public testing::Test {
  protected:
    /// The messages of all files of the log, the oldest file first.
    [[nodiscard]] std::vector<std::string> AllMessages() const {
        std::vector<std::string> all;
        for (int number = 30; number >= 0; --number) {
            const std::wstring path = number == 0 ? m_appData.File(L"log_writer.log") : Numbered(number);
            if (Exists(path)) {
                const std::vector<std::string> some = ReadMessages(path);
                all.insert(all.end(), some.begin(), some.end());
            }
        }
        return all;
    }

    [[nodiscard]] std::wstring Numbered(int number) const {
        std::array<wchar_t, 40> name{};
        _snwprintf(name.data(), name.size() - 1, L"log_writer_%04d.log", number);
        return m_appData.File(name.data());
    }

    /// Two processes write their lines at the same time.
    void RunTwoWriters() const {
        LogWriter first(m_appData.Path(), L"lines first " + std::to_wstring(kLines));
        LogWriter second(m_appData.Path(), L"lines second " + std::to_wstring(kLines));
        EXPECT_EQ(first.ExitCode(), 0U);
        EXPECT_EQ(second.ExitCode(), 0U);
    }

    Rig::ScopedRegistryTree m_policies{HKEY_LOCAL_MACHINE, L"Software\\Policies\\Orva\\Orva Brimlet Support"};
    AppData m_appData;
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
    m_policies.Write({}, L"MaxLogSize", Rig::RegistryNumber(100'000));
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
    m_policies.Write({}, L"MaxLogSize", Rig::RegistryNumber(64));
    RunTwoWriters();
    EXPECT_TRUE(Exists(Numbered(9)));
    EXPECT_FALSE(Exists(Numbered(10)));
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

/// This process takes the part of a second `log_writer`.
class AbandonedMutexTest : public SharedLogTest {
  protected:
    /// Lets a writer take the file, and kills it while it has it.
    void KillAWriterThatHoldsTheFile() {
        constexpr wchar_t kEvent[] = L"logging_tests_writer_holds";
        const UniqueHandle holds(CreateEventW(nullptr, TRUE, FALSE, kEvent));
        LogWriter writer(m_appData.Path(), L"hold " + std::wstring(kEvent));
        ASSERT_EQ(WaitForSingleObject(holds.Get(), 60'000), WAIT_OBJECT_0);
        writer.Kill();
    }

    [[nodiscard]] std::vector<std::string> Messages() const {
        return ReadMessages(m_appData.File(L"log_writer.log"));
    }

    [[nodiscard]] UniqueHandle OpenMutexOfLog() const {
        return UniqueHandle(
            OpenMutexW(SYNCHRONIZE, FALSE, MutexNameOf(m_appData.File(L"log_writer.log")).c_str()));
    }

  private:
    Rig::ScopedImport<&::GetModuleFileNameW> m_name{[](HMODULE, LPWSTR path, DWORD characters) {
        std::wcsncpy(path, L"C:\\somewhere\\log_writer.exe", characters);
        return DWORD{27};
    }};
};

TEST_F(AbandonedMutexTest, ThreadThatFindsItWritesOnAndKeepsTheOthersWaiting) {
    CorvaLogListenerFile listener(false);
    KillAWriterThatHoldsTheFile();
    // The killed writer never comes back; the line is written all the same, and the next ones too.
    listener.Log(Entry(L"one"));
    listener.Log(Entry(L"two"));
    std::atomic<bool> otherWrote = false;
    std::thread other([&] {
        listener.Log(Entry(L"other"));
        otherWrote = true;
    });
    Sleep(300);
    listener.Log(Entry(L"three"));
    EXPECT_FALSE(otherWrote);
    EXPECT_THAT(Messages(), ElementsAre("one", "two", "three"));
    // Taken twice and released once: this is what is still to be released.
    EXPECT_NE(ReleaseMutex(OpenMutexOfLog().Get()), FALSE);
    other.join();
    EXPECT_THAT(Messages(), ElementsAre("one", "two", "three", "other"));
}

TEST_F(AbandonedMutexTest, AnotherProcessWaitsToo) {
    CorvaLogListenerFile listener(false);
    KillAWriterThatHoldsTheFile();
    listener.Log(Entry(L"one"));
    LogWriter other(m_appData.Path(), L"lines other 1");
    Sleep(500);
    EXPECT_THAT(Messages(), ElementsAre("one"));
    ReleaseMutex(OpenMutexOfLog().Get());
    EXPECT_EQ(other.ExitCode(), 0U);
    EXPECT_THAT(Messages(), ElementsAre("one", "other 0"));
}

TEST_F(AbandonedMutexTest, QueuedWritesGoOn) {
    CorvaLogListenerFile listener(true);
    KillAWriterThatHoldsTheFile();
    const auto writes = [&](const std::wstring& message, std::size_t count) {
        listener.Log(Entry(message));
        return Eventually([&] { return Messages().size() == count; });
    };
    // Each writer keeps the mutex once too often when it ends, which abandons it for the next one.
    EXPECT_TRUE(writes(L"one", 1));
    EXPECT_TRUE(writes(L"two", 2));
    EXPECT_TRUE(writes(L"three", 3));
    EXPECT_THAT(Messages(), ElementsAre("one", "two", "three"));
}

TEST_F(AbandonedMutexTest, ListenerThatBeginsWithItKeepsItForItsThread) {
    UniqueHandle keepsItAlive;
    {
        const CorvaLogListenerFile first(false);
        keepsItAlive = OpenMutexOfLog();
        KillAWriterThatHoldsTheFile();
    }
    CorvaLogListenerFile listener(false);
    listener.Log(Entry(L"one"));
    DWORD result = WAIT_FAILED;
    std::thread([&] { result = WaitForSingleObject(keepsItAlive.Get(), 0); }).join();
    EXPECT_EQ(result, DWORD{WAIT_TIMEOUT});
    EXPECT_THAT(Messages(), ElementsAre("one"));
    ReleaseMutex(keepsItAlive.Get());
}

}  // namespace
}  // namespace LoggingTests
