#pragma once

#include "core/service_state.h"
#include "service/service_base.h"

/// The service: owns every long-lived resource of the switching logic. Its start writes its entry into the
/// event log, sets the restart actions and leaves the rest to the start-up worker; its stop takes the
/// subscriptions down in a fixed order and waits for no thread of its own.
class CMainService : public CServiceBase {
  public:
    CMainService();
    CMainService(const CMainService&) = delete;
    CMainService& operator=(const CMainService&) = delete;
    ~CMainService() override;

  protected:
    ServiceState m_state;

  private:
    void OnStart(DWORD argumentCount, wchar_t** arguments) override;
    void OnStop() override;
    void OnShutdown() override;
};
