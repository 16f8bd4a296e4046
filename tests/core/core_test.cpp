#include "tests/core/core_test.h"

#include <algorithm>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "notebook/state/text.h"
#include "radio/wwan_state.h"

namespace CoreTests {

namespace {

/// What was set, of calls that end in "to " and a number.
std::vector<std::string> Switches(const std::vector<std::string>& calls, char on) {
    std::vector<std::string> switches;
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
    Rig::RunOnThread([&service] { service.OnStop(); }, Rig::Apartment::kMultithreadedTwice);
}

CoreTest::CoreTest() {
    notebook.RemoveSettings();
    notebook.Modem().confirmMs = kForEver;
    msm_Notification_flag = false;
}

CoreTest::~CoreTest() {
    msm_Notification_flag = false;
}

void CoreTest::EnableWlanSwitching() {
    NLMUtils::lanWlanSwitchingEnabled = true;
}

void CoreTest::EnableWwanSwitching() {
    NLMUtils::lanWwanSwitchingEnabled = true;
}

void CoreTest::EnableSwitching() {
    EnableWlanSwitching();
    EnableWwanSwitching();
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

void CoreTest::SetRadios(bool on) const {
    notebook.Wlan().phys[0].software = on ? ::Notebook::kRadioOn : ::Notebook::kRadioOff;
    notebook.Modem().software = on ? 1 : 0;
}

std::vector<Rig::LogLine> CoreTest::LinesOf(const char* function) const {
    std::vector<Rig::LogLine> lines = log.Of(function);
    std::erase_if(lines,
                  [](const Rig::LogLine& line) { return line.level <= Orva::Shared::Level::kTraceOut; });
    return lines;
}

std::vector<std::string> CoreTest::WlanSwitches() const {
    return Switches(notebook.Calls(Call::WlanSetInterface), '1');
}

std::vector<std::string> CoreTest::WwanSwitches() const {
    return Switches(notebook.Calls(Call::MbnRadioSetSoftwareRadioState), '1');
}

int CoreTest::Opens(const std::string& service) const {
    const std::vector<std::string> calls = notebook.Calls(Call::OpenService);
    return static_cast<int>(std::ranges::count_if(
        calls, [&](const std::string& call) { return call.find(' ' + service + ' ') != std::string::npos; }));
}

}  // namespace CoreTests
