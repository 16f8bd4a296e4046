#pragma once

#include <windows.h>
#include <netlistmgr.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <atomic>

#include "network/nlm_event_handler.h"
#include "network/wired_connections.h"
#include "platform/handles.h"
#include "platform/mbn_api.h"
#include "radio/mbn_sinks.h"

/// What the service holds, and its parts share: the start-up worker, the subscriptions, the airplane-mode
/// watcher.
///
/// The fields are not locked. A stop clears them on the control thread while the worker, the watcher and
/// event handlers may still run. The worker sets each COM field once, the stop clears it, and whoever
/// else reads one holds a reference of its own to the object by then. The watcher's event is taken out
/// while it is signalled, the WLAN handle while it is in use.
///
/// What was never given back by a stop is released in the reverse of this order; that of the four
/// connection points is also the order in which a stop takes the subscriptions back.
struct ServiceState {
    /// Never deleted: the worker and network events may outlive the service, and what they do then still
    /// reaches the set. It goes with the process.
    WiredConnections* const wiredConnections = new WiredConnections;
    Microsoft::WRL::ComPtr<IConnectionPoint> networkListManagerEvents;
    Microsoft::WRL::ComPtr<IConnectionPoint> networkConnectionEvents;
    Microsoft::WRL::ComPtr<IConnectionPoint> networkEvents;
    Microsoft::WRL::ComPtr<IConnectionPoint> mbnRadioEvents;
    Microsoft::WRL::ComPtr<INetworkListManager> networkListManager;
    Microsoft::WRL::ComPtr<IMbnInterfaceManager> mbnInterfaceManager;
    DWORD networkListManagerCookie = 0;
    DWORD networkConnectionCookie = 0;
    DWORD networkCookie = 0;
    DWORD mbnRadioCookie = 0;
    NLMEventHandler* networkEventHandler = nullptr;  ///< one reference, released by the stop
    CMbnSinks* mbnSinks = nullptr;                   ///< one reference, released by the stop
    std::atomic<bool> running{false};
    Platform::SharedHandle airplaneWatcherEvent;  ///< closed by the watcher, or else at the end
    Platform::SharedWlanHandle wlanHandle;        ///< closed by the stop, or by a worker that it met
};
