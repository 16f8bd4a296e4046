#include "service/command_line.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cwchar>
#include <ostream>
#include <string>
#include <vector>

#include "tests/service/captured_output.h"
#include "tests/service/fake_com.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/skip_unless_imported.h"

namespace {

using Orva::Shared::Level::kVerbose;
using Rig::LogRecorder;
using Rig::ScopedImport;
using Rig::ScopedResult;
using Rig::SimulatedNotebook;
using ServiceTests::CapturedOutput;
using ServiceTests::FakeCom;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace Rig::Lines;

constexpr char kName[] = "wmain";
constexpr char kUsage[] =
    "Parameters:\n"
    " -install  to install the service.\n"
    " -remove   to remove the service.\n";
constexpr char kDispatcherFailed[] = "Service failed to run w/err 0x00000427\n";

/// A service that only has its name.
class PlainService : public CServiceBase {
  public:
    PlainService() : CServiceBase(L"PlainService") {}
    void OnContinue() override {}
};

int servicesRun = 0;

void CountService() {
    ++servicesRun;
}

void RunPlainService() {
    PlainService service;
    RunUntilStopped(service);
}

/// Arguments behind the program's name.
using Arguments = std::vector<std::wstring>;

class CommandLineTest : public testing::Test {
  protected:
    CommandLineTest() { servicesRun = 0; }

    /// What the process prints.
    std::string Run(Arguments arguments, void (*runService)() = &CountService) {
        arguments.insert(arguments.begin(), L"LinkvaneService.exe");
        std::vector<wchar_t*> pointers;
        for (std::wstring& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        CapturedOutput output;
        EXPECT_EQ(RunCommandLine(static_cast<int>(arguments.size()), pointers.data(), runService), 0);
        return output.Take();
    }

    LogRecorder log;
    Rig::TestClock clock;
    SimulatedNotebook notebook{clock};
    FakeCom com;
};

constexpr wchar_t kService[] = L"LinkvaneService";

class InstallSwitchTest : public CommandLineTest, public testing::WithParamInterface<std::wstring> {};

TEST_P(InstallSwitchTest, ServiceIsInstalledAndNotRun) {
    SimulatedNotebook::Uninstall(kService);
    EXPECT_EQ(Run({GetParam()}), "LinkvaneService is installed.\n");
    EXPECT_TRUE(SimulatedNotebook::IsInstalled(kService));
    EXPECT_EQ(servicesRun, 0);
    EXPECT_THAT(com.calls, IsEmpty());
    EXPECT_EQ(log.Lines().back(), Information(kName, L"  Install Service."));
}

INSTANTIATE_TEST_SUITE_P(Spellings, InstallSwitchTest,
                         testing::Values(L"-install", L"/install", L"-INSTALL", L"-Install", L"/iNSTALL"));

class RemoveSwitchTest : public CommandLineTest, public testing::WithParamInterface<std::wstring> {};

TEST_P(RemoveSwitchTest, ServiceIsRemovedAndNotRun) {
    SimulatedNotebook::Service(kService).state = SERVICE_STOPPED;
    EXPECT_EQ(Run({GetParam()}), "LinkvaneService is removed.\n");
    EXPECT_FALSE(SimulatedNotebook::IsInstalled(kService));
    EXPECT_EQ(servicesRun, 0);
    EXPECT_THAT(com.calls, IsEmpty());
    EXPECT_EQ(log.Lines().back(), Information(kName, L"Uninstall Service."));
}

INSTANTIATE_TEST_SUITE_P(Spellings, RemoveSwitchTest,
                         testing::Values(L"-remove", L"/remove", L"/Remove", L"-REMOVE"));

TEST_F(CommandLineTest, FailuresAreLoggedLikeSuccesses) {
    Run({L"-install"});
    SimulatedNotebook::Uninstall(kService);
    Run({L"-remove"});
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error("InstallService", L"CreateService failed w/err 0x00000431"),
                            Information(kName, L"  Install Service."),
                            Error("UninstallService", L"OpenService failed w/err 0x00000424"),
                            Information(kName, L"Uninstall Service.")));
}

class UnknownSwitchTest : public CommandLineTest, public testing::WithParamInterface<Arguments> {};

TEST_P(UnknownSwitchTest, NothingIsDoneOrSaid) {
    EXPECT_EQ(Run(GetParam()), "");
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(servicesRun, 0);
    EXPECT_THAT(notebook.Calls(), IsEmpty());
    EXPECT_THAT(com.calls, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Switches, UnknownSwitchTest,
                         testing::Values(Arguments{L"-"}, Arguments{L"/"}, Arguments{L"-foo"},
                                         Arguments{L"/help"}, Arguments{L"/?"}, Arguments{L"--install"},
                                         Arguments{L"-install "}, Arguments{L"- install"},
                                         Arguments{L"-installed"}, Arguments{L"-instal"},
                                         Arguments{L"-removes"}, Arguments{L"-foo", L"-install"},
                                         Arguments{L"-", L"remove"},
                                         Arguments{L"-" + std::wstring(5000, L'x')}));

class NoSwitchTest : public CommandLineTest, public testing::WithParamInterface<Arguments> {};

TEST_P(NoSwitchTest, UsageIsPrintedAndTheServiceRuns) {
    EXPECT_EQ(Run(GetParam()), kUsage);
    EXPECT_EQ(servicesRun, 1);
    EXPECT_THAT(notebook.Calls(), IsEmpty());
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().back().function, "InitializeSecurity");
}

INSTANTIATE_TEST_SUITE_P(Arguments, NoSwitchTest,
                         testing::Values(Arguments{}, Arguments{L""}, Arguments{L"install"},
                                         Arguments{L"remove"}, Arguments{L" -install"},
                                         Arguments{L"x", L"-install"}, Arguments{L"", L"-remove"}));

TEST_F(CommandLineTest, UsageIsWrittenLineByLine) {
    SKIP_UNLESS_IMPORTED(fputws);
    std::vector<std::wstring> written;
    const ScopedImport<&::fputws> writes{[&](const wchar_t* text, FILE* stream) {
        EXPECT_EQ(stream, stdout);
        written.emplace_back(text);
        return writes.Original(text, stream);
    }};
    Run({});
    EXPECT_THAT(written, ElementsAre(L"Parameters:\n", L" -install  to install the service.\n",
                                     L" -remove   to remove the service.\n"));
}

TEST_F(CommandLineTest, UsageIsPrintedBeforeComIsSecured) {
    std::vector<std::string> printed;
    const ScopedImport<&::InitializeSecurityDescriptor> begins{[&](auto... arguments) {
        printed.push_back(CapturedOutput::SoFar());
        return begins.Original(arguments...);
    }};
    Run({});
    EXPECT_THAT(printed, ElementsAre(kUsage));
}

TEST_F(CommandLineTest, ArgumentsBehindTheFirstAreIgnored) {
    SimulatedNotebook::Uninstall(kService);
    EXPECT_EQ(Run({L"-install", L"-remove"}), "LinkvaneService is installed.\n");
    EXPECT_TRUE(SimulatedNotebook::IsInstalled(kService));
}

TEST_F(CommandLineTest, StartFromAConsoleIsLoggedAndPrinted) {
    const ScopedResult<&::StartServiceCtrlDispatcherW> fails{FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT};
    EXPECT_EQ(Run({}, &RunPlainService), std::string(kUsage) + kDispatcherFailed);
    EXPECT_EQ(fails.Calls(), 1);
    EXPECT_EQ(log.Lines().back(), Error(kName, L"Service failed to run w/err 0x00000427"));
}

TEST_F(CommandLineTest, ServiceThatHasStoppedSaysNothing) {
    const ScopedImport<&::StartServiceCtrlDispatcherW> dispatcher{
        [](const SERVICE_TABLE_ENTRYW* table) -> BOOL {
            EXPECT_STREQ(table[0].lpServiceName, L"PlainService");
            return TRUE;
        }};
    EXPECT_EQ(Run({}, &RunPlainService), kUsage);
    EXPECT_EQ(dispatcher.Calls(), 1);
    EXPECT_EQ(log.Lines().back().function, "InitializeSecurity");
}

TEST_F(CommandLineTest, ComIsSecuredBeforeTheServiceRuns) {
    const ScopedImport<&::StartServiceCtrlDispatcherW> dispatcher{
        [this](const SERVICE_TABLE_ENTRYW*) -> BOOL {
            EXPECT_FALSE(log.Of("InitializeSecurity").empty());
            return TRUE;
        }};
    Run({}, &RunPlainService);
    EXPECT_EQ(dispatcher.Calls(), 1);
}

}  // namespace
