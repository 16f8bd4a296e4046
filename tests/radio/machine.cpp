#include "tests/radio/machine.h"

#include <gtest/gtest.h>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_state.h"

namespace RadioTests {

namespace {

constexpr wchar_t kWlanSubkey[] = L"WlanPowerStatus";
constexpr wchar_t kWwanSubkey[] = L"WwanPowerStatus";

std::wstring TextOf(const std::optional<Rig::RegistryValue>& value) {
    if (!value) {
        return {};
    }
    EXPECT_EQ(value->type, DWORD{REG_SZ});
    return {reinterpret_cast<const wchar_t*>(value->bytes.data())};
}

}  // namespace

Machine::Machine(const ::Notebook::Shape& shape) : notebook(clock, shape) {
    airplane.Create();
    SetAirplaneMode(false);
    ResetFlags();
}

Machine::~Machine() {
    ResetFlags();
}

void Machine::SetAirplaneMode(bool on) const {
    airplane.Write({}, {}, Rig::RegistryNumber(on ? 1 : 0));
}

void Machine::RememberWlan(const std::wstring& text) const {
    store.Write(kWlanSubkey, PowerStatus::kValueName, Rig::RegistryText(text));
}

void Machine::RememberWwan(const std::wstring& text) const {
    store.Write(kWwanSubkey, PowerStatus::kValueName, Rig::RegistryText(text));
}

std::wstring Machine::RememberedWlan() const {
    return TextOf(store.Read(kWlanSubkey, PowerStatus::kValueName));
}

std::wstring Machine::RememberedWwan() const {
    return TextOf(store.Read(kWwanSubkey, PowerStatus::kValueName));
}

RadioLedger::~RadioLedger() {
    // Its end releases the list.
    const NLMEventHandler handler{nullptr, nullptr};
}

void Machine::ResetFlags() {
    ServiceUtils::my_service_turnonoff_wifi = ServiceUtils::kRadioOff;
    ServiceUtils::my_setwifitimeout = false;
    NLMUtils::lanWlanSwitchingEnabled = false;
    NLMUtils::lanWwanSwitchingEnabled = false;
    WwanState::interfaceManager.store(nullptr);
    WwanState::interfaceId.clear();
    WwanState::devicePresent = false;
    WwanState::radioChangeEvent.store(nullptr);
    WwanState::NetworkChangedForSetRadio = false;
    WwanState::lastRadio.store(nullptr);
    WwanState::offWithoutEthernet = false;
}

}  // namespace RadioTests
