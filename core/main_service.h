#pragma once

#include <windows.h>
#include <netlistmgr.h>
#include <ocidl.h>
#include <wlanapi.h>
#include <wrl/client.h>

#include <atomic>

#include "network/nlm_event_handler.h"
#include "network/wired_connections.h"
#include "platform/handles.h"
#include "platform/mbn_api.h"
#include "radio/mbn_sinks.h"
#include "service/service_base.h"

class LogScope;

/// The service: owns every long-lived resource of the switching logic. Its start sets the restart
/// actions and leaves the rest to the start-up worker; its stop takes the subscriptions down in a fixed
/// order and waits for no thread of its own.
///
/// The fields are not locked. `OnStop` clears them on the control thread while the worker, the
/// airplane-mode watcher and event handlers may still run. The worker sets each COM field once, `OnStop`
/// clears it, and whoever else reads one holds a reference of its own to the object by then. The
/// watcher's event is taken out while it is signalled, the WLAN handle while it is in use.
class CMainService : public CServiceBase {
  public:
    CMainService();
    CMainService(const CMainService&) = delete;
    CMainService& operator=(const CMainService&) = delete;
    ~CMainService() override;

    /// The WLAN interface calls it on a thread of its own. `context` is not used.
    static void WINAPI WlanNotificationCallback(WLAN_NOTIFICATION_DATA* data, void* context);

  protected:
    void OnStart(DWORD argumentCount, wchar_t** arguments) override;
    void OnStop() override;
    void OnShutdown() override;

    /// Everything at start that may take long: COM, BIOS settings, subscriptions, first decisions.
    void ServiceWorkerThread();
    /// Follows airplane mode until the service stops.
    void AirplaneModeWatcher();

    /// Bring a radio back to its remembered state, on or off.
    void UpdateWlanPowerStatus();
    void UpdateWwanPowerStatus();

    /// Subscribes to the Network List Manager's events. (Not to those of WLAN, despite its name.)
    void ListenForWlanEvents();
    /// Subscribes to the Mobile Broadband API's radio events.
    void ListenForWwanEvents();

    /// Registers for WLAN notifications (`*registers` not 0) or takes the registration back. Opens
    /// the WLAN handle when there is none. The Win32 error, ERROR_SUCCESS on success.
    DWORD RegisterWlanNotification(const unsigned char* registers);
    /// What a notification leads to, on the thread that WLAN calls on, one at a time: a network has
    /// become available; a PHY's radio state has changed. Failures are logged. What is thrown inside the
    /// second stays there; what is thrown inside the first is the callback's to catch.
    static void HandleWlanNotificationAcmNetworkAvailable();
    static void HandleWlanNotificationMsmRadioStateChange();

    // The order is that of the tear-down of subscriptions, and the reverse of what the destructor
    // releases when the service was never stopped.
    // The first is never deleted: the worker and network events may outlive this object, and what
    // they do then still reaches the set. It goes with the process.
    WiredConnections* const m_wiredConnections = new WiredConnections;
    Microsoft::WRL::ComPtr<IConnectionPoint> m_networkListManagerEvents;
    Microsoft::WRL::ComPtr<IConnectionPoint> m_networkConnectionEvents;
    Microsoft::WRL::ComPtr<IConnectionPoint> m_networkEvents;
    Microsoft::WRL::ComPtr<IConnectionPoint> m_mbnRadioEvents;
    Microsoft::WRL::ComPtr<INetworkListManager> m_networkListManager;
    Microsoft::WRL::ComPtr<IMbnInterfaceManager> m_mbnInterfaceManager;
    DWORD m_networkListManagerCookie = 0;
    DWORD m_networkConnectionCookie = 0;
    DWORD m_networkCookie = 0;
    DWORD m_mbnRadioCookie = 0;
    NLMEventHandler* m_networkEventHandler = nullptr;  ///< one reference, released by `OnStop`
    CMbnSinks* m_mbnSinks = nullptr;                   ///< one reference, released by `OnStop`
    std::atomic<bool> m_running{false};
    Platform::SharedHandle m_airplaneWatcherEvent;  ///< closed by the watcher, or else at the end
    Platform::SharedWlanHandle m_wlanHandle;        ///< closed by `OnStop`

  private:
    /// False, with an error line, when there is no event.
    bool CreateAirplaneWatcherEvent(const LogScope& log);
    void SignalAirplaneWatcher(const LogScope& log);
    void CloseWlanHandle(const LogScope& log);

    // The worker's steps write under its name. Those that give a boolean return false when the
    // worker is to end at once.
    bool SetUpAndDecide(const LogScope& log);
    bool SetUpWlan(const LogScope& log);
    void DecideWlan(const LogScope& log);
    bool SetUpWwan(const LogScope& log);
    void DecideWwan(const LogScope& log);

    void SubscribeToNetworkEvents(const LogScope& log,
                                  const Microsoft::WRL::ComPtr<INetworkListManager>& manager);
    // The sinks count from 0. The field's reference is counted here, and a second one is given to
    // the caller, who may still work with a sink that `OnStop` has let go of. Null, with an error
    // line, when there is no memory.
    Microsoft::WRL::ComPtr<NLMEventHandler> CreateNetworkEventHandler(const LogScope& log,
                                                                      INetworkListManager* manager);
    Microsoft::WRL::ComPtr<CMbnSinks> CreateMbnSinks(const LogScope& log);

    /// Opens the watched key into `key`, in place of the one before, arms the notification on it
    /// and waits for a change or for the service to stop; not where either came before the arming, a
    /// change being an airplane mode other than `actedOn`. False when one of the steps failed.
    bool WaitForRadioStateChange(const LogScope& log, Platform::UniqueRegistryKey& key, bool actedOn);
    /// The airplane mode that it acted on last.
    bool FollowAirplaneMode(const LogScope& log);
};
