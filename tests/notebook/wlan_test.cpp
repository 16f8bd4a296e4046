#include <winsock2.h>
#include <windows.h>
#include <wlanapi.h>
#include <iphlpapi.h>

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "platform/wlan_notifications.h"
#include "tests/notebook/hardware.h"

namespace Notebook::Tests {

namespace {

using testing::ElementsAre;

constexpr DWORD kBothSources = WLAN_NOTIFICATION_SOURCE_ACM | WLAN_NOTIFICATION_SOURCE_MSM;

/// One opened client.
class Client {
  public:
    Client() {
        DWORD version = 0;
        EXPECT_EQ(DWORD{ERROR_SUCCESS}, NotebookWlanOpenHandle(2, nullptr, &version, &m_handle));
        EXPECT_EQ(2U, version);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { Close(); }

    void Close() {
        if (m_handle != nullptr) {
            EXPECT_EQ(DWORD{ERROR_SUCCESS}, NotebookWlanCloseHandle(m_handle, nullptr));
            m_handle = nullptr;
        }
    }

    GUID FirstInterface() {
        WLAN_INTERFACE_INFO_LIST* list = nullptr;
        EXPECT_EQ(DWORD{ERROR_SUCCESS}, NotebookWlanEnumInterfaces(m_handle, nullptr, &list));
        const GUID id = list->InterfaceInfo[0].InterfaceGuid;
        NotebookWlanFreeMemory(list);
        return id;
    }

    DWORD Set(DWORD phy, DOT11_RADIO_STATE state) {
        const GUID id = FirstInterface();
        WLAN_PHY_RADIO_STATE wanted{phy, state, dot11_radio_state_unknown};
        return NotebookWlanSetInterface(m_handle, &id, wlan_intf_opcode_radio_state, sizeof(wanted), &wanted,
                                        nullptr);
    }

    DWORD Register(DWORD sources, WLAN_NOTIFICATION_CALLBACK callback, void* context) {
        return NotebookWlanRegisterNotification(m_handle, sources, FALSE, callback, context, nullptr,
                                                nullptr);
    }

  private:
    HANDLE m_handle = nullptr;
};

/// What a client was notified of.
struct Notified {
    std::mutex lock;
    std::vector<WLAN_NOTIFICATION_DATA> items;
    std::vector<WLAN_PHY_RADIO_STATE> radios;
    DWORD thread = 0;
    std::atomic<int> nulls{0};
    std::atomic<bool> running{false};
    std::atomic<int> sleepMs{0};
    std::atomic<bool> ended{false};

    std::size_t Count() {
        const std::lock_guard hold(lock);
        return items.size();
    }

    static void WINAPI Callback(PWLAN_NOTIFICATION_DATA data, PVOID context) {
        auto& self = *static_cast<Notified*>(context);
        if (data == nullptr) {
            ++self.nulls;
            return;
        }
        self.running = true;
        Sleep(static_cast<DWORD>(self.sleepMs.load()));
        const std::lock_guard hold(self.lock);
        self.items.push_back(*data);
        if (data->dwDataSize == sizeof(WLAN_PHY_RADIO_STATE)) {
            self.radios.push_back(*static_cast<WLAN_PHY_RADIO_STATE*>(data->pData));
        }
        self.thread = GetCurrentThreadId();
        self.ended = true;
    }
};

class WlanTest : public NotebookTest {};

TEST_F(WlanTest, SwitchIsNotifiedWithItsPhyOnAThreadOfItsOwn) {
    Client client;
    Notified notified;
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, client.Register(kBothSources, &Notified::Callback, &notified));

    client.Set(1, dot11_radio_state_off);

    ASSERT_TRUE(Eventually([&] { return notified.Count() == 1; }));
    client.Close();
    EXPECT_EQ(DWORD{WLAN_NOTIFICATION_SOURCE_MSM}, notified.items[0].NotificationSource);
    EXPECT_EQ(Platform::kWlanNotificationMsmRadioStateChange, notified.items[0].NotificationCode);
    ASSERT_EQ(1U, notified.radios.size());
    EXPECT_EQ(1U, notified.radios[0].dwPhyIndex);
    EXPECT_EQ(dot11_radio_state_off, notified.radios[0].dot11SoftwareRadioState);
    EXPECT_NE(GetCurrentThreadId(), notified.thread);
}

TEST_F(WlanTest, OnlyTheSourcesAskedForAreNotified) {
    Client client;
    Notified notified;
    client.Register(WLAN_NOTIFICATION_SOURCE_ACM, &Notified::Callback, &notified);
    client.Set(0, dot11_radio_state_off);
    {
        LockedMachine machine;
        AnnounceWlan(*machine, 0, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available,
                     machine.Time());
    }
    ASSERT_TRUE(Eventually([&] { return notified.Count() == 1; }));
    client.Close();
    EXPECT_EQ(DWORD{wlan_notification_acm_network_available}, notified.items[0].NotificationCode);
}

TEST_F(WlanTest, NotificationWithoutDataArrivesAsNull) {
    Client client;
    Notified notified;
    client.Register(kBothSources, &Notified::Callback, &notified);
    {
        LockedMachine machine;
        PostEvent(*machine, {.kind = EventKind::WlanNullNotification}, machine.Time());
    }
    EXPECT_TRUE(Eventually([&] { return notified.nulls == 1; }));
}

TEST_F(WlanTest, WhatHappenedBeforeTheRegistrationIsNotNotified) {
    Client client;
    client.Set(0, dot11_radio_state_off);
    Notified notified;
    client.Register(kBothSources, &Notified::Callback, &notified);
    client.Set(1, dot11_radio_state_off);
    ASSERT_TRUE(Eventually([&] { return notified.Count() != 0; }));
    client.Close();
    ASSERT_EQ(1U, notified.radios.size());
    EXPECT_EQ(1U, notified.radios[0].dwPhyIndex);
}

TEST_F(WlanTest, ClosingWaitsForACallbackThatRuns) {
    Client client;
    Notified notified;
    notified.sleepMs = 100;
    client.Register(kBothSources, &Notified::Callback, &notified);
    client.Set(0, dot11_radio_state_off);
    ASSERT_TRUE(Eventually([&] { return notified.running.load(); }));

    client.Close();

    EXPECT_TRUE(notified.ended);
}

TEST_F(WlanTest, UnknownHandleIsRefused) {
    WLAN_INTERFACE_INFO_LIST* list = nullptr;
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE},
              NotebookWlanEnumInterfaces(reinterpret_cast<HANDLE>(1), nullptr, &list));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, NotebookWlanCloseHandle(reinterpret_cast<HANDLE>(1), nullptr));
}

TEST_F(WlanTest, MachineWithoutAdaptersHasNoList) {
    Reset({.wlanAdapters = 0, .cables = 0});
    ULONG size = 0;
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, GetAdaptersInfo(nullptr, &size));
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, GetAdaptersAddresses(AF_UNSPEC, 0, nullptr, nullptr, &size));
}

}  // namespace

}  // namespace Notebook::Tests
