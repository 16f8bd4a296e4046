#include "tests/hunt/examination.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "notebook/state/machine.h"

namespace RandomEvents {

namespace {

/// Of two modems the service switches the last one of the list.
bool ModemIs(const Situation& seen, bool on) {
    return seen.modems.empty() || (seen.modems.back() != 0) == on;
}

}  // namespace

bool CountsAsOn(const std::string& stored) {
    return stored == "True" || stored.empty() || stored == "(a number)";
}

void Examination::Take(std::initializer_list<const char*> commands) {
    Step step;
    for (const char* const text : commands) {
        Command command = ReadCommand(text);
        if (command.FitsOn(m_shape)) {
            step.commands.push_back(std::move(command));
        }
    }
    Take(step);
}

void Examination::Expect(bool holds, const std::string& what) {
    if (!holds && !m_wrong) {
        m_wrong = what + "\n  " + m_stage.See().Text();
    }
}

/// Of two WLAN adapters the service switches the first. A radio whose state nobody knows is not on.
bool Examination::WlanIs(const Situation& seen, bool on) const {
    return std::all_of(seen.phys.begin(), seen.phys.begin() + static_cast<std::ptrdiff_t>(m_shape.phys),
                       [=](std::uint32_t phy) { return (phy == Notebook::kRadioOn) == on; });
}

/// Whether the service hears of everything, and knows what it needs.
bool Examination::IsWhole() const {
    const Situation seen = m_stage.See();
    const int sinks = m_shape.modems != 0 ? 4 : 3;
    return seen.isRunning && seen.sinks == sinks && seen.registrations == 1 && seen.switchesWlan &&
           seen.switchesWwan && !seen.hasTimedOut;
}

void Examination::Mend() {
    Take({"resume",
          "airplane value dword 0",
          "call GetAdaptersInfo ok",
          "wifi hardware on",
          "phy 0 refuse 0",
          "phy 1 refuse 0",
          "phy 2 refuse 0",
          "modem 1 follows on confirm 0",
          "modem 1 refuse 0",
          "modem 1 reverts 0 after 0",
          "modem 1 radio same",
          "modem 2 follows on confirm 0",
          "modem 2 refuse 0",
          "modem 2 reverts 0 after 0",
          "modem 2 radio same",
          "bios provider on",
          "bios \"LAN / WLAN Auto Switching\" timeouts 0",
          "feature wlan on",
          "feature wwan on",
          "service WlanSvc run",
          "service WwanSvc run"});
    if (!IsWhole()) {
        if (m_runs) {
            Take({"stop"});
        }
        Take({"start"});
    }
    Expect(IsWhole(), "a start at which nothing fails is not whole");
}

void Examination::Examine() {
    const Situation seen = m_stage.See();
    if (!WlanIs(seen, true) && !WlanIs(seen, false)) {
        // A radio of which some PHYs are on counts as off, and stays so.
        Take({"wifi on"});
    }
    PlugIn();
    PullOut();
    Take({"wifi off", "wwan off"});
    for (const char* const state : {"on", "off"}) {
        Choose(state);
        PlugIn();
        PullOut();
        ExpectChosen(state);
    }
}

void Examination::Choose(const std::string& state) {
    Take({("wifi " + state).c_str(), ("wwan " + state).c_str()});
    ExpectChosen(state);
}

void Examination::ExpectChosen(const std::string& state) {
    const std::string text = state == "on" ? "True" : "False";
    const Situation seen = m_stage.See();
    Expect(seen.storedWlan == text, "the user's choice for WLAN is not remembered");
    // The user's switch is the first modem's.
    Expect(seen.modems.size() != 1 || seen.storedWwan == text,
           "the user's choice for the modem is not remembered");
}

void Examination::PlugIn() {
    Take({"plug cable 1 dhcp 0"});
    const Situation seen = m_stage.See();
    Expect(WlanIs(seen, false), "WLAN is on beside a cable");
    Expect(ModemIs(seen, false), "the modem is on beside a cable");
}

void Examination::PullOut() {
    Take({"unplug cable 1", "unplug cable 2"});
    const Situation seen = m_stage.See();
    Expect(WlanIs(seen, CountsAsOn(seen.storedWlan)), "WLAN is not as it was chosen");
    Expect(ModemIs(seen, CountsAsOn(seen.storedWwan)), "the modem is not as it was chosen");
}

}  // namespace RandomEvents
