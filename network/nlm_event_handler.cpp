#include "network/nlm_event_handler.h"

#include <wrl/client.h>

#include <chrono>
#include <optional>

#include "bios/bios_settings.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "network/connection_adapter.h"
#include "network/network_diagnostics.h"
#include "platform/handles.h"
#include "platform/pause.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_radio.h"

std::atomic<bool> msm_Notification_flag{false};

namespace {

/// How long a freshly plugged adapter is given to get its address: so many tries, so far apart.
constexpr int kAddressTries = 8;
constexpr std::chrono::milliseconds kAddressPollInterval{1000};

/// Waits while an Ethernet adapter has no address yet. Whether the link is up.
bool WaitForAddress(const LogScope& log) {
    bool isCableIn = false;
    bool awaitsAddress = false;
    int tries = 0;
    do {
        isCableIn = NLMUtils::IsCableIn(&awaitsAddress).value_or(false);
        if (isCableIn && !awaitsAddress) {
            break;
        }
        log.Warning(L"CheckEthernetConnectionStatus failed in try %d", tries);
        Platform::Pause(kAddressPollInterval);
        ++tries;
        // `awaitsAddress` keeps what an earlier try saw: the try that finds the address still costs its
        // line and its pause.
    } while (!isCableIn && tries < kAddressTries && awaitsAddress);
    return isCableIn;
}

void SwitchRadiosOff(const LogScope& log) {
    log.Information(L"Ethernet is connected");
    if (NLMUtils::lanWlanSwitchingEnabled) {
        log.Information(L"Connecting to Ethernet. Stop WLAN service...");
        ServiceUtils::StopWLANService();
    }
    if (NLMUtils::lanWwanSwitchingEnabled) {
        log.Information(L"Connecting to Ethernet. Stop WWAN service...");
        ServiceUtils::StopWWANService();
    }
}

void BringRadiosBack(const LogScope& log) {
    if (NLMUtils::lanWlanSwitchingEnabled) {
        log.Information(L"The disconnecting connection was Ethernet. Start WLAN service...");
        ServiceUtils::StartWLANService();
    }
    if (NLMUtils::lanWwanSwitchingEnabled) {
        log.Information(L"The disconnecting connection was Ethernet. Start WWAN service...");
        ServiceUtils::StartWWANService();
    }
}

}  // namespace

NLMEventHandler::NLMEventHandler(INetworkListManager* networkListManager, WiredConnections* wiredConnections)
    : m_networkListManager(networkListManager), m_wiredConnections(wiredConnections) {
    const LogScope log("NLMEventHandler::NLMEventHandler");
}

NLMEventHandler::~NLMEventHandler() {
    const LogScope log("NLMEventHandler::~NLMEventHandler");
    log.Guard([] { ReleaseAdapters(); });
}

HRESULT NLMEventHandler::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    IUnknown* found = nullptr;
    if (IsEqualIID(interfaceId, IID_IUnknown) || IsEqualIID(interfaceId, IID_INetworkListManagerEvents)) {
        found = static_cast<INetworkListManagerEvents*>(this);
    } else if (IsEqualIID(interfaceId, IID_INetworkConnectionEvents)) {
        found = static_cast<INetworkConnectionEvents*>(this);
    } else if (IsEqualIID(interfaceId, IID_INetworkEvents)) {
        found = static_cast<INetworkEvents*>(this);
    } else {
        return E_NOINTERFACE;
    }
    *object = found;
    found->AddRef();
    return S_OK;
}

ULONG NLMEventHandler::Release() {
    const ULONG references = --m_references;
    if (references == 0) {
        delete this;
    }
    return references;
}

HRESULT NLMEventHandler::ConnectivityChanged(NLM_CONNECTIVITY connectivity) {
    const LogScope log("NLMEventHandler::ConnectivityChanged", L"NLM_CONNECTIVITY = %d", connectivity);
    return S_OK;
}

HRESULT NLMEventHandler::NetworkAdded(GUID /*networkId*/) {
    const LogScope log("NLMEventHandler::NetworkAdded");
    return S_OK;
}

HRESULT NLMEventHandler::NetworkDeleted(GUID /*networkId*/) {
    const LogScope log("NLMEventHandler::NetworkDeleted");
    return S_OK;
}

HRESULT NLMEventHandler::NetworkConnectivityChanged(GUID /*networkId*/, NLM_CONNECTIVITY connectivity) {
    const LogScope log("NLMEventHandler::NetworkConnectivityChanged", L"NLM_CONNECTIVITY = %d", connectivity);
    return S_OK;
}

HRESULT NLMEventHandler::NetworkPropertyChanged(GUID /*networkId*/, NLM_NETWORK_PROPERTY_CHANGE flags) {
    const LogScope log("NLMEventHandler::NetworkPropertyChanged", L"NLM_NETWORK_PROPERTY_CHANGE = %d", flags);
    return S_OK;
}

HRESULT NLMEventHandler::NetworkConnectionPropertyChanged(GUID /*connectionId*/,
                                                          NLM_CONNECTION_PROPERTY_CHANGE flags) {
    const LogScope log("NLMEventHandler::NetworkConnectionPropertyChanged",
                       L"NLM_CONNECTION_PROPERTY_CHANGE = %d", flags);
    return S_OK;
}

HRESULT NLMEventHandler::NetworkConnectionConnectivityChanged(GUID connectionId,
                                                              NLM_CONNECTIVITY connectivity) {
    // The service may give the manager back while this event writes its first line or waits for its turn.
    // A stop between Windows' call and this one remains: it releases the manager without waiting for
    // events, and the manager is the service's.
    const Microsoft::WRL::ComPtr<INetworkListManager> heldManager(m_networkListManager);
    const LogScope log("NLMEventHandler::NetworkConnectionConnectivityChanged", L"NLM_CONNECTIVITY = %d",
                       connectivity);
    return log.Guard(HRESULT{E_FAIL}, [&] { return HandleCableEvent(log, connectionId, connectivity); });
}

HRESULT NLMEventHandler::HandleCableEvent(const LogScope& log, const GUID& connectionId,
                                          NLM_CONNECTIVITY connectivity) {
    msm_Notification_flag = true;
    std::unique_lock lock(connectivityChangeLock);
    log.Information(L"------------------start----------------------");
    Platform::UniqueCoTaskText text;
    const HRESULT converted = StringFromCLSID(connectionId, text.Put());
    if (FAILED(converted)) {
        // The line shows the last error, not the result. The notification flag stays set, until the
        // next event ends.
        return log.Failure(converted, L"StringFromCLSID failed w/err 0x%08lx", GetLastError());
    }
    log.Information(L"Connection ID : %s", text.Get());
    log.Information(L"New connectivity state : ");
    const auto connectivityBits = static_cast<DWORD>(connectivity);
    NLMUtils::PrintConnectivityState(&connectivityBits);
    if (connectivity == NLM_CONNECTIVITY_DISCONNECTED) {
        HandleDisconnect(log, text.Get());
    } else {
        HandleConnect(log, connectionId, text.Get(), connectivity);
    }
    LogWiredConnections(log);
    msm_Notification_flag = false;
    text.Reset();
    lock.unlock();
    log.Information(L"-------------------end-----------------------");
    return S_OK;
}

void NLMEventHandler::HandleConnect(const LogScope& log, const GUID& connectionId,
                                    const std::wstring& connectionText, NLM_CONNECTIVITY connectivity) const {
    log.Information(L"Connectivity state : %d ", connectivity);
    unsigned char isEthernet = 0;
    if (!NLMUtils::IsEthernetConnection(m_networkListManager, connectionId, &isEthernet)) {
        log.Information(L"Could not determine connection type. Doing nothing.");
        return;
    }
    log.Information(L"Ethernet state : %d ", isEthernet);
    if (isEthernet == 0 || m_wiredConnections == nullptr) {
        return;
    }
    log.Information(L"Ethernet Connection - adding to set...");
    m_wiredConnections->insert(connectionText);
    if (WaitForAddress(log)) {
        SwitchRadiosOff(log);
    }
}

void NLMEventHandler::HandleDisconnect(const LogScope& log, const std::wstring& connectionText) const {
    log.Information(L"Disconnecting connection, check list to see if it was Ethernet.");
    if (m_wiredConnections == nullptr || !m_wiredConnections->contains(connectionText)) {
        log.Information(L"Connection ID is not in the list, DO nothing");
        return;
    }
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log, L"CheckEthernetConnectionStatus failed");
    if (!isCableIn) {
        return;
    }
    log.Information(L"Ethernet connection status = %d", *isCableIn);
    if (!*isCableIn) {
        BringRadiosBack(log);
    }
}

void NLMEventHandler::LogWiredConnections(const LogScope& log) const {
    if (m_wiredConnections != nullptr) {
        for (const std::wstring& element : *m_wiredConnections) {
            log.Information(L"Current ethernetConnection element: %s", element.c_str());
        }
    }
}
