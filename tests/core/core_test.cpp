#include "tests/core/core_test.h"

#include <algorithm>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "notebook/state/text.h"
#include "radio/wwan_state.h"

namespace CoreTests {

namespace {

/// What was set, of calls that end in "to " and a number.
Switches SwitchesIn(const std::vector<std::string>& calls, char on) {
    Switches switches;
    std::ranges::transform(calls, std::back_inserter(switches),
                           [on](const std::string& call) { return call.back() == on ? "on" : "off"; });
    return switches;
}

}  // namespace

Pool::~Pool() {
    EXPECT_TRUE(items.empty()) << items.size() << " work item(s) were queued and never run";
}

DWORD Pool::RunNext() {
    const Item item = items.front();
    items.erase(items.begin());
    return item.callback(item.context);
}

void Pool::RunAll() {
    while (!items.empty()) {
        RunNext();
    }
}

void Stop(OpenService& service) {
    Rig::RunOnThread([&service] { service.Stop(); }, Rig::Apartment::kMultithreadedTwice);
}

CoreTest::CoreTest() {
    notebook.RemoveSettings();
    notebook.Modem().confirmMs = kForEver;
    msm_Notification_flag = false;
}

CoreTest::~CoreTest() {
    msm_Notification_flag = false;
}

void CoreTest::EnableWlanSwitching(bool enables) {
    NLMUtils::lanWlanSwitchingEnabled = enables;
}

void CoreTest::EnableWwanSwitching(bool enables) {
    NLMUtils::lanWwanSwitchingEnabled = enables;
}

void CoreTest::EnableSwitching(bool wlan, bool wwan) {
    EnableWlanSwitching(wlan);
    EnableWwanSwitching(wwan);
}

void CoreTest::MakeModemKnown() const {
    WwanState::interfaceManager = WwanState::Share(
        notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager).Get());
    WwanState::interfaceId = ::Notebook::GuidText(notebook.Modem().id);
    WwanState::devicePresent = true;
    notebook.ForgetCalls();
}

void CoreTest::Set(Cable cable) {
    if (cable == Cable::kIn) {
        notebook.PlugCable();
    } else if (cable == Cable::kUnreadable) {
        machine.HideAdapters();
    }
}

void CoreTest::SetRadios(bool wlan, bool wwan) const {
    notebook.Wlan().phys[0].software = wlan ? ::Notebook::kRadioOn : ::Notebook::kRadioOff;
    notebook.Modem().software = wwan ? 1 : 0;
}

void CoreTest::MakeRadiosStubborn() const {
    notebook.SetPhys({Refusing(RadioTests::On())});
    notebook.Modem().follows = 0;
}

std::vector<LogLine> CoreTest::LinesOf(const char* function) const {
    std::vector<LogLine> lines = log.Of(function);
    std::erase_if(lines, [](const LogLine& line) { return line.level <= Orva::Shared::Level::kTraceOut; });
    return lines;
}

Switches CoreTest::WlanSwitches() const {
    return SwitchesIn(notebook.Calls(Call::WlanSetInterface), '1');
}

Switches CoreTest::WwanSwitches() const {
    return SwitchesIn(notebook.Calls(Call::MbnRadioSetSoftwareRadioState), '1');
}

void CoreTest::ExpectNoSwitchIsRepeated() const {
    EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
    EXPECT_THAT(log.Of("ServiceUtils::SwitchWwanStatusWithRetry"), IsEmpty());
}

void CoreTest::ExpectSwitchCall(const char* function, bool on, bool respectsAirplaneMode) const {
    EXPECT_EQ(
        log.Count(TraceIn(function, L"OnOffValue = " + std::to_wstring(on) + L", bCheckAirplaneStatus = " +
                                        std::to_wstring(respectsAirplaneMode))),
        1);
}

}  // namespace CoreTests
