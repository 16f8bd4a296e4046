#pragma once

#include <windows.h>
#include <netlistmgr.h>

#include <atomic>
#include <string>

#include "network/wired_connections.h"

class LogScope;

/// Set when a connectivity change comes, before it waits for its turn, and cleared when it ends, so
/// that the radio changes it makes are not taken for the user's. (The end of one clears it for those
/// that queued behind it, too: what they change may be stored as the user's.) Stays set after a
/// change whose handling failed, until the next one ends.
extern std::atomic<bool> msm_Notification_flag;

/// Receives the Network List Manager's events, on threads of the multithreaded apartment, several
/// at once. A cable event enters by `NetworkConnectionConnectivityChanged`: a connection that becomes
/// connected over Ethernet (a cable plugged in) switches the radios off; one that disconnects and was
/// ever wired (a cable pulled out) brings them back. The other events are only logged.
class NLMEventHandler : public INetworkListManagerEvents,
                        public INetworkEvents,
                        public INetworkConnectionEvents {
  public:
    /// Neither is owned, and both must be there when an event comes (an event that waits for its turn
    /// holds the manager itself). `wiredConnections` may be null: then nothing is remembered.
    NLMEventHandler(INetworkListManager* networkListManager, WiredConnections* wiredConnections);
    NLMEventHandler(const NLMEventHandler&) = delete;
    NLMEventHandler& operator=(const NLMEventHandler&) = delete;

    // INetworkListManagerEvents, the primary interface
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE ConnectivityChanged(NLM_CONNECTIVITY connectivity) override;
    /// Stands right behind the primary interface's operations in the virtual table.
    virtual ~NLMEventHandler();

    // INetworkEvents
    HRESULT STDMETHODCALLTYPE NetworkAdded(GUID networkId) override;
    HRESULT STDMETHODCALLTYPE NetworkDeleted(GUID networkId) override;
    HRESULT STDMETHODCALLTYPE NetworkConnectivityChanged(GUID networkId,
                                                         NLM_CONNECTIVITY connectivity) override;
    HRESULT STDMETHODCALLTYPE NetworkPropertyChanged(GUID networkId,
                                                     NLM_NETWORK_PROPERTY_CHANGE flags) override;

    // INetworkConnectionEvents
    /// Every cable event. S_OK; the failure of the identifier's conversion to text; E_FAIL after an
    /// exception.
    HRESULT STDMETHODCALLTYPE NetworkConnectionConnectivityChanged(GUID connectionId,
                                                                   NLM_CONNECTIVITY connectivity) override;
    HRESULT STDMETHODCALLTYPE NetworkConnectionPropertyChanged(GUID connectionId,
                                                               NLM_CONNECTION_PROPERTY_CHANGE flags) override;

    /// Reads the adapter list into the process-wide buffer. 0, the error of GetAdaptersInfo, or 1
    /// after an allocation failure or an exception. Only under the Ethernet-check lock.
    static DWORD InitialiseAdapter();

    /// Whether a cable is in, a real Ethernet adapter with a usable IPv4 address: 1 with 1 or 0 in
    /// `*status`, or 0 with `*status` unwritten when the adapters could not be read. Sets `*noAddress`
    /// (may be null) to 1 when an Ethernet adapter without an address was seen, else leaves it alone.
    static int CheckEthernetConnectionStatus(int* status, int* noAddress);

    /// The same under the Ethernet-check lock. Everybody else asks through `NLMUtils::IsCableIn`, which
    /// stands beside these, in network/cable_check.cpp.
    static int CheckEthernetConnectionStatusEx(int* status, int* noAddress);

  private:
    /// Gives back the buffer of the adapter list, under the Ethernet-check lock.
    static void ReleaseAdapters();

    HRESULT HandleCableEvent(const LogScope& log, const GUID& connectionId, NLM_CONNECTIVITY connectivity);
    void HandleDisconnect(const LogScope& log, const std::wstring& connectionText) const;
    void HandleConnect(const LogScope& log, const GUID& connectionId, const std::wstring& connectionText,
                       NLM_CONNECTIVITY connectivity) const;
    void LogWiredConnections(const LogScope& log) const;

    /// A plain integer, changed without interlocked operations.
    ULONG m_references = 0;
    INetworkListManager* m_networkListManager;
    WiredConnections* m_wiredConnections;
};
