#include "service/command_line.h"

#include <cstdio>
#include <string>
#include <vector>

#include "tests/service/fake_com.h"
#include "tests/service/service_test.h"
#include "tests/support/skip_unless_imported.h"

namespace ServiceTests {
namespace {

constexpr char kMain[] = "wmain";
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

class CommandLineTest : public ServiceTest {
  protected:
    CommandLineTest() { servicesRun = 0; }

    /// What the process prints.
    static std::string Run(Arguments arguments, void (*runService)() = &CountService) {
        arguments.insert(arguments.begin(), L"LinkvaneService.exe");
        std::vector<wchar_t*> pointers;
        for (std::wstring& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        return PrintedBy([&] {
            EXPECT_EQ(RunCommandLine(static_cast<int>(arguments.size()), pointers.data(), runService), 0);
        });
    }

    FakeCom com;
};

/// Only the first argument counts.
TEST_F(CommandLineTest, InstallSwitchInstallsTheServiceAndDoesNotRunIt) {
    for (const Arguments& arguments : std::vector<Arguments>{{L"-install"},
                                                             {L"/install"},
                                                             {L"-INSTALL"},
                                                             {L"-Install"},
                                                             {L"/iNSTALL"},
                                                             {L"-install", L"-remove"}}) {
        SimulatedNotebook::Uninstall(kService);
        EXPECT_EQ(Run(arguments), "LinkvaneService is installed.\n");
        EXPECT_TRUE(SimulatedNotebook::IsInstalled(kService));
        EXPECT_EQ(log.Lines().back(), Information(kMain, L"  Install Service."));
    }
    EXPECT_EQ(servicesRun, 0);
    EXPECT_THAT(com.calls, IsEmpty());
}

TEST_F(CommandLineTest, RemoveSwitchRemovesTheServiceAndDoesNotRunIt) {
    for (const wchar_t* const spelling : {L"-remove", L"/remove", L"/Remove", L"-REMOVE"}) {
        SimulatedNotebook::Service(kService).state = SERVICE_STOPPED;
        EXPECT_EQ(Run({spelling}), "LinkvaneService is removed.\n");
        EXPECT_FALSE(SimulatedNotebook::IsInstalled(kService));
        EXPECT_EQ(log.Lines().back(), Information(kMain, L"Uninstall Service."));
    }
    EXPECT_EQ(servicesRun, 0);
    EXPECT_THAT(com.calls, IsEmpty());
}

TEST_F(CommandLineTest, FailuresAreLoggedLikeSuccesses) {
    Run({L"-install"});
    SimulatedNotebook::Uninstall(kService);
    Run({L"-remove"});
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error("InstallService", L"CreateService failed w/err 0x00000431"),
                            Information(kMain, L"  Install Service."),
                            Error("UninstallService", L"OpenService failed w/err 0x00000424"),
                            Information(kMain, L"Uninstall Service.")));
}

TEST_F(CommandLineTest, UnknownSwitchDoesAndSaysNothing) {
    for (const std::wstring& argument : std::initializer_list<std::wstring>{
             L"-", L"/", L"-foo", L"/help", L"/?", L"--install", L"-install ", L"- install", L"-installed",
             L"-instal", L"-removes", L"-" + std::wstring(5000, L'x')}) {
        EXPECT_EQ(Run({argument}), "");
        EXPECT_EQ(Run({argument, L"-install"}), "");
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(servicesRun, 0);
    EXPECT_THAT(notebook.Calls(), IsEmpty());
    EXPECT_THAT(com.calls, IsEmpty());
}

TEST_F(CommandLineTest, WithoutASwitchTheUsageIsPrintedAndTheServiceRuns) {
    int runs = 0;
    for (const Arguments& arguments : std::vector<Arguments>{
             {}, {L""}, {L"install"}, {L"remove"}, {L" -install"}, {L"x", L"-install"}, {L"", L"-remove"}}) {
        log.Clear();
        EXPECT_EQ(Run(arguments), kUsage);
        EXPECT_EQ(servicesRun, ++runs);
        ASSERT_FALSE(log.Lines().empty());
        EXPECT_EQ(log.Lines().back().function, "InitializeSecurity");
    }
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

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

TEST_F(CommandLineTest, StartFromAConsoleIsLoggedAndPrinted) {
    const ScopedResult<&::StartServiceCtrlDispatcherW> fails{FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT};
    EXPECT_EQ(Run({}, &RunPlainService), std::string(kUsage) + kDispatcherFailed);
    EXPECT_EQ(fails.Calls(), 1);
    EXPECT_EQ(log.Lines().back(), Error(kMain, L"Service failed to run w/err 0x00000427"));
}

TEST_F(CommandLineTest, ServiceRunsWhenComIsSecuredAndSaysNothingWhenItHasStopped) {
    const ScopedImport<&::StartServiceCtrlDispatcherW> dispatcher{
        [this](const SERVICE_TABLE_ENTRYW* table) -> BOOL {
            EXPECT_STREQ(table[0].lpServiceName, L"PlainService");
            EXPECT_FALSE(log.Of("InitializeSecurity").empty());
            return TRUE;
        }};
    EXPECT_EQ(Run({}, &RunPlainService), kUsage);
    EXPECT_EQ(dispatcher.Calls(), 1);
    EXPECT_EQ(log.Lines().back().function, "InitializeSecurity");
}

}  // namespace
}  // namespace ServiceTests
