#include "radio/wwan_radio.h"

#include <wrl/client.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "platform/handles.h"
#include "platform/pause.h"
#include "radio/mbn_retry.h"
#include "radio/radio_switch.h"
#include "radio/wwan_state.h"

using Microsoft::WRL::ComPtr;

namespace ServiceUtils {
namespace {

using std::chrono::milliseconds;

constexpr MbnCall kGetInterface{
    milliseconds{50},
    L"GetInterface failed in try %d with !err is 0x%08X",
    L"GetInterface failed with error: HRESULT : 0x%08X",
};
constexpr MbnCall kSetSoftwareRadioState{
    milliseconds{100},
    L"SetSoftwareRadioState failed with error in retry %d: HRESULT : 0x%08X",
    L"SetSoftwareRadioState failed with error : HRESULT : 0x%08X",
};

/// One iteration of a switch is: set, wait for the completion, look.
constexpr int kSwitchIterations = 10;
constexpr milliseconds kCompletionTimeout{7000};
constexpr milliseconds kIterationPause{500};

/// Tells the event sink, for a scope, that the service itself changes the radio. A mark left
/// behind would make the sink ignore the user.
class OwnRadioChange {
  public:
    OwnRadioChange() noexcept { WwanState::NetworkChangedForSetRadio = true; }
    OwnRadioChange(const OwnRadioChange&) = delete;
    OwnRadioChange& operator=(const OwnRadioChange&) = delete;
    ~OwnRadioChange() { WwanState::NetworkChangedForSetRadio = false; }
};

/// What one switch works with.
struct WwanSwitch {
    const LogScope& log;
    RadioStatus newStatus;
    IMbnRadio& radio;
    HANDLE completed;

    [[nodiscard]] MBN_RADIO WantedState() const { return MeansOn(newStatus) ? MBN_RADIO_ON : MBN_RADIO_OFF; }
};

bool IsDevicePresent(const LogScope& log) {
    if (!WwanState::devicePresent) {
        return log.Failure(false, L"WWAN Device is not available.");
    }
    return true;
}

HRESULT GetInterface(const LogScope& log, ComPtr<IMbnInterface>& mbnInterface) {
    const std::shared_ptr<IMbnInterfaceManager> manager = WwanState::interfaceManager;
    if (manager == nullptr) {
        return log.Failure(E_POINTER, L"IMbnInterfaceManager is NULL");
    }
    return CallWithRetries(log, kGetInterface, [&] {
        const HRESULT result =
            manager->GetInterface(WwanState::interfaceId.c_str(), mbnInterface.ReleaseAndGetAddressOf());
        return Platform::RequireObject(result, mbnInterface);
    });
}

bool FindRadio(const LogScope& log, ComPtr<IMbnRadio>& radio) {
    ComPtr<IMbnInterface> mbnInterface;
    if (FAILED(GetInterface(log, mbnInterface))) {
        return false;
    }
    const HRESULT queried =
        mbnInterface->QueryInterface(IID_IMbnRadio, reinterpret_cast<void**>(radio.GetAddressOf()));
    const HRESULT result = Platform::RequireObject(queried, radio, E_NOINTERFACE);
    if (FAILED(result)) {
        log.Error(L"QueryInterface failed with error: HRESULT : 0x%08X", result);
    }
    return SUCCEEDED(result);
}

bool ReadModem(const LogScope& log) {
    ComPtr<IMbnRadio> radio;
    if (!GetRadioInterface(radio.GetAddressOf())) {
        return log.Failure(false, L"GetRadioInterface Failed");
    }
    MBN_RADIO state = MBN_RADIO_OFF;
    const HRESULT result = radio->get_SoftwareRadioState(&state);
    if (FAILED(result)) {
        return log.Failure(false, L"get_SoftwareRadioState failed! err is %d", result);
    }
    log.Information(L"Current WWAN status : %ls", state == MBN_RADIO_ON ? L"ON" : L"OFF");
    return state == MBN_RADIO_ON;
}

/// Makes this switch's event and publishes it for the event sink. Null when that failed.
std::shared_ptr<Platform::UniqueHandle> PublishRadioChangeEvent(const LogScope& log) {
    Platform::UniqueHandle created(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!created) {
        return log.Failure(nullptr, L"CreateEvent failed with error: HRESULT : 0x%08X",
                           HRESULT_FROM_WIN32(static_cast<LONG>(GetLastError())));
    }
    auto event = std::make_shared<Platform::UniqueHandle>(std::move(created));
    WwanState::radioChangeEvent = event;
    return event;
}

/// Asks the radio for the state. When it refuses for good the switch goes on all the same: the state may come
/// by another way.
void RequestState(const WwanSwitch& change) {
    ULONG requestId = 0;
    static_cast<void>(CallWithRetries(change.log, kSetSoftwareRadioState, [&] {
        return change.radio.SetSoftwareRadioState(change.WantedState(), &requestId);
    }));
    change.log.Information(L"SetSoftwareRadioState Radio State = %d, Request ID = %d", change.WantedState(),
                           requestId);
}

/// Whether a completion came in time. Any does: request identifiers are not compared.
bool WaitForCompletion(const WwanSwitch& change) {
    const DWORD outcome =
        WaitForSingleObject(change.completed, static_cast<DWORD>(kCompletionTimeout.count()));
    change.log.Information(L"WaitForSingleObject returned = %d , bOnOffStatus = %d", outcome,
                           change.newStatus);
    return outcome == WAIT_OBJECT_0;
}

/// Whether the radio that reported the completion has the wanted state.
bool HasLastRadioFollowed(const WwanSwitch& change, int iteration) {
    // A reference of this thread's own: the next completion may replace the radio at any time.
    const std::shared_ptr<IMbnRadio> radio = WwanState::lastRadio;
    MBN_RADIO state = MBN_RADIO_OFF;
    const HRESULT result = radio == nullptr ? E_POINTER : radio->get_SoftwareRadioState(&state);
    if (FAILED(result)) {
        change.log.Error(L"get_SoftwareRadioState failed with error: HRESULT : 0x%08X", result);
        return false;
    }
    change.log.Information(L"New SoftwareRadioState = %d in iteration %d", state, iteration);
    if (state != change.WantedState()) {
        return false;
    }
    change.log.Information(L"NewSoftwareRadioState and expected radio states match. Exiting.. ");
    return true;
}

/// The same by a fresh look, when no completion came or it said something else.
bool HasRadioFollowedAnyway(const WwanSwitch& change) {
    const bool isOn = CheckWwanStatus();
    change.log.Information(L"Got new WWAN Status = %d , bOnOffStatus = %d", isOn, change.newStatus);
    if (isOn != MeansOn(change.newStatus)) {
        return false;
    }
    change.log.Information(L"New Radio State is Set after timeout. So exiting from loop");
    return true;
}

void SetUntilRadioFollows(const WwanSwitch& change) {
    for (int iteration = 0; iteration < kSwitchIterations; ++iteration) {
        RequestState(change);
        if ((WaitForCompletion(change) && HasLastRadioFollowed(change, iteration)) ||
            HasRadioFollowedAnyway(change)) {
            return;
        }
        change.log.Information(L"Retrying SetSoftwareRadioState = %d", iteration);
        Platform::Pause(kIterationPause);
    }
}

/// True once the switch was tried, whether or not the radio followed: the caller reads it back.
bool ChangeRadio(const LogScope& log, RadioStatus newStatus) {
    ComPtr<IMbnRadio> radio;  // released after the mark is taken back
    const OwnRadioChange mark;
    log.Information(L"Change to softwareRadioState : %d", MeansOn(newStatus) ? MBN_RADIO_ON : MBN_RADIO_OFF);
    const std::shared_ptr<Platform::UniqueHandle> completed = PublishRadioChangeEvent(log);
    if (completed == nullptr) {
        return false;
    }
    if (!GetRadioInterface(radio.GetAddressOf())) {
        return log.Failure(false, L"GetRadioInterface Failed");
    }
    SetUntilRadioFollows({log, newStatus, *radio.Get(), completed->Get()});
    return true;
}

constexpr SwitchableRadio kWwanRadio{
    &SwitchWwanStatus,
    &CheckWwanStatus,
    L"SwitchWwanStatus not needed for New status = %d",
    L"Current Status : %d, To Change Status = %d",
    L"No change in WWAN Status Needed.",
    L"SwitchWwanStatus Success",
    L"SwitchWwanStatus not Succeeded. Retrying to %d",
};

/// Under the switch lock.
bool SwitchModem(const LogScope& log, RadioStatus newStatus, unsigned char checkAirplaneStatus) {
    const std::optional<bool> answer =
        AnswerWithoutSwitching(log, kWwanRadio, newStatus, checkAirplaneStatus);
    if (answer) {
        return *answer;
    }
    // Adapters that cannot be read count as no cable.
    const bool isCableIn = NLMUtils::IsCableIn().value_or(false);
    if (!MeansOn(newStatus) && !isCableIn) {
        WwanState::offWithoutEthernet = true;
    }
    return ChangeRadio(log, newStatus);
}

}  // namespace

bool GetRadioInterface(IMbnRadio** radio) {
    const LogScope log("ServiceUtils::GetRadioInterface");
    ComPtr<IMbnRadio> found;
    const bool isFound = log.Guard(false, [&] { return FindRadio(log, found); });
    *radio = isFound ? found.Detach() : nullptr;
    return isFound;
}

bool CheckWwanStatus() {
    LogScope log("ServiceUtils::CheckWwanStatus");
    return log.Return(L"WWAN Status = %d",
                      log.Guard(false, [&] { return IsDevicePresent(log) && ReadModem(log); }));
}

bool SwitchWwanStatus(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus) {
    LogScope log("ServiceUtils::SwitchWwanStatus", L"OnOffValue = %d, bCheckAirplaneStatus = %d", newStatus,
                 checkAirplaneStatus);
    return log.Return(L"WWAN switching Status = %d", log.Guard(false, [&] {
        const std::lock_guard hold(WwanState::switchLock);
        return IsDevicePresent(log) && SwitchModem(log, newStatus, checkAirplaneStatus);
    }));
}

bool SwitchWwanStatusWithRetry(const RadioStatus& newStatus, const int& retryCount) {
    LogScope log("ServiceUtils::SwitchWwanStatusWithRetry", L"NewStatus = %d, Retry Count = %d", newStatus,
                 retryCount);
    return log.Return(L"WWAN switching Status = %d", log.Guard(false, [&] {
        return IsDevicePresent(log) && SwitchUntilRadioFollows(log, kWwanRadio, newStatus, retryCount);
    }));
}

void StartWWANService() {
    const LogScope log("ServiceUtils::StartWWANService");
    log.Guard([&] {
        if (!IsDevicePresent(log)) {
            return;
        }
        const std::wstring remembered = RememberedPowerStatus(PowerStatus::kWwanKey);
        log.Information(L"WWAN Registry Status = %s", remembered.c_str());
        if (remembered == PowerStatus::kOn && !SwitchWwanStatusWithRetry(kRadioOn, kSwitchRetries)) {
            log.Error(L"SwitchWwanStatusWithRetry (StartWWANService) failed");
        }
    });
}

void StopWWANService() {
    const LogScope log("ServiceUtils::StopWWANService");
    log.Guard([&] {
        if (!IsDevicePresent(log)) {
            return;
        }
        log.Information(L"StopWWANService - Entry");
        const bool isOn = CheckWwanStatus();
        log.Information(L"WWAN Current Status = %d", isOn);
        if (!isOn) {
            // What is remembered stays: a radio that is off already may be off by this service's doing.
            return;
        }
        if (SwitchWwanStatus(kRadioOff, kIgnoreAirplaneMode)) {
            SetWwanPowerStatusInRegistry(kRadioOn);
        } else {
            log.Error(L"SwitchWwanStatus (StopWWANService) failed");
        }
    });
}

}  // namespace ServiceUtils
