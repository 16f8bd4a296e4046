#include <gmock/gmock.h>

#include <array>
#include <cwchar>
#include <vector>

#include "logging/log_data.h"
#include "logging/logger.h"
#include "logging/output_listeners.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/policy_keys.h"
#include "tests/logging/recording_listener.h"
#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using Orva::Shared::CorvaLogListenerConsole;
using Orva::Shared::CorvaLogListenerDebug;
using Orva::Shared::CorvaLogListenerEvent;
using Rig::RegistryText;
using Rig::ScopedImport;
using Rig::ScopedResult;
using testing::ElementsAre;
using testing::IsEmpty;

struct Reported {
    HANDLE source;
    WORD type;
    DWORD identifier;
    std::wstring text;

    friend bool operator==(const Reported&, const Reported&) = default;
};

class EventListenerTest : public testing::Test {
  protected:
    const HANDLE m_source = reinterpret_cast<HANDLE>(std::size_t{0x1234});
    HANDLE m_registered = m_source;
    std::wstring m_name;
    int m_deregistered = 0;
    std::vector<Reported> m_reports;
    Policies m_policies;

  private:
    ScopedImport<&::RegisterEventSourceW> m_register{[this](LPCWSTR server, LPCWSTR name) {
        EXPECT_EQ(server, nullptr);
        m_name = name;
        return m_registered;
    }};
    ScopedImport<&::DeregisterEventSource> m_deregister{[this](HANDLE source) {
        EXPECT_EQ(source, m_source);
        ++m_deregistered;
        return TRUE;
    }};
    ScopedImport<&::ReportEventW> m_report{[this](HANDLE source, WORD type, WORD category, DWORD identifier,
                                                  PSID user, WORD count, DWORD bytes, const LPCWSTR* texts,
                                                  void* data) {
        EXPECT_EQ(category, 0);
        EXPECT_EQ(user, nullptr);
        EXPECT_EQ(count, 1);
        EXPECT_EQ(bytes, 0U);
        EXPECT_EQ(data, nullptr);
        m_reports.push_back({source, type, identifier, texts[0]});
        return FALSE;
    }};
};

TEST_F(EventListenerTest, RegistersTheExecutablesBaseNameAndGivesItBack) {
    {
        const CorvaLogListenerEvent listener;
        EXPECT_EQ(m_name, L"logging_tests");
        EXPECT_EQ(listener.GetType(), ListenerType::kEvent);
        EXPECT_EQ(m_deregistered, 0);
    }
    EXPECT_EQ(m_deregistered, 1);
}

TEST_F(EventListenerTest, ReportsWholeLinesByTheirLevel) {
    CorvaLogListenerEvent listener;
    const WORD information = EVENTLOG_INFORMATION_TYPE;
    std::vector<Reported> expected;
    for (const auto& [level, type] : {std::pair<int, WORD>{Level::kTraceIn, information},
                                      {Level::kTraceOut, information},
                                      {Level::kVerbose, information},
                                      {Level::kInformation, information},
                                      {Level::kWarning, EVENTLOG_WARNING_TYPE},
                                      {Level::kError, EVENTLOG_ERROR_TYPE}}) {
        const auto entry = Entry(L"text", level, "A::B");
        listener.Log(entry);
        expected.push_back({m_source, type, static_cast<DWORD>(level), entry.GetLogLine()});
    }
    EXPECT_EQ(m_reports, expected);
    EXPECT_EQ(m_reports[4].text, L"2019/04/05 13:07:09.042|00001A2C|Warning    |A::B|text");
}

TEST_F(EventListenerTest, ReportsNothingAboveErrorWhateverPolicySays) {
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L"Never"));
    CorvaLogListenerEvent listener;
    EXPECT_EQ(listener.MaxLogLevel(), Level::kNever);
    listener.Log(Entry(L"text", Level::kDiag));
    listener.Log(Entry(L"text", Level::kNever));
    EXPECT_THAT(m_reports, IsEmpty());
}

TEST_F(EventListenerTest, ReportsNothingBelowItsRange) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Warning"));
    CorvaLogListenerEvent listener;
    listener.Log(Entry(L"text", Level::kInformation));
    EXPECT_THAT(m_reports, IsEmpty());
    listener.Log(Entry(L"text", Level::kWarning));
    EXPECT_EQ(m_reports.size(), 1U);
}

TEST_F(EventListenerTest, ReportsWithAnEmptyHandleWhenRegistrationFailed) {
    m_registered = nullptr;
    {
        CorvaLogListenerEvent listener;
        listener.Log(Entry(L"text"));
    }
    ASSERT_EQ(m_reports.size(), 1U);
    EXPECT_EQ(m_reports[0].source, nullptr);
    EXPECT_EQ(m_deregistered, 0);
}

TEST_F(EventListenerTest, RegistersNoNameWhenTheExecutableHasNone) {
    const ScopedImport<&::GetModuleFileNameW> nameless{[](HMODULE, LPWSTR path, DWORD) {
        path[0] = L'\0';
        return DWORD{0};
    }};
    const CorvaLogListenerEvent listener;
    EXPECT_EQ(m_name, L"");
}

TEST_F(EventListenerTest, ReportsTheHeaderWhenMemoryIsShort) {
    CorvaLogListenerEvent listener;
    const auto entry = Entry(std::wstring(400, L'x'));
    {
        const ScopedMemoryShortage shortage(600);
        listener.Log(entry);
    }
    ASSERT_EQ(m_reports.size(), 1U);
    EXPECT_EQ(m_reports[0].text, L"2019/04/05 13:07:09.042|00001A2C|Information|");
}

class DebugListenerTest : public testing::Test {
  protected:
    std::vector<std::wstring> m_shown;

  private:
    Policies m_policies;
    ScopedImport<&::OutputDebugStringW> m_output{[this](LPCWSTR text) { m_shown.emplace_back(text); }};
};

TEST_F(DebugListenerTest, ShowsFunctionAndMessage) {
    CorvaLogListenerDebug listener;
    EXPECT_EQ(listener.GetType(), ListenerType::kDebug);
    listener.Log(Entry(L"Started", Level::kInformation, "CMainService::OnStart"));
    listener.Log(Entry(L"", Level::kTraceIn, "A::B"));
    EXPECT_THAT(m_shown, ElementsAre(L"CMainService::OnStart : Started\r\n", L"A::B : \r\n"));
}

TEST_F(DebugListenerTest, ShowsTheWholeOfLongMessages) {
    const std::wstring message(5000, L'm');
    CorvaLogListenerDebug listener;
    listener.Log(Entry(message, Level::kError, "A::B"));
    EXPECT_THAT(m_shown, ElementsAre(L"A::B : " + message + L"\r\n"));
}

TEST_F(DebugListenerTest, ShowsNothingWhenMemoryIsShort) {
    CorvaLogListenerDebug listener;
    const auto entry = Entry(L"text");
    {
        const ScopedMemoryShortage shortage(1);
        listener.Log(entry);
    }
    EXPECT_THAT(m_shown, IsEmpty());
}

TEST(ConsoleListener, PrintsFunctionAndMessage) {
    const Policies policies;
    CorvaLogListenerConsole listener;
    EXPECT_EQ(listener.GetType(), ListenerType::kConsole);
    testing::internal::CaptureStdout();
    listener.Log(Entry(L"Started, 100% %s", Level::kInformation, "CMainService::OnStart"));
    listener.Log(Entry(L"", Level::kTraceIn, "A::B"));
    // Text mode adds a carriage return to that of the line; reading takes one away.
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "CMainService::OnStart : Started, 100% %s\r\nA::B : \r\n");
}

TEST(ConsoleListener, FailureOfTheConsoleLeavesTheOtherOutputsTheirEntry) {
    SKIP_UNLESS_IMPORTED(vwprintf_s);
    const Policies policies;
    std::vector<std::wstring> messages;
    Orva::Shared::CorvaLogListener* const listeners[] = {
        new CorvaLogListenerConsole,
        new RecordingListener({}, [&](const auto& entry) { messages.emplace_back(entry.Message()); })};
    Orva::Shared::CorvaLogger logger(listeners, 2);
    const ScopedResult<&::vwprintf_s> fails{-1, ERROR_INVALID_HANDLE};
    SetLastError(ERROR_CRC);
    logger.Write(Level::kError, "A::B", L"one");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
    logger.Write(Level::kError, "A::B", L"two");
    EXPECT_EQ(fails.Calls(), 2);
    EXPECT_THAT(messages, ElementsAre(L"one", L"two"));
}

// --- The choice of listeners ------------------------------------------------------------------

/// Notes which outputs an entry goes to, in order.
class OutputOrderTest : public testing::Test {
  protected:
    void SetUp() override { SKIP_UNLESS_IMPORTED(_wfopen); }

    std::vector<std::string> OutputsOf(const std::wstring& loggingType) {
        m_policies.OfProduct(L"LoggingType", RegistryText(loggingType));
        auto logger = Orva::Shared::CreateLogger();
        m_outputs.clear();
        testing::internal::CaptureStdout();
        logger->Write(Level::kError, "A::B", L"text");
        if (!testing::internal::GetCapturedStdout().empty()) {
            m_outputs.emplace_back("console");
        }
        if (const auto* const file = logger->PrimaryFileListener()) {
            m_fileType = file->GetType();
        }
        logger.reset();
        return m_outputs;
    }

    Policies m_policies;
    AppData m_appData;
    std::vector<std::string> m_outputs;
    int m_fileType = 0;

  private:
    ScopedResult<&::RegisterEventSourceW> m_register{nullptr};
    ScopedImport<&::ReportEventW> m_report{[this](auto...) {
        m_outputs.emplace_back("event");
        return TRUE;
    }};
    ScopedImport<&::OutputDebugStringW> m_debug{[this](LPCWSTR) { m_outputs.emplace_back("debug"); }};
    std::unique_ptr<ScopedImport<& ::_wfopen>> m_open = Rig::ReplaceIfImported<&::_wfopen>(
        Rig::kWrapping, [this](const auto& original, const wchar_t* path, const wchar_t* mode) {
            m_outputs.emplace_back("file");
            return original.Original(path, mode);
        });
};

TEST_F(OutputOrderTest, IsEventFileDebugConsoleWhateverTheWordsOrder) {
    EXPECT_THAT(OutputsOf(L"Console Debug File Event"), ElementsAre("event", "file", "debug", "console"));
    EXPECT_EQ(m_fileType, ListenerType::kFile);
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("text"));
}

TEST_F(OutputOrderTest, OneAloneWritesNoFile) {
    EXPECT_THAT(OutputsOf(L"event"), ElementsAre("event"));
    EXPECT_THAT(OutputsOf(L"Debug"), ElementsAre("debug"));
    EXPECT_THAT(OutputsOf(L"CONSOLE"), ElementsAre("console"));
    EXPECT_THAT(m_appData.Names(), IsEmpty());
}

TEST_F(OutputOrderTest, FileByNameIsSynchronousAndByDefaultQueuedUnlessPolicySaysOtherwise) {
    std::vector<std::string> messages;
    const auto expectType = [&](const wchar_t* loggingType, int type) {
        EXPECT_THAT(OutputsOf(loggingType), ElementsAre("file"));
        EXPECT_EQ(m_fileType, type);
        messages.emplace_back("text");
        EXPECT_EQ(ReadMessages(m_appData.Log()), messages);
    };
    expectType(L"FILE", ListenerType::kFile);
    expectType(L"", ListenerType::kQueuedFile);
    m_policies.OfExecutable(L"QueuedWrites", Rig::RegistryNumber(1));
    expectType(L"FILE", ListenerType::kQueuedFile);
    m_policies.OfExecutable(L"QueuedWrites", Rig::RegistryNumber(0));
    expectType(L"none", ListenerType::kFile);
}

TEST(CreateLogger, WithoutPolicyMakesOneQueuedFileOfTraceInToError) {
    const Policies policies;
    const AppData appData;
    const Rig::Ledger ledger;
    const auto logger = Orva::Shared::CreateLogger();
    ASSERT_NE(logger->PrimaryFileListener(), nullptr);
    EXPECT_EQ(logger->PrimaryFileListener()->GetType(), ListenerType::kQueuedFile);
    EXPECT_EQ(logger->MinLevel(), Level::kTraceIn);
    EXPECT_EQ(logger->MaxLevel(), Level::kError);
    EXPECT_FALSE(logger->TimingEnabled());
}

TEST(CreateLogger, MaxLogLevelDiagEnablesTiming) {
    const Policies policies;
    const AppData appData;
    policies.OfProduct(L"MaxLogLevel", RegistryText(L"diag"));
    EXPECT_TRUE(Orva::Shared::CreateLogger()->TimingEnabled());
}

TEST(CreateLogger, MinLogLevelNeverSilencesTheLog) {
    const Policies policies;
    const AppData appData;
    policies.OfProduct(L"MinLogLevel", RegistryText(L"silence"));
    auto logger = Orva::Shared::CreateLogger();
    logger->Write(Level::kError, "A::B", L"text");
    logger.reset();
    EXPECT_EQ(ReadBytes(appData.Log()), kByteOrderMark);
}

TEST(CreateLogger, KeepsTheThreadsLastError) {
    const Policies policies;
    const AppData appData;
    // Making it again leaves an error behind.
    appData.MakeLogDirectory();
    SetLastError(ERROR_CRC);
    const auto logger = Orva::Shared::CreateLogger();
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
}

TEST(CreateLogger, GivesEverythingBack) {
    const Policies policies;
    policies.OfProduct(L"LoggingType", RegistryText(L"Event File Debug"));
    policies.OfExecutable(L"QueuedWrites", Rig::RegistryNumber(1));
    const AppData appData;
    const Rig::Ledger ledger;
    auto logger = Orva::Shared::CreateLogger();
    logger->Write(Level::kError, "A::B", L"text");
    logger.reset();
    EXPECT_TRUE(ledger.Balanced(std::chrono::seconds(5)));
}

}  // namespace
}  // namespace LoggingTests
