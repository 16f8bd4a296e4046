#include "tests/hostile/radio_world.h"

#include <wlanapi.h>

#include <algorithm>
#include <cstddef>

#include "bios/bios_settings.h"
#include "core/service_state.h"
#include "core/wlan_notifications.h"
#include "network/nlm_event_handler.h"
#include "radio/wlan_radio.h"
#include "tests/hostile/guarded_room.h"
#include "tests/hostile/kind.h"

namespace HostileBytes {
namespace {

using Rig::ScopedImport;
using ServiceUtils::kRadioOff;

/// WLAN notifications, and the records that the WLAN interface hands out while they are handled.
class Notifications final : public Kind {
  public:
    Notifications() {
        const ScopedImport<&::WlanRegisterNotification> look{
            [this](HANDLE, DWORD, BOOL, WLAN_NOTIFICATION_CALLBACK callback, PVOID, PVOID, PDWORD) {
                m_callback = callback;
                return DWORD{ERROR_SUCCESS};
            }};
        constexpr unsigned char kYes = 1;
        ServiceState state;
        RegisterWlanNotification(state, &kYes);
        state.wlanHandle.Reset();
    }

    void Try(Random& random) override {
        m_world.Draw(random);
        DrawRecords(random);
        const bool isEnabled = random.OneIn(2);
        NLMUtils::lanWlanSwitchingEnabled = isEnabled;
        msm_Notification_flag = random.OneIn(4);
        ServiceUtils::my_setwifitimeout = false;
        ServiceUtils::my_service_turnonoff_wifi = kRadioOff;

        // A record as long as it is, with data that nobody may read: shorter than any record, or not there.
        WLAN_NOTIFICATION_DATA data{};
        data.NotificationSource = random.OneIn(4) ? random.Number() : random.Of<DWORD>({8, 16});
        data.NotificationCode = random.OneIn(4) ? random.Number() : random.Of<DWORD>({7, 19});
        data.dwDataSize = random.Number();
        data.pData = m_notification.End();
        auto* const placed = static_cast<WLAN_NOTIFICATION_DATA*>(m_notification.Place(BytesOf(data)));
        const bool isThere = !random.OneIn(32);
        m_callback(isThere ? placed : nullptr, nullptr);

        Judge(isThere && data.NotificationSource == 8 && data.NotificationCode == 19,
              isThere && data.NotificationSource == 16 && data.NotificationCode == 7, isEnabled);
    }

  private:
    void DrawRecords(Random& random) {
        m_listCount = random.OneIn(4) ? random.Number() : random.Below(3);
        m_radioCount = random.OneIn(3) ? random.Number() : random.Below(4);
        m_isListThere = !random.OneIn(16);
        // As many PHYs as it names, or not; in a block as long as they need, or not.
        const std::uint32_t written = std::min<std::uint32_t>(m_radioCount, 70);
        m_radio.resize(offsetof(WLAN_RADIO_STATE, PhyRadioState) + written * sizeof(WLAN_PHY_RADIO_STATE));
        Copy(m_radio.data(), &m_radioCount, sizeof(m_radioCount));
        const std::uint32_t usual = random.OneIn(2) ? 1 : random.Number();
        for (std::size_t at = sizeof(DWORD); at < m_radio.size(); at += sizeof(DWORD)) {
            const std::uint32_t number = random.OneIn(16) ? random.Number() : usual;
            Copy(m_radio.data() + at, &number, sizeof(number));
        }
        if (random.OneIn(3)) {
            m_radio.resize(random.Below(m_radio.size() + 1));
        }
        m_queryError = random.OneIn(16) ? random.Number() : ERROR_SUCCESS;
        m_phys = random.OneIn(3) ? random.Number() : random.Below(4);
        m_isCapabilityThere = !random.OneIn(16);
        m_refuses = random.OneIn(256);
        m_sets = 0;
        m_wrongSets = 0;
        m_interface = random.Number();
    }

    /// Whether the record, if it is whole, says that every PHY is on.
    [[nodiscard]] bool IsOn() const {
        constexpr std::size_t kHeader = offsetof(WLAN_RADIO_STATE, PhyRadioState);
        bool isOn = m_isListThere && m_queryError == ERROR_SUCCESS && m_radio.size() >= kHeader &&
                    m_radioCount <= 64 &&
                    m_radio.size() >= kHeader + m_radioCount * sizeof(WLAN_PHY_RADIO_STATE);
        for (std::size_t phy = 0; isOn && phy < m_radioCount; ++phy) {
            WLAN_PHY_RADIO_STATE state{};
            Copy(&state, m_radio.data() + kHeader + phy * sizeof(state), sizeof(state));
            isOn = static_cast<DWORD>(state.dot11SoftwareRadioState) == 1;
        }
        return isOn;
    }

    void Judge(bool isAvailable, bool isRadioChange, bool isEnabled) const {
        const bool isOn = IsOn();
        const bool isCableIn = m_world.isReadable && m_world.isCableIn;
        const bool isCableOut = m_world.isReadable && !m_world.isCableIn;
        std::vector<std::wstring> stored;
        if (isCableOut && isAvailable && isOn) {
            stored.emplace_back(L"True");
        }
        if (isCableOut && isRadioChange && !m_world.inAirplaneMode && !msm_Notification_flag) {
            stored.emplace_back(isOn ? L"True" : L"False");
        }
        Require(m_world.stored == stored, "a choice was invented or lost");
        const bool switches =
            isCableIn && isEnabled && isOn && (isAvailable || isRadioChange) && m_isCapabilityThere;
        const int phys = static_cast<int>(std::min<std::uint32_t>(m_phys, 64));
        Require(
            m_wrongSets == 0 && (m_refuses || m_sets == (switches ? phys : 0)) && (switches || m_sets == 0),
            "a PHY was switched that should not be, or not switched");
        Require(m_given == 0, "WLAN memory was not given back");
    }

    /// The list, with as much behind it as its first entry needs, or nothing.
    DWORD GiveList(WLAN_INTERFACE_INFO_LIST** list) {
        Bytes bytes(offsetof(WLAN_INTERFACE_INFO_LIST, InterfaceInfo) +
                    (m_listCount != 0 ? sizeof(WLAN_INTERFACE_INFO) : 0));
        Copy(bytes.data(), &m_listCount, sizeof(m_listCount));
        if (m_listCount != 0) {
            WLAN_INTERFACE_INFO info{};
            // A description without an end.
            std::ranges::fill(info.strInterfaceDescription, static_cast<wchar_t>(m_interface));
            Copy(&info.isState, &m_interface, sizeof(m_interface));
            Copy(bytes.data() + offsetof(WLAN_INTERFACE_INFO_LIST, InterfaceInfo), &info, sizeof(info));
        }
        *list = m_isListThere ? static_cast<WLAN_INTERFACE_INFO_LIST*>(Give(m_listRoom, bytes)) : nullptr;
        return ERROR_SUCCESS;
    }

    DWORD GiveRadio(DWORD* bytes, void** data) {
        if (m_queryError == ERROR_SUCCESS) {
            *bytes = static_cast<DWORD>(m_radio.size());
            *data = Give(m_radioRoom, m_radio);
        }
        return m_queryError;
    }

    DWORD GiveCapability(WLAN_INTERFACE_CAPABILITY** capability) {
        WLAN_INTERFACE_CAPABILITY record{};
        record.dwNumberOfSupportedPhys = m_phys;
        *capability = m_isCapabilityThere
                          ? static_cast<WLAN_INTERFACE_CAPABILITY*>(Give(m_capabilityRoom, BytesOf(record)))
                          : nullptr;
        return ERROR_SUCCESS;
    }

    void* Give(GuardedRoom& room, const Bytes& bytes) {
        ++m_given;
        return room.Place(bytes, alignof(DWORD));
    }

    DWORD Set(DWORD bytes, const void* data) {
        WLAN_PHY_RADIO_STATE state{};
        Copy(&state, data, std::min<std::size_t>(bytes, sizeof(state)));
        const bool isRight = bytes == sizeof(state) &&
                             state.dot11SoftwareRadioState == dot11_radio_state_off &&
                             state.dwPhyIndex < std::min<std::uint32_t>(m_phys, 64);
        m_wrongSets += isRight ? 0 : 1;
        ++m_sets;
        return m_refuses ? ERROR_GEN_FAILURE : ERROR_SUCCESS;
    }

    RadioWorld m_world;
    WLAN_NOTIFICATION_CALLBACK m_callback = nullptr;
    GuardedRoom m_notification;
    GuardedRoom m_listRoom;
    GuardedRoom m_radioRoom;
    GuardedRoom m_capabilityRoom;
    std::uint32_t m_listCount = 0;
    std::uint32_t m_interface = 0;
    bool m_isListThere = true;
    std::uint32_t m_radioCount = 0;
    Bytes m_radio;
    DWORD m_queryError = ERROR_SUCCESS;
    std::uint32_t m_phys = 0;
    bool m_isCapabilityThere = true;
    bool m_refuses = false;
    int m_given = 0;
    int m_sets = 0;
    int m_wrongSets = 0;
    ScopedImport<&::WlanOpenHandle> m_open{[](DWORD, PVOID, PDWORD, PHANDLE client) -> DWORD {
        *client = reinterpret_cast<HANDLE>(std::uintptr_t{0x1000});
        return ERROR_SUCCESS;
    }};
    ScopedImport<&::WlanCloseHandle> m_close{[](HANDLE, PVOID) -> DWORD { return ERROR_SUCCESS; }};
    ScopedImport<&::WlanEnumInterfaces> m_enumerate{
        [this](HANDLE, PVOID, PWLAN_INTERFACE_INFO_LIST* list) { return GiveList(list); }};
    ScopedImport<&::WlanQueryInterface> m_query{
        [this](HANDLE, const GUID*, WLAN_INTF_OPCODE, PVOID, PDWORD bytes, PVOID* data,
               PWLAN_OPCODE_VALUE_TYPE) { return GiveRadio(bytes, data); }};
    ScopedImport<&::WlanGetInterfaceCapability> m_capability{
        [this](HANDLE, const GUID*, PVOID, PWLAN_INTERFACE_CAPABILITY* capability) {
            return GiveCapability(capability);
        }};
    ScopedImport<&::WlanSetInterface> m_set{[this](HANDLE, const GUID*, WLAN_INTF_OPCODE, DWORD bytes,
                                                   PVOID data, PVOID) { return Set(bytes, data); }};
    ScopedImport<&::WlanFreeMemory> m_free{[this](PVOID) { --m_given; }};
};

}  // namespace

std::unique_ptr<Kind> MakeNotifications() {
    return std::make_unique<Notifications>();
}

}  // namespace HostileBytes
