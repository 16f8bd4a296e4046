#include "logging/output_listeners.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "logging/log_data.h"
#include "logging/logger.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/log_test.h"
#include "tests/logging/recording_listener.h"
#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"
#include "tests/support/scoped_watch.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListenerConsole;
using Orva::Shared::CorvaLogListenerDebug;
using Orva::Shared::CorvaLogListenerEvent;
using Orva::Shared::CreateLogger;

// --- The event log ----------------------------------------------------------------------------

class EventListenerTest : public testing::Test {
  protected:
    Rig::TestClock m_clock;
    Rig::SimulatedNotebook m_notebook{m_clock};
    Policies m_policies;
};

/// What the event log has of a line.
std::string Reported(const std::string& line, int level, WORD type = EVENTLOG_INFORMATION_TYPE) {
    return "logging_tests|" + std::to_string(type) + "|0|" + std::to_string(level) + "|\"" + line + "\"";
}

TEST_F(EventListenerTest, ReportsWholeLinesByTheirLevel) {
    const Rig::ScopedWatch<&::RegisterEventSourceW> registration;
    const Rig::ScopedWatch<&::ReportEventW> report;
    {
        CorvaLogListenerEvent listener;
        EXPECT_EQ(listener.GetType(), ListenerType::kEvent);
        std::vector<std::string> expected;
        for (int level = 0; level <= 5; ++level) {
            const auto entry = Entry(L"text", level, "A::B");
            listener.Log(entry);
            const std::wstring line(entry.GetLogLine());
            expected.push_back(Reported(std::string(line.begin(), line.end()), level,
                                        level == 4   ? EVENTLOG_WARNING_TYPE
                                        : level == 5 ? EVENTLOG_ERROR_TYPE
                                                     : EVENTLOG_INFORMATION_TYPE));
        }
        EXPECT_EQ(Rig::SimulatedNotebook::EventLog(), expected);
        EXPECT_EQ(expected[4],
                  "logging_tests|2|0|4|\"2019/04/05 13:07:09.042|00001A2C|Warning    |A::B|text\"");
        EXPECT_EQ(m_notebook.Held().eventSources, 1);
    }
    EXPECT_EQ(m_notebook.Held().eventSources, 0);
    EXPECT_THAT(registration.Arguments(), ElementsAre(FieldsAre(nullptr, _)));
    EXPECT_THAT(report.Arguments(), Each(FieldsAre(_, _, _, _, nullptr, 1, 0U, _, nullptr)));
}

TEST_F(EventListenerTest, ReportsNothingBelowItsRangeNorAboveErrorWhateverPolicySays) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"Warning"));
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L"Never"));
    CorvaLogListenerEvent listener;
    EXPECT_EQ(listener.MaxLogLevel(), Level::kNever);
    for (const int level : {Level::kInformation, Level::kDiag, Level::kNever}) {
        listener.Log(Entry(L"text", level));
    }
    EXPECT_THAT(Rig::SimulatedNotebook::EventLog(), IsEmpty());
    listener.Log(Entry(L"text", Level::kWarning));
    EXPECT_THAT(Rig::SimulatedNotebook::EventLog(), SizeIs(1));
}

TEST_F(EventListenerTest, ReportsWithAnEmptyHandleWhenRegistrationFailed) {
    m_notebook.Fail(Rig::Call::RegisterEventSource, 1, ERROR_ACCESS_DENIED);
    const Rig::ScopedWatch<&::ReportEventW> report;
    { CorvaLogListenerEvent().Log(Entry(L"text")); }
    EXPECT_THAT(report.Arguments(), ElementsAre(FieldsAre(nullptr, _, _, _, _, _, _, _, _)));
    EXPECT_THAT(m_notebook.Calls(), ElementsAre("RegisterEventSourceW", "ReportEventW"));
}

TEST_F(EventListenerTest, RegistersNoNameWhenTheExecutableHasNone) {
    const ScopedResult<&::GetModuleFileNameW> nameless{0};
    CorvaLogListenerEvent().Log(Entry(L"text"));
    EXPECT_THAT(Rig::SimulatedNotebook::EventLog(), ElementsAre(testing::StartsWith("|")));
}

TEST_F(EventListenerTest, ReportsTheHeaderWhenMemoryIsShort) {
    CorvaLogListenerEvent listener;
    const auto entry = Entry(std::wstring(400, L'x'));
    {
        const ScopedMemoryShortage shortage(600);
        listener.Log(entry);
    }
    EXPECT_THAT(Rig::SimulatedNotebook::EventLog(),
                ElementsAre(Reported("2019/04/05 13:07:09.042|00001A2C|Information|", 3)));
}

// --- Debugger and console ---------------------------------------------------------------------

TEST(DebugListener, ShowsFunctionAndMessageUnlessMemoryIsShort) {
    const Policies policies;
    std::vector<std::wstring> shown;
    const ScopedImport<&::OutputDebugStringW> output{[&](LPCWSTR text) { shown.emplace_back(text); }};
    CorvaLogListenerDebug listener;
    EXPECT_EQ(listener.GetType(), ListenerType::kDebug);
    const std::wstring message(5000, L'm');
    const auto longEntry = Entry(message, Level::kError, "A::B");
    listener.Log(Entry(L"Started", Level::kInformation, "CMainService::OnStart"));
    listener.Log(Entry(L"", Level::kTraceIn, "A::B"));
    listener.Log(longEntry);
    {
        const ScopedMemoryShortage shortage(1);
        listener.Log(longEntry);
    }
    EXPECT_THAT(shown, ElementsAre(L"CMainService::OnStart : Started\r\n", L"A::B : \r\n",
                                   L"A::B : " + message + L"\r\n"));
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
    const auto logger = MakeLogger(
        {new CorvaLogListenerConsole,
         new RecordingListener({}, [&](const auto& entry) { messages.emplace_back(entry.Message()); })});
    const ScopedResult<&::vwprintf_s> fails{-1, ERROR_INVALID_HANDLE};
    SetLastError(ERROR_CRC);
    logger->Write(Level::kError, "A::B", L"one");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
    EXPECT_EQ(fails.Calls(), 1);
    EXPECT_THAT(messages, ElementsAre(L"one"));
}

// --- The choice of listeners ------------------------------------------------------------------

/// Notes which outputs an entry goes to, in order.
class CreateLoggerTest : public LogTest {
  protected:
    void SetUp() override { SKIP_UNLESS_IMPORTED(_wfopen); }

    void SetLoggingType(const std::wstring& text) {
        m_policies.OfProduct(L"LoggingType", RegistryText(text));
    }

    std::vector<std::string> Outputs() {
        auto logger = CreateLogger();
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

TEST_F(CreateLoggerTest, OrderIsEventFileDebugConsoleWhateverTheWordsOrder) {
    SetLoggingType(L"Console Debug File Event");
    EXPECT_THAT(Outputs(), ElementsAre("event", "file", "debug", "console"));
    EXPECT_EQ(m_fileType, ListenerType::kFile);
    EXPECT_THAT(Messages(), ElementsAre("text"));
}

TEST_F(CreateLoggerTest, OneOutputAloneWritesNoFile) {
    for (const auto& [word, output] :
         {std::pair(L"event", "event"), std::pair(L"Debug", "debug"), std::pair(L"CONSOLE", "console")}) {
        SetLoggingType(word);
        EXPECT_THAT(Outputs(), ElementsAre(output));
    }
    EXPECT_THAT(m_appData.Names(), IsEmpty());
}

TEST_F(CreateLoggerTest, FileByNameIsSynchronousAndByDefaultQueuedUnlessPolicySaysOtherwise) {
    std::vector<std::string> messages;
    const auto expectType = [&](const wchar_t* loggingType, int type) {
        SetLoggingType(loggingType);
        EXPECT_THAT(Outputs(), ElementsAre("file"));
        EXPECT_EQ(m_fileType, type);
        messages.emplace_back("text");
        EXPECT_EQ(Messages(), messages);
    };
    expectType(L"FILE", ListenerType::kFile);
    expectType(L"", ListenerType::kQueuedFile);
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(1));
    expectType(L"FILE", ListenerType::kQueuedFile);
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(0));
    expectType(L"none", ListenerType::kFile);
}

TEST_F(CreateLoggerTest, WithoutPolicyMakesOneQueuedFileOfTraceInToError) {
    const Rig::Ledger ledger;
    const auto logger = CreateLogger();
    ASSERT_NE(logger->PrimaryFileListener(), nullptr);
    EXPECT_EQ(logger->PrimaryFileListener()->GetType(), ListenerType::kQueuedFile);
    EXPECT_TRUE(logger->Takes(Level::kTraceIn));
    EXPECT_TRUE(logger->Takes(Level::kError));
    EXPECT_FALSE(logger->Takes(Level::kDiag));
    EXPECT_FALSE(logger->TimingEnabled());
}

TEST_F(CreateLoggerTest, MaxLogLevelDiagEnablesTiming) {
    m_policies.OfProduct(L"MaxLogLevel", RegistryText(L"diag"));
    EXPECT_TRUE(CreateLogger()->TimingEnabled());
}

TEST_F(CreateLoggerTest, UnknownMinLogLevelSilencesEveryOutput) {
    m_policies.OfProduct(L"MinLogLevel", RegistryText(L"silence"));
    EXPECT_THAT(Outputs(), IsEmpty());
    SetLoggingType(L"Event File Debug Console");
    EXPECT_THAT(Outputs(), IsEmpty());
    EXPECT_EQ(ReadBytes(m_appData.Log()), kByteOrderMark);
}

TEST_F(CreateLoggerTest, KeepsTheThreadsLastError) {
    // Making it again leaves an error behind.
    m_appData.MakeLogDirectory();
    SetLastError(ERROR_CRC);
    const auto logger = CreateLogger();
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
}

TEST_F(CreateLoggerTest, GivesEverythingBack) {
    SetLoggingType(L"Event File Debug");
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(1));
    const Rig::Ledger ledger;
    CreateLogger()->Write(Level::kError, "A::B", L"text");
    EXPECT_TRUE(ledger.Balanced(std::chrono::seconds(5)));
}

}  // namespace
}  // namespace LoggingTests
