// The native WLAN interface as the service imports it (wlanapi.dll, client version 2).

#include "notebook/hardware/wlan.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <ranges>
#include <vector>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/hardware/guarded_memory.h"
#include "notebook/hardware/start.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

constexpr DWORD kNegotiatedVersion = 2;
constexpr DWORD kAnySource = 0xFFFF;  // L2_NOTIFICATION_SOURCE_ALL, which the compiler's header lacks

/// One opened client. Kept by the table and by a callback that runs for it.
struct Client {
    WLAN_NOTIFICATION_CALLBACK callback = nullptr;
    void* context = nullptr;
    DWORD sources = WLAN_NOTIFICATION_SOURCE_NONE;
    std::uint64_t since = 0;
    int running = 0;
    DWORD runningThread = 0;
};

/// The clients of this process.
class Clients {
  public:
    static Clients& Get() {
        static Clients& clients = *new Clients();
        return clients;
    }

    HANDLE Open() {
        const ExclusiveLock lock(m_lock);
        m_clients[++m_last] = std::make_shared<Client>();
        return reinterpret_cast<HANDLE>(m_last);
    }

    [[nodiscard]] bool Knows(HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        return m_clients.count(Key(handle)) != 0;
    }

    bool Close(HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        const auto closed = m_clients.extract(Key(handle));
        if (!closed) {
            return false;
        }
        Unregister(*closed.mapped(), true);
        return true;
    }

    bool Register(HANDLE handle, DWORD sources, WLAN_NOTIFICATION_CALLBACK callback, void* context,
                  std::uint64_t since) {
        const ExclusiveLock lock(m_lock);
        const auto found = m_clients.find(Key(handle));
        if (found == m_clients.end()) {
            return false;
        }
        const std::shared_ptr<Client> client = found->second;
        Unregister(*client, sources == WLAN_NOTIFICATION_SOURCE_NONE);
        client->sources = sources;
        client->callback = callback;
        client->context = context;
        client->since = since;
        if (sources != WLAN_NOTIFICATION_SOURCE_NONE) {
            InterlockedIncrement(&SharedState::Get().Raw().ledger.wlanRegistrations);
        }
        return true;
    }

    void Notify(WLAN_NOTIFICATION_DATA* data, DWORD source, std::uint64_t number) {
        for (const std::shared_ptr<Client>& client : Begin(source, number)) {
            client->callback(data, client->context);
            End(*client);
        }
    }

  private:
    using Id = std::uintptr_t;
    static Id Key(HANDLE handle) { return reinterpret_cast<Id>(handle); }

    std::vector<std::shared_ptr<Client>> Begin(DWORD source, std::uint64_t number) {
        const ExclusiveLock lock(m_lock);
        std::vector<std::shared_ptr<Client>> chosen;
        for (const auto& [key, client] : m_clients) {
            if ((client->sources & source) != 0 && number >= client->since && client->callback != nullptr) {
                ++client->running;
                client->runningThread = GetCurrentThreadId();
                chosen.push_back(client);
            }
        }
        return chosen;
    }

    void End(Client& client) {
        const ExclusiveLock lock(m_lock);
        --client.running;
        WakeAllConditionVariable(&m_ended);
    }

    /// Waits for a callback that runs, as Windows does, but not for the one that calls.
    void Unregister(Client& client, bool wait) {
        if (client.sources != WLAN_NOTIFICATION_SOURCE_NONE) {
            InterlockedDecrement(&SharedState::Get().Raw().ledger.wlanRegistrations);
        }
        client.sources = WLAN_NOTIFICATION_SOURCE_NONE;
        while (wait && client.running != 0 && client.runningThread != GetCurrentThreadId()) {
            SleepConditionVariableSRW(&m_ended, &m_lock, INFINITE, 0);
        }
    }

    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_ended = CONDITION_VARIABLE_INIT;
    std::map<Id, std::shared_ptr<Client>> m_clients;
    Id m_last = 0x1000;
};

WlanAdapter* FindAdapterById(Machine& machine, const GUID& id) {
    for (WlanAdapter& adapter : Present(machine.devices.wlan)) {
        if (IsEqualGUID(adapter.id, id)) {
            return &adapter;
        }
    }
    return nullptr;
}

/// The result of a client's call: what its rule says, an error of the call's own, or what the device does.
template <class Device>
DWORD Answer(CallScope& call, HANDLE handle, bool argumentsFit, Device device) {
    return static_cast<DWORD>(call.Answer([&]() -> HRESULT {
        if (!argumentsFit) {
            return ERROR_INVALID_PARAMETER;
        }
        if (!Clients::Get().Knows(handle)) {
            InterlockedIncrement(&SharedState::Get().Raw().ledger.misuses);
            return ERROR_INVALID_HANDLE;
        }
        if (SharedState::Get().Raw().devices.wlanServiceRuns == 0) {
            return ERROR_SERVICE_NOT_ACTIVE;
        }
        return static_cast<HRESULT>(device());
    }));
}

/// Memory for what a call gives, in `place`.
template <class Type>
bool Allocate(Type*& place, std::size_t bytes) {
    place = static_cast<Type*>(AllocateGuarded(bytes, alignof(WLAN_RADIO_STATE)));
    if (place != nullptr) {
        InterlockedIncrement(&SharedState::Get().Raw().ledger.wlanMemory);
    }
    return place != nullptr;
}

DWORD Enumerate(WLAN_INTERFACE_INFO_LIST** list) {
    LockedMachine machine;
    auto present = Present(machine->devices.wlan);
    const auto count = static_cast<std::size_t>(std::ranges::distance(present));
    // No room for one when there is none.
    if (!Allocate(*list,
                  offsetof(WLAN_INTERFACE_INFO_LIST, InterfaceInfo) + count * sizeof(WLAN_INTERFACE_INFO))) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    (*list)->dwNumberOfItems = static_cast<DWORD>(count);
    WLAN_INTERFACE_INFO* info = &(*list)->InterfaceInfo[0];
    for (const WlanAdapter& adapter : present) {
        info->InterfaceGuid = adapter.id;
        std::memcpy(info->strInterfaceDescription, adapter.description,
                    sizeof(info->strInterfaceDescription));
        info->isState = static_cast<WLAN_INTERFACE_STATE>(adapter.state);
        ++info;
    }
    return ERROR_SUCCESS;
}

DWORD Capability(const GUID& id, WLAN_INTERFACE_CAPABILITY** capability) {
    LockedMachine machine;
    const WlanAdapter* const adapter = FindAdapterById(*machine, id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    if (!Allocate(*capability, sizeof(WLAN_INTERFACE_CAPABILITY))) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    (*capability)->interfaceType = wlan_interface_type_native_802_11;
    (*capability)->dwNumberOfSupportedPhys = adapter->phyCount;
    return ERROR_SUCCESS;
}

DWORD QueryRadio(const GUID& id, DWORD* size, void** data) {
    LockedMachine machine;
    const WlanAdapter* const adapter = FindAdapterById(*machine, id);
    WLAN_RADIO_STATE* state = nullptr;
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    if (!Allocate(state, sizeof(WLAN_RADIO_STATE))) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    state->dwNumberOfPhys = adapter->phyCount;
    for (std::uint32_t i = 0; i < adapter->phyCount; ++i) {
        state->PhyRadioState[i] = {i, static_cast<DOT11_RADIO_STATE>(adapter->phys[i].software),
                                   static_cast<DOT11_RADIO_STATE>(adapter->phys[i].hardware)};
    }
    *size = sizeof(WLAN_RADIO_STATE);
    *data = state;
    return ERROR_SUCCESS;
}

DWORD SetRadio(const GUID& id, const WLAN_PHY_RADIO_STATE& wanted) {
    LockedMachine machine;
    const WlanAdapter* const adapter = FindAdapterById(*machine, id);
    return adapter == nullptr
               ? static_cast<DWORD>(ERROR_NOT_FOUND)
               : SetPhySoftware(*machine, IndexOf(machine->devices.wlan, *adapter), wanted.dwPhyIndex,
                                static_cast<std::uint32_t>(wanted.dot11SoftwareRadioState), machine.Time());
}

void DeliverWlan(const Event& event, std::uint64_t number) {
    CallScope scope(Call::Notification);
    scope.Detail("WLAN source 0x%x code %u", event.source, event.code);
    if (event.kind == EventKind::WlanNullNotification) {
        Clients::Get().Notify(nullptr, kAnySource, number);
        return;
    }
    WLAN_PHY_RADIO_STATE radio{event.value, static_cast<DOT11_RADIO_STATE>(event.software),
                               static_cast<DOT11_RADIO_STATE>(event.hardware)};
    WLAN_NOTIFICATION_DATA data{};
    data.NotificationSource = event.source;
    data.NotificationCode = event.code;
    data.InterfaceGuid = event.id;
    if (event.withoutData == 0) {
        data.dwDataSize = sizeof(radio);
        data.pData = &radio;
    }
    Clients::Get().Notify(&data, event.source, number);
}

}  // namespace

void StartWlan() {
    EventPump::Get().On(Channel::Wlan, &DeliverWlan);
}

}  // namespace Notebook

using namespace Notebook;

extern "C" {

DWORD WINAPI NotebookWlanOpenHandle(DWORD clientVersion, PVOID reserved, PDWORD negotiatedVersion,
                                    PHANDLE clientHandle) {
    CallScope call(Call::WlanOpenHandle);
    call.Detail("version %lu", clientVersion);
    return static_cast<DWORD>(call.Answer([&]() -> HRESULT {
        if (reserved != nullptr || negotiatedVersion == nullptr || clientHandle == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        if (SharedState::Get().Raw().devices.wlanServiceRuns == 0) {
            return ERROR_SERVICE_NOT_ACTIVE;
        }
        *negotiatedVersion = std::min(clientVersion, kNegotiatedVersion);
        *clientHandle = Clients::Get().Open();
        InterlockedIncrement(&SharedState::Get().Raw().ledger.wlanHandles);
        return ERROR_SUCCESS;
    }));
}

DWORD WINAPI NotebookWlanCloseHandle(HANDLE clientHandle, PVOID reserved) {
    CallScope call(Call::WlanCloseHandle);
    return static_cast<DWORD>(call.Answer([&]() -> HRESULT {
        Ledger& ledger = SharedState::Get().Raw().ledger;
        if (reserved != nullptr || !Clients::Get().Close(clientHandle)) {
            InterlockedIncrement(&ledger.misuses);
            return ERROR_INVALID_HANDLE;
        }
        InterlockedDecrement(&ledger.wlanHandles);
        return ERROR_SUCCESS;
    }));
}

DWORD WINAPI NotebookWlanEnumInterfaces(HANDLE clientHandle, PVOID reserved,
                                        PWLAN_INTERFACE_INFO_LIST* list) {
    CallScope call(Call::WlanEnumInterfaces);
    if (list != nullptr) {
        *list = nullptr;
    }
    const bool fit = reserved == nullptr && list != nullptr;
    return Answer(call, clientHandle, fit, [&] { return Enumerate(list); });
}

DWORD WINAPI NotebookWlanGetInterfaceCapability(HANDLE clientHandle, const GUID* interfaceGuid,
                                                PVOID reserved, PWLAN_INTERFACE_CAPABILITY* capability) {
    CallScope call(Call::WlanGetInterfaceCapability);
    if (capability != nullptr) {
        *capability = nullptr;
    }
    const bool fit = interfaceGuid != nullptr && reserved == nullptr && capability != nullptr;
    return Answer(call, clientHandle, fit, [&] { return Capability(*interfaceGuid, capability); });
}

DWORD WINAPI NotebookWlanSetInterface(HANDLE clientHandle, const GUID* interfaceGuid, WLAN_INTF_OPCODE opcode,
                                      DWORD dataSize, const PVOID data, PVOID reserved) {
    CallScope call(Call::WlanSetInterface);
    const auto* const wanted = static_cast<const WLAN_PHY_RADIO_STATE*>(data);
    const bool fit = interfaceGuid != nullptr && reserved == nullptr && data != nullptr &&
                     opcode == wlan_intf_opcode_radio_state && dataSize == sizeof(*wanted);
    if (!call.Refused() && fit) {
        call.Detail("PHY %lu to %d", wanted->dwPhyIndex, wanted->dot11SoftwareRadioState);
    }
    return Answer(call, clientHandle, fit, [&] { return SetRadio(*interfaceGuid, *wanted); });
}

DWORD WINAPI NotebookWlanQueryInterface(HANDLE clientHandle, const GUID* interfaceGuid,
                                        WLAN_INTF_OPCODE opcode, PVOID reserved, PDWORD dataSize, PVOID* data,
                                        PWLAN_OPCODE_VALUE_TYPE valueType) {
    CallScope call(Call::WlanQueryInterface);
    if (data != nullptr) {
        *data = nullptr;
    }
    const bool fit = interfaceGuid != nullptr && reserved == nullptr && dataSize != nullptr &&
                     data != nullptr && valueType == nullptr && opcode == wlan_intf_opcode_radio_state;
    return Answer(call, clientHandle, fit, [&] { return QueryRadio(*interfaceGuid, dataSize, data); });
}

VOID WINAPI NotebookWlanFreeMemory(PVOID memory) {
    if (memory != nullptr) {
        Ledger& ledger = SharedState::Get().Raw().ledger;
        InterlockedDecrement(&ledger.wlanMemory);
        if (!FreeGuarded(memory)) {
            InterlockedIncrement(&ledger.misuses);
        }
    }
}

DWORD WINAPI NotebookWlanRegisterNotification(HANDLE clientHandle, DWORD sources, BOOL ignoreDuplicate,
                                              WLAN_NOTIFICATION_CALLBACK callback, PVOID context,
                                              PVOID reserved, PDWORD previousSources) {
    CallScope call(Call::WlanRegisterNotification);
    call.Detail("sources 0x%lx, ignore duplicates %d", sources, ignoreDuplicate);
    return Answer(call, clientHandle, reserved == nullptr && previousSources == nullptr, [&] {
        const std::uint64_t since = EventPump::Get().Start();
        const bool known = Clients::Get().Register(clientHandle, sources, callback, context, since);
        return known ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    });
}

}  // extern "C"
