#include <windows.h>
#include <wlanapi.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"
#include "platform/handles.h"
#include "platform/mbn_api.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_interfaces.h"

namespace Inspection {
namespace {

using Microsoft::WRL::ComPtr;

const char* RadioStateName(DOT11_RADIO_STATE state) {
    switch (state) {
        case dot11_radio_state_on:
            return "on";
        case dot11_radio_state_off:
            return "off";
        default:
            return "unknown";
    }
}

const char* InterfaceStateName(WLAN_INTERFACE_STATE state) {
    static constexpr const char* kNames[] = {
        "not ready",     "connected",      "first node in an ad hoc network",
        "disconnecting", "not connected",  "associating",
        "discovering",   "authenticating",
    };
    const auto index = static_cast<std::size_t>(state);
    return index < std::size(kNames) ? kNames[index] : "unknown";
}

std::string IdText(const GUID& id) {
    Platform::UniqueCoTaskText text;
    return SUCCEEDED(StringFromCLSID(id, text.Put())) ? Utf8(text.Get()) : std::string();
}

void ReadPhys(const Platform::UniqueWlanHandle& client, const GUID& id, WlanInterface& wlanInterface) {
    DWORD bytes = 0;
    Platform::UniqueWlanMemory<void> data;
    wlanInterface.error = WlanQueryInterface(client.Get(), &id, wlan_intf_opcode_radio_state, nullptr, &bytes,
                                             data.Put(), nullptr);
    if (wlanInterface.error != ERROR_SUCCESS) {
        return;
    }
    constexpr std::size_t kHeader = offsetof(WLAN_RADIO_STATE, PhyRadioState);
    const auto* const radio = static_cast<const WLAN_RADIO_STATE*>(data.Get());
    if (radio == nullptr || bytes < kHeader) {
        wlanInterface.error = ERROR_INVALID_DATA;
        return;
    }
    const auto shown = std::min<std::size_t>({radio->dwNumberOfPhys, std::size(radio->PhyRadioState),
                                              (bytes - kHeader) / sizeof(WLAN_PHY_RADIO_STATE)});
    for (std::size_t i = 0; i < shown; ++i) {
        wlanInterface.phys.push_back({RadioStateName(radio->PhyRadioState[i].dot11SoftwareRadioState),
                                      RadioStateName(radio->PhyRadioState[i].dot11HardwareRadioState)});
    }
}

void ReadInterfaces(Wlan& wlan) {
    Platform::UniqueWlanHandle client;
    DWORD version = 0;
    wlan.error = WlanOpenHandle(Platform::kWlanClientVersion, nullptr, &version, client.Put());
    if (wlan.error != ERROR_SUCCESS) {
        return;
    }
    Platform::UniqueWlanMemory<WLAN_INTERFACE_INFO_LIST> list;
    wlan.error = WlanEnumInterfaces(client.Get(), nullptr, list.Put());
    if (wlan.error != ERROR_SUCCESS || !list) {
        return;
    }
    for (DWORD i = 0; i < list.Get()->dwNumberOfItems; ++i) {
        WLAN_INTERFACE_INFO& info = list.Get()->InterfaceInfo[i];
        *std::rbegin(info.strInterfaceDescription) = L'\0';
        WlanInterface wlanInterface;
        wlanInterface.description = Utf8(info.strInterfaceDescription);
        wlanInterface.id = IdText(info.InterfaceGuid);
        wlanInterface.state = InterfaceStateName(info.isState);
        ReadPhys(client, info.InterfaceGuid, wlanInterface);
        wlan.interfaces.push_back(std::move(wlanInterface));
    }
}

const char* RadioStateName(HRESULT result, MBN_RADIO state) {
    if (FAILED(result)) {
        return "unknown";
    }
    return state == MBN_RADIO_ON ? "on" : "off";
}

Modem ReadModem(IMbnInterfaceManager& manager, const GUID& id) {
    Modem modem;
    modem.id = IdText(id);
    ComPtr<IMbnInterface> mbnInterface;
    HRESULT result = manager.GetInterface(Wide(modem.id).c_str(), mbnInterface.GetAddressOf());
    ComPtr<IMbnRadio> radio;
    if (SUCCEEDED(result) && mbnInterface != nullptr) {
        result = mbnInterface->QueryInterface(IID_IMbnRadio, reinterpret_cast<void**>(radio.GetAddressOf()));
    }
    if (FAILED(result) || radio == nullptr) {
        modem.error = static_cast<ErrorCode>(FAILED(result) ? result : E_POINTER);
        return modem;
    }
    MBN_RADIO state = MBN_RADIO_OFF;
    result = radio->get_SoftwareRadioState(&state);
    modem.software = RadioStateName(result, state);
    modem.error = FAILED(result) ? static_cast<ErrorCode>(result) : 0;
    result = radio->get_HardwareRadioState(&state);
    modem.hardware = RadioStateName(result, state);
    return modem;
}

HRESULT ReadModems(std::vector<Modem>& modems) {
    ComPtr<IMbnInterfaceManager> manager;
    HRESULT result =
        CoCreateInstance(CLSID_MbnInterfaceManager, nullptr, CLSCTX_ALL, IID_IMbnInterfaceManager, &manager);
    if (FAILED(result)) {
        return result;
    }
    Platform::UniqueSafeArray interfaces;
    result = manager->GetInterfaces(interfaces.Put());
    if (FAILED(result)) {
        return result;
    }
    ULONG count = 0;
    Platform::UniqueProcessHeap<GUID> identifiers;
    result = NLMUtils::CopyArrayOfInterfaces(interfaces.Get(), &count, &identifiers);
    for (ULONG i = 0; i < count; ++i) {
        modems.push_back(ReadModem(*manager.Get(), identifiers.Get()[i]));
    }
    return result;
}

}  // namespace

Wlan ReadWlan() {
    Wlan wlan;
    // Its functions are bound when they are first called: without it that would end the program. It
    // stays loaded.
    wlan.isApiThere = LoadLibraryW(L"wlanapi.dll") != nullptr;
    if (wlan.isApiThere) {
        ReadInterfaces(wlan);
        wlan.isOn = ServiceUtils::CheckWlanStatus();
    }
    return wlan;
}

Wwan ReadWwan() {
    Wwan wwan;
    const HRESULT result = ReadModems(wwan.modems);
    wwan.error = FAILED(result) ? static_cast<ErrorCode>(result) : 0;
    return wwan;
}

}  // namespace Inspection
