#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "platform/handles.h"
#include "platform/mbn_api.h"

/// What is known of the modem (WWAN), shared by its switch, its event sink and the start-up worker.
/// Process-wide.
///
/// What one thread replaces while another uses it is shared: whoever needs it loads a reference of its
/// own, which stays good whatever is published next. These holders, and the identifier, are never
/// destroyed, because callbacks may still come while the process ends.
namespace WwanState {

/// The mobile-broadband interface manager, published by the start-up worker, with a reference, which is
/// released at exit; null before, and when a stop was faster.
extern std::atomic<std::shared_ptr<IMbnInterfaceManager>>& interfaceManager;
/// Identifier of the modem to switch, in registry form. Written before `devicePresent` is set.
extern std::wstring& interfaceId;
/// Whether there is a modem. While clear, every WWAN operation does nothing.
extern std::atomic<bool> devicePresent;
/// Auto-reset event of the last switch; signalled when any change completes. Replaced by
/// the next switch. Null before the first one, and after the event sink has closed it.
extern std::atomic<std::shared_ptr<Platform::UniqueHandle>>& radioChangeEvent;
/// Set while the service itself changes the radio.
extern std::atomic<bool> NetworkChangedForSetRadio;
/// The radio of the last completion, with a reference, which is released at exit; null when that
/// completion had none.
extern std::atomic<std::shared_ptr<IMbnRadio>>& lastRadio;
/// Held for the whole of a switch.
extern std::mutex switchLock;
/// Set when a switch-off finds no cable in. Never read.
extern std::atomic<bool> offWithoutEthernet;

/// A counted reference of its own to `object` (null gives null), as the holders have it.
template <class Interface>
[[nodiscard]] std::shared_ptr<Interface> Share(Interface* object) {
    if (object == nullptr) {
        return nullptr;
    }
    object->AddRef();
    return {object, [](Interface* shared) { shared->Release(); }};
}

/// Puts `object` (may be null) into a holder, with a reference of its own, unless it is there already.
template <class Interface>
void Publish(std::atomic<std::shared_ptr<Interface>>& holder, Interface* object) {
    if (holder.load().get() != object) {
        holder = Share(object);
    }
}

}  // namespace WwanState
