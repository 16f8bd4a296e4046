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
        EXPECT_EQ(DWORD{ERROR_SUCCESS}, Hardware::Get().WlanOpenHandle(2, nullptr, &version, &m_handle));
        EXPECT_EQ(2U, version);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { Close(); }

    void Close() {
        if (m_handle != nullptr) {
            EXPECT_EQ(DWORD{ERROR_SUCCESS}, Hardware::Get().WlanCloseHandle(m_handle, nullptr));
            m_handle = nullptr;
        }
    }

    [[nodiscard]] HANDLE Handle() const { return m_handle; }

    GUID FirstInterface() {
        WLAN_INTERFACE_INFO_LIST* list = nullptr;
        EXPECT_EQ(DWORD{ERROR_SUCCESS}, Hardware::Get().WlanEnumInterfaces(m_handle, nullptr, &list));
        const GUID id = list->InterfaceInfo[0].InterfaceGuid;
        Hardware::Get().WlanFreeMemory(list);
        return id;
    }

    DWORD Set(DWORD phy, DOT11_RADIO_STATE state) {
        const GUID id = FirstInterface();
        WLAN_PHY_RADIO_STATE wanted{phy, state, dot11_radio_state_unknown};
        return Hardware::Get().WlanSetInterface(m_handle, &id, wlan_intf_opcode_radio_state, sizeof(wanted),
                                                &wanted, nullptr);
    }

    std::vector<int> Software() {
        const GUID id = FirstInterface();
        DWORD size = 0;
        void* data = nullptr;
        std::vector<int> states;
        EXPECT_EQ(DWORD{ERROR_SUCCESS},
                  Hardware::Get().WlanQueryInterface(m_handle, &id, wlan_intf_opcode_radio_state, nullptr,
                                                     &size, &data, nullptr));
        EXPECT_EQ(sizeof(WLAN_RADIO_STATE), size);
        const auto* const radio = static_cast<const WLAN_RADIO_STATE*>(data);
        for (DWORD i = 0; i < radio->dwNumberOfPhys; ++i) {
            states.push_back(radio->PhyRadioState[i].dot11SoftwareRadioState);
        }
        Hardware::Get().WlanFreeMemory(data);
        return states;
    }

    DWORD Register(DWORD sources, WLAN_NOTIFICATION_CALLBACK callback, void* context) {
        return Hardware::Get().WlanRegisterNotification(m_handle, sources, FALSE, callback, context, nullptr,
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

class WlanTest : public NotebookTest {
  protected:
    static WlanAdapter& Adapter() { return SharedState::Get().Raw().devices.wlan[0]; }
};

TEST_F(WlanTest, SettingEachPhyIsSeenInTheQuery) {
    Client client;
    EXPECT_THAT(client.Software(), ElementsAre(1, 1));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, client.Set(0, dot11_radio_state_off));
    EXPECT_THAT(client.Software(), ElementsAre(2, 1));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, client.Set(1, dot11_radio_state_off));
    EXPECT_THAT(client.Software(), ElementsAre(2, 2));
}

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
        Event event{};
        event.kind = EventKind::WlanNullNotification;
        PostEvent(*machine, event, machine.Time());
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

TEST_F(WlanTest, NothingIsNotifiedAfterUnregistering) {
    Client client;
    Client witness;
    Notified notified;
    Notified seen;
    client.Register(kBothSources, &Notified::Callback, &notified);
    client.Register(WLAN_NOTIFICATION_SOURCE_NONE, nullptr, nullptr);
    witness.Register(kBothSources, &Notified::Callback, &seen);
    client.Set(0, dot11_radio_state_off);
    ASSERT_TRUE(Eventually([&] { return seen.Count() == 1; }));
    EXPECT_EQ(0U, notified.Count());
}

TEST_F(WlanTest, RefusingPhyGivesItsError) {
    Adapter().phys[0].refusalsLeft = 1;
    Adapter().phys[0].refuseError = ERROR_BUSY;
    Client client;
    EXPECT_EQ(DWORD{ERROR_BUSY}, client.Set(0, dot11_radio_state_off));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, client.Set(0, dot11_radio_state_off));
}

TEST_F(WlanTest, NoAdapterGivesAListWithoutEntries) {
    Reset({.wlanAdapters = 0});
    Client client;
    WLAN_INTERFACE_INFO_LIST* list = nullptr;
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, Hardware::Get().WlanEnumInterfaces(client.Handle(), nullptr, &list));
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(0U, list->dwNumberOfItems);
    Hardware::Get().WlanFreeMemory(list);
    const GUID none{};
    WLAN_INTERFACE_CAPABILITY* capability = nullptr;
    EXPECT_EQ(DWORD{ERROR_NOT_FOUND},
              Hardware::Get().WlanGetInterfaceCapability(client.Handle(), &none, nullptr, &capability));
    EXPECT_EQ(nullptr, capability);
}

TEST_F(WlanTest, CapabilityHasTheNumberOfPhys) {
    for (const std::uint32_t phys : {0U, 1U, 64U}) {
        Reset({.phys = phys});
        Client client;
        const GUID id = client.FirstInterface();
        WLAN_INTERFACE_CAPABILITY* capability = nullptr;
        ASSERT_EQ(DWORD{ERROR_SUCCESS},
                  Hardware::Get().WlanGetInterfaceCapability(client.Handle(), &id, nullptr, &capability));
        EXPECT_EQ(phys, capability->dwNumberOfSupportedPhys);
        Hardware::Get().WlanFreeMemory(capability);
        EXPECT_EQ(phys, client.Software().size());
    }
}

TEST_F(WlanTest, WithoutItsServiceNoClientOpens) {
    SharedState::Get().Raw().devices.wlanServiceRuns = 0;
    DWORD version = 0;
    HANDLE handle = nullptr;
    EXPECT_EQ(DWORD{ERROR_SERVICE_NOT_ACTIVE}, Hardware::Get().WlanOpenHandle(2, nullptr, &version, &handle));
}

TEST_F(WlanTest, UnknownHandleIsRefused) {
    WLAN_INTERFACE_INFO_LIST* list = nullptr;
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE},
              Hardware::Get().WlanEnumInterfaces(reinterpret_cast<HANDLE>(1), nullptr, &list));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE},
              Hardware::Get().WlanCloseHandle(reinterpret_cast<HANDLE>(1), nullptr));
}

/// The adapter list of this process, which the hardware has taken over.
std::vector<IP_ADAPTER_INFO> AdapterList() {
    ULONG size = 0;
    EXPECT_EQ(DWORD{ERROR_BUFFER_OVERFLOW}, GetAdaptersInfo(nullptr, &size));
    std::vector<IP_ADAPTER_INFO> list(size / sizeof(IP_ADAPTER_INFO));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, GetAdaptersInfo(list.data(), &size));
    return list;
}

TEST_F(WlanTest, UnpluggedCableStaysInTheListWithoutAddress) {
    const std::vector<IP_ADAPTER_INFO> list = AdapterList();
    ASSERT_EQ(2U, list.size());
    EXPECT_EQ(6U, list[0].Type);
    EXPECT_STREQ("0.0.0.0", list[0].IpAddressList.IpAddress.String);
    EXPECT_EQ(71U, list[1].Type);
    EXPECT_EQ(&list[1], list[0].Next);
    EXPECT_EQ(nullptr, list[1].Next);
}

TEST_F(WlanTest, PluggedCableShowsItsAddress) {
    {
        LockedMachine machine;
        PlugIn(*machine, *CablePort(*machine, 1), 0, machine.Time());
    }
    EXPECT_STREQ("192.168.1.20", AdapterList()[0].IpAddressList.IpAddress.String);
}

TEST_F(WlanTest, AddressListNamesEachAdapterInRegistryForm) {
    ULONG size = 0;
    ASSERT_EQ(DWORD{ERROR_BUFFER_OVERFLOW}, GetAdaptersAddresses(AF_UNSPEC, 0, nullptr, nullptr, &size));
    std::vector<std::byte> block(size);
    auto* const first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(block.data());
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, GetAdaptersAddresses(AF_UNSPEC, 0, nullptr, first, &size));
    EXPECT_STREQ("{ADA97E50-5E1F-4B2C-9AD3-C0DE00000001}", first->AdapterName);
    EXPECT_STREQ(L"Brook Gigabit Ethernet Controller 1", first->Description);
    EXPECT_STREQ(L"Ethernet 1", first->FriendlyName);
    EXPECT_EQ(6U, first->IfType);
    ASSERT_NE(nullptr, first->Next);
    EXPECT_EQ(71U, first->Next->IfType);
    EXPECT_EQ(nullptr, first->Next->Next);
}

TEST_F(WlanTest, MachineWithoutAdaptersHasNoList) {
    Reset({.wlanAdapters = 0, .cables = 0});
    ULONG size = 0;
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, GetAdaptersInfo(nullptr, &size));
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, GetAdaptersAddresses(AF_UNSPEC, 0, nullptr, nullptr, &size));
}

}  // namespace

}  // namespace Notebook::Tests
