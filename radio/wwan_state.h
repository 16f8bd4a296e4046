#pragma once

#include <windows.h>

#include <wrl/client.h>

#include <atomic>
#include <mutex>
#include <string>

#include "platform/handles.h"
#include "platform/mbn_api.h"

/// What the WWAN switch, its event sink and the start-up worker share. Process-wide.
namespace WwanState {

/// The mobile-broadband interface manager, published by the start-up worker; released at exit.
extern Microsoft::WRL::ComPtr<IMbnInterfaceManager> interfaceManager;
/// Identifier of the adapter to switch, in registry form.
extern std::wstring interfaceId;
/// While clear, every WWAN operation does nothing.
extern std::atomic<bool> devicePresent;
/// Auto-reset event of the last switch; signalled when a requested change completes.
extern Platform::UniqueHandle radioChangeEvent;
/// Set while the service itself changes the radio.
extern std::atomic<bool> NetworkChangedForSetRadio;
/// The radio of the last completion.
extern Microsoft::WRL::ComPtr<IMbnRadio> lastRadio;
/// Held for the whole of a switch.
extern std::mutex switchLock;
/// Set when a switch-off finds no Ethernet. Never read: kept for whoever reads a dump.
extern std::atomic<bool> offWithoutEthernet;

}  // namespace WwanState
