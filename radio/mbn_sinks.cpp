#include "radio/mbn_sinks.h"

#include <memory>
#include <optional>

#include "bios/bios_settings.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "platform/handles.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "radio/radio_switch.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"

namespace {

/// An exception counts as a failure: a destructor asks.
bool TryClose(Platform::UniqueHandle& event) noexcept {
    try {
        return event.TryClose() == ERROR_SUCCESS;
    } catch (...) {
        return false;
    }
}

/// The radio was changed by somebody else. With the cable in and the half enabled that is undone, else it is
/// remembered as the user's choice.
void ReactToForeignChange(const LogScope& log, bool isCableIn, ULONG requestId) {
    const bool isOn = ServiceUtils::CheckWwanStatus();
    log.Information(L"WWAN Status = %d", isOn);
    const bool keepsWwanOff = NLMUtils::lanWwanSwitchingEnabled && isCableIn;
    if (keepsWwanOff && isOn) {
        log.Information(L"Ethernet is present, switching OFF WWAN");
        ServiceUtils::SwitchWwanStatusWithRetry(ServiceUtils::kRadioOff, ServiceUtils::kSwitchRetries);
        return;
    }
    if (!keepsWwanOff) {
        log.Information(L"Writing WWAN status %d to registry", isOn);
        ServiceUtils::SetWwanPowerStatusInRegistry(isOn ? ServiceUtils::kRadioOn : ServiceUtils::kRadioOff);
    }
    log.Information(L"Received OnSetSoftwareRadioStateComplete Event for requestID = %d", requestId);
}

void HandleCompletion(const LogScope& log, IMbnRadio* radio, ULONG requestId) {
    // The switching thread may hold the radio that is replaced here: it goes when the last one lets go.
    WwanState::Publish(WwanState::lastRadio, radio);
    // Wakes the switch that waits, if there is one; any completion does.
    if (const std::shared_ptr<Platform::UniqueHandle> event = WwanState::radioChangeEvent) {
        SetEvent(event->Get());
    }
    log.Information(L"NetworkChangedForSetRadio Status = %d", WwanState::NetworkChangedForSetRadio.load());
    log.Information(L"LAN-WWAN Auto Switching Status = %d", NLMUtils::lanWwanSwitchingEnabled.load());
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log, L"CheckEthernetConnectionStatus failed");
    if (!isCableIn) {
        return;
    }
    log.Information(L"Ethernet Connection Status = %d", *isCableIn);
    if (WwanState::NetworkChangedForSetRadio || ServiceUtils::CheckAirplaneMode()) {
        log.Information(L"Not Processing OnSetSoftwareRadioStateComplete");
        return;
    }
    ReactToForeignChange(log, *isCableIn, requestId);
}

}  // namespace

CMbnSinks::~CMbnSinks() {
    // A switch that still waits for the event closes it when it is done. A handle that cannot be
    // closed stays published, as everywhere in this service: it is still open.
    const std::shared_ptr<Platform::UniqueHandle> event = WwanState::radioChangeEvent.exchange(nullptr);
    if (event != nullptr && event.use_count() == 1 && !TryClose(*event)) {
        std::shared_ptr<Platform::UniqueHandle> none;
        WwanState::radioChangeEvent.compare_exchange_strong(none, event);
    }
}

HRESULT CMbnSinks::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (interfaceId != IID_IUnknown && interfaceId != IID_IMbnRadioEvents) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IMbnRadioEvents*>(this);
    AddRef();
    return S_OK;
}

ULONG CMbnSinks::Release() {
    const ULONG references = --m_references;
    if (references == 0) {
        delete this;
    }
    return references;
}

HRESULT CMbnSinks::OnRadioStateChange(IMbnRadio* /*radio*/) {
    const LogScope log("CMbnSinks::OnRadioStateChange");
    return S_OK;
}

HRESULT CMbnSinks::OnSetSoftwareRadioStateComplete(IMbnRadio* radio, ULONG requestId, HRESULT status) {
    const LogScope log("CMbnSinks::OnSetSoftwareRadioStateComplete", L"RequestID = %d, Status = 0x%x",
                       requestId, status);
    log.Guard([&] {
        // Held for all of it, also while a change is undone below: the completion of
        // that very switch waits here until the switch has stopped waiting for it and has looked
        // for itself.
        const std::lock_guard hold(m_eventLock);
        HandleCompletion(log, radio, requestId);
    });
    return S_OK;
}
