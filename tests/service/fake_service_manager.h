#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"

namespace ServiceTests {

/// Takes the place of the service control manager, for a scope. It has one service at most.
///
///     FakeServiceManager manager{ledger};
///     manager.states = {SERVICE_STOP_PENDING, SERVICE_STOPPED};
///     UninstallService();
///     EXPECT_TRUE(manager.deleted);
///
/// Each call fails while its error is not ERROR_SUCCESS. Every handle is booked; a call with one
/// that is not open fails the test.
class FakeServiceManager {
  public:
    struct Creation {
        std::wstring name;
        std::wstring displayName;
        DWORD access;
        DWORD type;
        DWORD start;
        DWORD errorControl;
        std::wstring path;
        bool hasGroup;
        bool hasTag;
        std::wstring dependencies;  ///< with all nulls but the last
        bool hasAccount;
        bool hasPassword;
    };

    explicit FakeServiceManager(Rig::Ledger& ledger);

    DWORD openManagerError = ERROR_SUCCESS;
    DWORD createError = ERROR_SUCCESS;
    DWORD openServiceError = ERROR_SUCCESS;
    DWORD stopError = ERROR_SUCCESS;
    DWORD queryError = ERROR_SUCCESS;  ///< of every status query that finds `states` empty
    DWORD deleteError = ERROR_SUCCESS;
    DWORD descriptionError = ERROR_SUCCESS;
    DWORD failureActionsError = ERROR_SUCCESS;
    DWORD failureActionsFlagError = ERROR_SUCCESS;

    /// What the stop request says about the service.
    DWORD stateAfterStopRequest = SERVICE_STOP_PENDING;
    /// What the status queries find, one after another; the last one stays unless `queryError`
    /// is set.
    std::vector<DWORD> states{SERVICE_RUNNING};

    // What was asked for.
    std::vector<DWORD> managerAccess;
    std::vector<DWORD> serviceAccess;
    std::vector<std::wstring> openedServices;
    std::vector<Creation> creations;
    std::vector<DWORD> controls;
    int queries = 0;
    bool deleted = false;
    std::vector<std::wstring> descriptions;
    std::vector<SERVICE_FAILURE_ACTIONSW> failureActions;  ///< their pointers only tell null or not
    std::vector<SC_ACTION> restarts;
    std::vector<BOOL> failureActionsFlags;
    /// Which settings of `ChangeServiceConfig2W` were asked for, failed ones too.
    std::vector<DWORD> settings;

  private:
    SC_HANDLE OpenManager(LPCWSTR machine, LPCWSTR database, DWORD access);
    SC_HANDLE OpenTheService(SC_HANDLE manager, LPCWSTR name, DWORD access);
    SC_HANDLE Create(const Creation& creation);
    BOOL Control(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);
    BOOL Query(SC_HANDLE service, SERVICE_STATUS* status);
    BOOL QueryEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer, DWORD bytes, LPDWORD needed);
    BOOL Delete(SC_HANDLE service);
    BOOL Change(SC_HANDLE service, DWORD setting, void* information);
    bool NextState(DWORD& state);
    void ExpectService(SC_HANDLE service) const;

    Rig::Ledger& m_ledger;
    SC_HANDLE m_manager = nullptr;
    SC_HANDLE m_service = nullptr;
    Rig::ScopedImport<&::OpenSCManagerW> m_openManager;
    Rig::ScopedImport<&::OpenServiceW> m_openService;
    Rig::ScopedImport<&::CreateServiceW> m_create;
    Rig::ScopedImport<&::ControlService> m_control;
    Rig::ScopedImport<&::QueryServiceStatus> m_query;
    Rig::ScopedImport<&::QueryServiceStatusEx> m_queryEx;
    Rig::ScopedImport<&::DeleteService> m_delete;
    Rig::ScopedImport<&::ChangeServiceConfig2W> m_change;
};

}  // namespace ServiceTests
