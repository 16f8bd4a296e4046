#include "tests/service/fake_service_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <utility>

namespace ServiceTests {
namespace {

/// What Windows answers to a null service handle.
constexpr DWORD kNoServiceError = ERROR_INVALID_HANDLE;

BOOL Answer(DWORD error) {
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

/// A list of texts, each with its null, without the null at the end.
std::wstring TextsOf(LPCWSTR list) {
    LPCWSTR end = list;
    while (end != nullptr && *end != L'\0') {
        end += std::wcslen(end) + 1;
    }
    return {list, end};
}

}  // namespace

FakeServiceManager::FakeServiceManager(Rig::Ledger& ledger)
    : m_ledger(ledger),
      m_openManager([this](auto... a) { return OpenManager(a...); }),
      m_openService([this](auto... a) { return OpenTheService(a...); }),
      m_create([this](SC_HANDLE manager, LPCWSTR name, LPCWSTR displayName, DWORD access, DWORD type,
                      DWORD start, DWORD errorControl, LPCWSTR path, LPCWSTR group, LPDWORD tag,
                      LPCWSTR dependencies, LPCWSTR account, LPCWSTR password) {
          EXPECT_EQ(manager, m_manager);
          return Create({name, displayName, access, type, start, errorControl, path, group != nullptr,
                         tag != nullptr, TextsOf(dependencies), account != nullptr, password != nullptr});
      }),
      m_control([this](auto... a) { return Control(a...); }),
      m_query([this](auto... a) { return Query(a...); }),
      m_queryEx([this](auto... a) { return QueryEx(a...); }),
      m_delete([this](auto... a) { return Delete(a...); }),
      m_change([this](auto... a) { return Change(a...); }) {}

SC_HANDLE FakeServiceManager::OpenManager(LPCWSTR machine, LPCWSTR database, DWORD access) {
    EXPECT_EQ(machine, nullptr);
    EXPECT_EQ(database, nullptr);
    managerAccess.push_back(access);
    m_manager =
        Answer(openManagerError) ? m_ledger.MakeHandle<SC_HANDLE>(Rig::Kind::kServiceHandle) : nullptr;
    return m_manager;
}

SC_HANDLE FakeServiceManager::OpenTheService(SC_HANDLE manager, LPCWSTR name, DWORD access) {
    EXPECT_EQ(manager, m_manager);
    openedServices.emplace_back(name);
    serviceAccess.push_back(access);
    m_service =
        Answer(openServiceError) ? m_ledger.MakeHandle<SC_HANDLE>(Rig::Kind::kServiceHandle) : nullptr;
    return m_service;
}

SC_HANDLE FakeServiceManager::Create(const Creation& creation) {
    creations.push_back(creation);
    m_service = Answer(createError) ? m_ledger.MakeHandle<SC_HANDLE>(Rig::Kind::kServiceHandle) : nullptr;
    return m_service;
}

BOOL FakeServiceManager::Control(SC_HANDLE service, DWORD control, SERVICE_STATUS* status) {
    ExpectService(service);
    controls.push_back(control);
    if (!Answer(stopError)) {
        return FALSE;
    }
    *status = {};
    status->dwCurrentState = stateAfterStopRequest;
    return TRUE;
}

bool FakeServiceManager::NextState(DWORD& state) {
    ++queries;
    if (states.empty()) {
        Answer(queryError);
        return false;
    }
    state = states.front();
    if (states.size() > 1 || queryError != ERROR_SUCCESS) {
        states.erase(states.begin());
    }
    return true;
}

BOOL FakeServiceManager::Query(SC_HANDLE service, SERVICE_STATUS* status) {
    ExpectService(service);
    return NextState(status->dwCurrentState) ? TRUE : FALSE;
}

BOOL FakeServiceManager::QueryEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer, DWORD bytes,
                                 LPDWORD needed) {
    ExpectService(service);
    EXPECT_EQ(level, SC_STATUS_PROCESS_INFO);
    EXPECT_EQ(bytes, 36U);
    EXPECT_NE(needed, nullptr);
    return NextState(reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer)->dwCurrentState) ? TRUE : FALSE;
}

BOOL FakeServiceManager::Delete(SC_HANDLE service) {
    ExpectService(service);
    deleted = deleteError == ERROR_SUCCESS;
    return Answer(deleteError);
}

BOOL FakeServiceManager::Change(SC_HANDLE service, DWORD setting, void* information) {
    settings.push_back(setting);
    if (service == nullptr) {
        return Answer(kNoServiceError);
    }
    ExpectService(service);
    switch (setting) {
        case SERVICE_CONFIG_DESCRIPTION:
            descriptions.emplace_back(static_cast<const SERVICE_DESCRIPTIONW*>(information)->lpDescription);
            return Answer(descriptionError);
        case SERVICE_CONFIG_FAILURE_ACTIONS: {
            const auto& actions = *static_cast<const SERVICE_FAILURE_ACTIONSW*>(information);
            failureActions.push_back(actions);
            restarts.assign(actions.lpsaActions, actions.lpsaActions + actions.cActions);
            return Answer(failureActionsError);
        }
        case SERVICE_CONFIG_FAILURE_ACTIONS_FLAG:
            failureActionsFlags.push_back(static_cast<const SERVICE_FAILURE_ACTIONS_FLAG*>(information)
                                              ->fFailureActionsOnNonCrashFailures);
            return Answer(failureActionsFlagError);
        default:
            ADD_FAILURE() << "setting " << setting;
            return Answer(ERROR_INVALID_PARAMETER);
    }
}

void FakeServiceManager::ExpectService(SC_HANDLE service) const {
    EXPECT_NE(service, nullptr);
    EXPECT_EQ(service, m_service);
}

}  // namespace ServiceTests
