// How the devices behave, on a state of the test's own.

#include "notebook/state/machine.h"

#include <windows.h>
#include <wlanapi.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/wlan_notifications.h"

namespace Notebook::Tests {

namespace {

using testing::ElementsAre;

constexpr Micros kSecond = 1000 * kMicrosPerMilli;

std::unique_ptr<Machine> NewMachine() {
    auto machine = std::make_unique<Machine>();
    ResetMachine(*machine, {.cables = 2, .modems = 1}, 0);
    machine->eventCount = 0;
    return machine;
}

Adapter& Cable(Machine& machine, std::uint32_t number = 1) {
    return *CablePort(machine, number);
}

Modem& TheModem(Machine& machine) {
    return machine.devices.modems[0];
}

/// What subscribers are told of an event, and of whom.
std::string Told(Machine& machine, const Event& event) {
    const bool isOfSecond = IsEqualGUID(event.id, Cable(machine, 2).connectionId);
    char text[64] = "something else";
    if (event.kind == EventKind::ConnectionConnectivity) {
        std::snprintf(text, sizeof(text), "%s 0x%x", isOfSecond ? "second connection" : "connection",
                      event.value);
    } else if (event.kind == EventKind::NetworkConnectivity) {
        return "network";
    } else if (event.kind == EventKind::MachineConnectivity) {
        std::snprintf(text, sizeof(text), "machine 0x%x", event.value);
    } else if (event.kind == EventKind::Wlan &&
               event.code == Platform::kWlanNotificationMsmRadioStateChange) {
        std::snprintf(text, sizeof(text), "PHY %u %s", event.value,
                      event.software == kRadioOn ? "on" : "off");
    } else if (event.kind == EventKind::ModemStateChange) {
        return "modem changes";
    } else if (event.kind == EventKind::ModemSetComplete) {
        std::snprintf(text, sizeof(text), "request %u ends %s", event.request,
                      event.software != 0 ? "on" : "off");
    }
    return text;
}

std::vector<std::string> News(Machine& machine) {
    std::vector<std::string> news;
    for (std::uint64_t i = 0; i < machine.eventCount; ++i) {
        news.push_back(Told(machine, machine.events[i]));
    }
    return news;
}

HRESULT SwitchModemOff(Machine& machine, Micros now = 0) {
    std::uint32_t request = 0;
    return SetModemSoftware(machine, 0, 0, request, now);
}

TEST(MachineTest, WhatIsAnnouncedAndInWhatOrder) {
    const std::vector<std::string> offAndOn = {"PHY 0 off", "PHY 1 off", "PHY 0 on", "PHY 1 on"};
    const struct {
        const char* what;
        std::function<void(Machine&)> act;
        std::vector<std::string> told;
    } rows[] = {
        {"a cable with its address",
         [](Machine& m) { PlugIn(m, Cable(m), 0, 0); },
         {"connection 0x40", "network", "machine 0x40"}},
        {"an address that has not come yet",
         [](Machine& m) {
             PlugIn(m, Cable(m), 3000, 0);
             ApplyDue(m, 3 * kSecond - 1);
         },
         {"connection 0x3", "network", "machine 0x3"}},
        {"an address that has",
         [](Machine& m) {
             PlugIn(m, Cable(m), 3000, 0);
             ApplyDue(m, 3 * kSecond);
         },
         {"connection 0x3", "network", "machine 0x3", "connection 0x40", "network", "machine 0x40"}},
        {"a cable pulled before its address came",
         [](Machine& m) {
             PlugIn(m, Cable(m), 3000, 0);
             PullOut(m, Cable(m), kSecond);
             ApplyDue(m, 10 * kSecond);
         },
         {"connection 0x3", "network", "machine 0x3", "connection 0x0", "network", "machine 0x0"}},
        {"one of two cables, and pulled twice",
         [](Machine& m) {
             PlugIn(m, Cable(m, 1), 0, 0);
             PlugIn(m, Cable(m, 2), 0, 0);
             PullOut(m, Cable(m, 2), 0);
             PullOut(m, Cable(m, 2), 0);
         },
         {"connection 0x40", "network", "machine 0x40", "second connection 0x40", "network",
          "second connection 0x0", "network"}},
        {"what is due, in the order of its times",
         [](Machine& m) {
             PlugIn(m, Cable(m, 1), 2000, 0);
             PlugIn(m, Cable(m, 2), 1000, 0);
             m.eventCount = 0;
             ApplyDue(m, 5 * kSecond);
         },
         {"second connection 0x40", "network", "machine 0x43", "connection 0x40", "network", "machine 0x40"}},
        {"what happened asleep, afterwards",
         [](Machine& m) {
             m.devices.asleep = 1;
             PlugIn(m, Cable(m), 0, 0);
             PullOut(m, Cable(m), 0);
             EXPECT_THAT(News(m), ElementsAre());
             m.devices.asleep = 0;
             ReleaseHeldEvents(m, kSecond);
         },
         {"connection 0x40", "network", "machine 0x40", "connection 0x0", "network", "machine 0x0"}},
        {"one PHY, once",
         [](Machine& m) {
             SetPhySoftware(m, 0, 1, kRadioOff, 0);
             SetPhySoftware(m, 0, 1, kRadioOff, 0);
         },
         {"PHY 1 off"}},
        {"the user's switch of all",
         [](Machine& m) {
             SwitchWlanByUser(m, false, 0);
             SwitchWlanByUser(m, true, 0);
         },
         offAndOn},
        {"a modem that confirms at once",
         [](Machine& m) { SwitchModemOff(m); },
         {"modem changes", "request 100 ends off"}},
        {"one that has not confirmed yet",
         [](Machine& m) {
             TheModem(m).confirmMs = 2000;
             SwitchModemOff(m);
             EXPECT_EQ(TheModem(m).software, 1U);
         },
         {}},
        {"the user's switch of the modem, also where it changes nothing",
         [](Machine& m) { SwitchModemByUser(m, 0, true, 0); },
         {"request 100 ends on"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto machine = NewMachine();
        row.act(*machine);
        EXPECT_EQ(News(*machine), row.told);
    }
}

TEST(MachineTest, RadioOffEndsTheWifiConnection) {
    const auto machine = NewMachine();
    ASSERT_TRUE(ConnectWifi(*machine, 0, 0));
    SwitchWlanByUser(*machine, false, 0);
    EXPECT_EQ(machine->devices.wlan[0].state, std::uint32_t{wlan_interface_state_not_ready});
    EXPECT_EQ(MachineConnectivity(*machine), 0U);
    EXPECT_FALSE(ConnectWifi(*machine, 0, 0));
}

}  // namespace

}  // namespace Notebook::Tests
