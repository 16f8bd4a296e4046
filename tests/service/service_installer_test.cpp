#include "service/service_installer.h"

#include <cwchar>
#include <string>
#include <vector>

#include "tests/service/service_test.h"

namespace ServiceTests {
namespace {

constexpr char kInstallService[] = "InstallService";
constexpr DWORD kPathRoom = 260;  // characters, with the end

class ServiceInstallerTest : public ServiceTest {
  protected:
    ServiceInstallerTest() { SimulatedNotebook::Uninstall(kService); }

    static std::string Install() { return PrintedBy(&InstallService); }

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

TEST_F(ServiceInstallerTest, ServiceIsRegisteredDescribedAndTold) {
    EXPECT_EQ(Install(), "LinkvaneService is installed.\n");
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kInstallService),
                                         Information(kInstallService, L"LinkvaneService is installed."),
                                         TraceOut(kInstallService)));
    EXPECT_THAT(notebook.Calls(), ElementsAre("OpenSCManagerW 0x3", "CreateServiceW LinkvaneService 0xf01ff",
                                              "ChangeServiceConfig2W 1"));
    const auto& service = SimulatedNotebook::Service(kService);
    EXPECT_EQ(service.displayName, L"Linkvane Service");
    EXPECT_EQ(service.type, DWORD{SERVICE_WIN32_OWN_PROCESS});
    EXPECT_EQ(service.startType, DWORD{SERVICE_AUTO_START});
    EXPECT_EQ(service.errorControl, DWORD{SERVICE_ERROR_NORMAL});
    EXPECT_FALSE(service.hasMore);
    EXPECT_THAT(service.dependencies, ElementsAre(L"WlanSvc", L"WwanSvc"));
    EXPECT_EQ(service.path, L"\"C:\\Program Files\\Linkvane Service\\LinkvaneService.exe\"");
    EXPECT_EQ(service.description, L"Linkvane Service");
}

TEST_F(ServiceInstallerTest, LongestPathIsRegisteredWhole) {
    path = L"C:\\" + std::wstring(kPathRoom - 1 - 3, L'x');
    Install();
    EXPECT_EQ(SimulatedNotebook::Service(kService).path, L"\"" + path + L"\"");
}

/// A failure that left no error is one all the same.
TEST_F(ServiceInstallerTest, PathThatIsUnknownOrTooLongIsLoggedAndNothingIsPrintedOrRegistered) {
    for (const DWORD error : {ERROR_ACCESS_DENIED, ERROR_SUCCESS}) {
        const ScopedResult<&::GetModuleFileNameW> fails{0, error};
        EXPECT_EQ(Install(), "");
    }
    path = L"C:\\" + std::wstring(kPathRoom - 3, L'x');
    EXPECT_EQ(Install(), "");
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kInstallService, L"GetModuleFileName failed w/err 0x00000005"),
                            Error(kInstallService, L"GetModuleFileName failed w/err 0x0000001f"),
                            Error(kInstallService, L"GetModuleFileName failed w/err 0x0000007a")));
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

TEST_F(ServiceInstallerTest, FailedDescriptionIsPrintedOnlyAndTheServiceIsInstalled) {
    notebook.FailEach(Call::ChangeServiceConfig2, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Install(),
              "ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x00000005\n"
              "LinkvaneService is installed.\n");
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Information(kInstallService, L"LinkvaneService is installed.")));
}

TEST_F(ServiceInstallerTest, SecondInstallationShowsItsOwnErrorBehindThatOfTheDescription) {
    SimulatedNotebook::Service(kService).path = L"as it was";
    EXPECT_EQ(Install(),
              "ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x00000006\n"
              "CreateService failed w/err 0x00000431\n");
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kInstallService, L"CreateService failed w/err 0x00000431")));
    EXPECT_EQ(SimulatedNotebook::Service(kService).path, L"as it was");
}

TEST_F(ServiceInstallerTest, ManagerThatCannotBeOpenedIsTold) {
    notebook.FailEach(Call::OpenSCManager, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Install(), "OpenSCManager failed w/err 0x00000005\n");
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kInstallService, L"OpenSCManager failed w/err 0x00000005")));
    EXPECT_THAT(notebook.Calls(), ElementsAre("OpenSCManagerW 0x3"));
}

}  // namespace
}  // namespace ServiceTests
