#include "service/service_installer.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "tests/service/captured_output.h"
#include "tests/service/fake_service_manager.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"

namespace {

using Orva::Shared::Level::kVerbose;
using Rig::Ledger;
using Rig::Line;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using Rig::ScopedResult;
using ServiceTests::CapturedOutput;
using ServiceTests::FakeServiceManager;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using namespace Rig::Lines;

constexpr char kName[] = "InstallService";
constexpr DWORD kPathRoom = 260;  // characters, with the end

class ServiceInstallerTest : public testing::Test {
  protected:
    /// What `InstallService` prints.
    std::string Install() {
        CapturedOutput output;
        InstallService();
        return output.Take();
    }

    LogRecorder log;
    Ledger ledger;
    FakeServiceManager manager{ledger};
    std::wstring path = L"C:\\Program Files\\Linkvane Service\\LinkvaneService.exe";
    ScopedImport<&::GetModuleFileNameW> moduleFileName{
        [this](HMODULE module, LPWSTR text, DWORD characters) -> DWORD {
            EXPECT_EQ(module, nullptr);
            EXPECT_EQ(characters, kPathRoom);
            const std::wstring fitting = path.substr(0, characters - 1);
            std::wmemcpy(text, fitting.c_str(), fitting.size() + 1);
            if (fitting != path) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return characters;
            }
            return static_cast<DWORD>(path.size());
        }};
};

TEST_F(ServiceInstallerTest, ServiceIsRegisteredAndTold) {
    EXPECT_EQ(Install(), "LinkvaneService is installed.\n");
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kName), Information(kName, L"LinkvaneService is installed."),
                                         TraceOut(kName)));
    ASSERT_EQ(manager.creations.size(), 1U);
    const FakeServiceManager::Creation& creation = manager.creations[0];
    EXPECT_EQ(creation.name, L"LinkvaneService");
    EXPECT_EQ(creation.displayName, L"Linkvane Service");
    EXPECT_EQ(creation.access, DWORD{SERVICE_ALL_ACCESS});
    EXPECT_EQ(creation.type, DWORD{SERVICE_WIN32_OWN_PROCESS});
    EXPECT_EQ(creation.start, DWORD{SERVICE_AUTO_START});
    EXPECT_EQ(creation.errorControl, DWORD{SERVICE_ERROR_NORMAL});
    EXPECT_FALSE(creation.hasGroup);
    EXPECT_FALSE(creation.hasTag);
    EXPECT_EQ(creation.dependencies, std::wstring(L"WlanSvc\0WwanSvc\0", 16));
    EXPECT_FALSE(creation.hasAccount);
    EXPECT_FALSE(creation.hasPassword);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceInstallerTest, ManagerIsOpenedToConnectAndCreate) {
    Install();
    EXPECT_THAT(manager.managerAccess, ElementsAre(DWORD{SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE}));
}

TEST_F(ServiceInstallerTest, PathWithBlanksIsRegisteredInQuotes) {
    Install();
    ASSERT_EQ(manager.creations.size(), 1U);
    EXPECT_EQ(manager.creations[0].path, L"\"C:\\Program Files\\Linkvane Service\\LinkvaneService.exe\"");
}

TEST_F(ServiceInstallerTest, LongestPathIsRegisteredWhole) {
    path = L"C:\\" + std::wstring(kPathRoom - 1 - 3, L'x');
    Install();
    ASSERT_EQ(manager.creations.size(), 1U);
    EXPECT_EQ(manager.creations[0].path, L"\"" + path + L"\"");
}

TEST_F(ServiceInstallerTest, LongerPathIsLoggedAndNothingIsPrintedOrRegistered) {
    path = L"C:\\" + std::wstring(kPathRoom - 3, L'x');
    EXPECT_EQ(Install(), "");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"GetModuleFileName failed w/err 0x0000007a")));
    EXPECT_THAT(manager.managerAccess, IsEmpty());
}

TEST_F(ServiceInstallerTest, UnknownPathIsLoggedAndNothingIsPrintedOrRegistered) {
    const ScopedResult<&::GetModuleFileNameW> fails{0, ERROR_ACCESS_DENIED};
    EXPECT_EQ(Install(), "");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"GetModuleFileName failed w/err 0x00000005")));
    EXPECT_THAT(manager.managerAccess, IsEmpty());
}

TEST_F(ServiceInstallerTest, UnknownPathWithoutAnErrorIsAFailureAllTheSame) {
    const ScopedResult<&::GetModuleFileNameW> fails{0, ERROR_SUCCESS};
    EXPECT_EQ(Install(), "");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"GetModuleFileName failed w/err 0x0000001f")));
    EXPECT_THAT(manager.managerAccess, IsEmpty());
}

TEST_F(ServiceInstallerTest, ServiceIsDescribed) {
    Install();
    EXPECT_THAT(manager.descriptions, ElementsAre(L"Linkvane Service"));
    EXPECT_THAT(manager.settings, ElementsAre(DWORD{SERVICE_CONFIG_DESCRIPTION}));
}

TEST_F(ServiceInstallerTest, FailedDescriptionIsPrintedOnlyAndTheServiceIsInstalled) {
    manager.descriptionError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Install(),
              "ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x00000005\n"
              "LinkvaneService is installed.\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Information(kName, L"LinkvaneService is installed.")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceInstallerTest, SecondInstallationShowsItsOwnErrorBehindThatOfTheDescription) {
    manager.createError = ERROR_SERVICE_EXISTS;
    EXPECT_EQ(Install(),
              "ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x00000006\n"
              "CreateService failed w/err 0x00000431\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"CreateService failed w/err 0x00000431")));
    EXPECT_THAT(manager.settings, ElementsAre(DWORD{SERVICE_CONFIG_DESCRIPTION}));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceInstallerTest, ManagerThatCannotBeOpenedIsTold) {
    manager.openManagerError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Install(), "OpenSCManager failed w/err 0x00000005\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"OpenSCManager failed w/err 0x00000005")));
    EXPECT_THAT(manager.creations, IsEmpty());
    EXPECT_THAT(manager.settings, IsEmpty());
}

TEST(ServiceInstallerTimingTest, ElapsedTimeFollowsTheExitLineOfInstallationAndRemoval) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    Ledger ledger;
    FakeServiceManager manager{ledger};
    manager.openManagerError = ERROR_ACCESS_DENIED;
    const CapturedOutput output;
    InstallService();
    UninstallService();
    for (const char* const name : {kName, "UninstallService"}) {
        const std::vector<LogLine> lines = log.Of(name);
        ASSERT_EQ(lines.size(), 4U);
        EXPECT_EQ(lines[2], TraceOut(name));
        EXPECT_THAT(lines[3], Line(Orva::Shared::Level::kDiag, name, StartsWith(L"Elapsed time = ")));
    }
}

}  // namespace
