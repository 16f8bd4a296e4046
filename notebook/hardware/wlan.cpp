// The native WLAN interface as the service imports it (wlanapi.dll, client version 2).

#include "notebook/hardware/wlan.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
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
        const auto found = m_clients.find(Key(handle));
        if (found == m_clients.end()) {
            return false;
        }
        const std::shared_ptr<Client> client = found->second;
        m_clients.erase(found);
        Unregister(*client, true);
        return true;
    }

    bool Register(HANDLE handle, DWORD sources, WLAN_NOTIFICATION_CALLBACK callback, void* context,
                  std::uint64_t since, DWORD& before) {
        const ExclusiveLock lock(m_lock);
        const auto found = m_clients.find(Key(handle));
        if (found == m_clients.end()) {
            return false;
        }
        const std::shared_ptr<Client> client = found->second;
        before = client->sources;
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

void* Allocate(std::size_t bytes) {
    void* const memory = AllocateGuarded(bytes, alignof(WLAN_RADIO_STATE));
    if (memory != nullptr) {
        InterlockedIncrement(&SharedState::Get().Raw().ledger.wlanMemory);
    }
    return memory;
}

WlanAdapter* FindAdapterById(Machine& machine, const GUID& id) {
    for (WlanAdapter& adapter : machine.devices.wlan) {
        if (adapter.present != 0 && IsEqualGUID(adapter.id, id)) {
            return &adapter;
        }
    }
    return nullptr;
}

/// What every call checks first.
DWORD Admit(const CallScope& call, HANDLE handle, bool argumentsFit) {
    if (call.Refused()) {
        return call.Error();
    }
    if (!argumentsFit) {
        return ERROR_INVALID_PARAMETER;
    }
    if (!Clients::Get().Knows(handle)) {
        InterlockedIncrement(&SharedState::Get().Raw().ledger.misuses);
        return ERROR_INVALID_HANDLE;
    }
    return SharedState::Get().Raw().devices.wlanServiceRuns != 0 ? static_cast<DWORD>(ERROR_SUCCESS)
                                                                 : ERROR_SERVICE_NOT_ACTIVE;
}

DWORD Enumerate(WLAN_INTERFACE_INFO_LIST** list) {
    LockedMachine machine;
    std::vector<const WlanAdapter*> present;
    for (const WlanAdapter& adapter : machine->devices.wlan) {
        if (adapter.present != 0) {
            present.push_back(&adapter);
        }
    }
    // No room for one when there is none.
    auto* const result = static_cast<WLAN_INTERFACE_INFO_LIST*>(Allocate(
        offsetof(WLAN_INTERFACE_INFO_LIST, InterfaceInfo) + present.size() * sizeof(WLAN_INTERFACE_INFO)));
    if (result == nullptr) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    result->dwNumberOfItems = static_cast<DWORD>(present.size());
    WLAN_INTERFACE_INFO* info = &result->InterfaceInfo[0];
    for (const WlanAdapter* const adapter : present) {
        info->InterfaceGuid = adapter->id;
        std::memcpy(info->strInterfaceDescription, adapter->description,
                    sizeof(info->strInterfaceDescription));
        info->isState = static_cast<WLAN_INTERFACE_STATE>(adapter->state);
        ++info;
    }
    *list = result;
    return ERROR_SUCCESS;
}

DWORD Capability(const GUID& id, WLAN_INTERFACE_CAPABILITY** capability) {
    LockedMachine machine;
    const WlanAdapter* const adapter = FindAdapterById(*machine, id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    auto* const result = static_cast<WLAN_INTERFACE_CAPABILITY*>(Allocate(sizeof(WLAN_INTERFACE_CAPABILITY)));
    if (result == nullptr) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    result->interfaceType = wlan_interface_type_native_802_11;
    result->dwNumberOfSupportedPhys = adapter->phyCount;
    *capability = result;
    return ERROR_SUCCESS;
}

DWORD QueryRadio(const GUID& id, DWORD* size, void** data) {
    LockedMachine machine;
    const WlanAdapter* const adapter = FindAdapterById(*machine, id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    auto* const state = static_cast<WLAN_RADIO_STATE*>(Allocate(sizeof(WLAN_RADIO_STATE)));
    if (state == nullptr) {
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
    WlanAdapter* const adapter = FindAdapterById(*machine, id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    return SetPhySoftware(*machine, static_cast<std::uint32_t>(adapter - machine->devices.wlan),
                          wanted.dwPhyIndex, static_cast<std::uint32_t>(wanted.dot11SoftwareRadioState),
                          machine.Time());
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
    EventPump::Get().OnWlan(&DeliverWlan);
}

}  // namespace Notebook

using namespace Notebook;

extern "C" {

DWORD WINAPI NotebookWlanOpenHandle(DWORD clientVersion, PVOID reserved, PDWORD negotiatedVersion,
                                    PHANDLE clientHandle) {
    CallScope call(Call::WlanOpenHandle);
    call.Detail("version %lu", clientVersion);
    if (call.Refused()) {
        return call.Result(call.Error());
    }
    if (reserved != nullptr || negotiatedVersion == nullptr || clientHandle == nullptr) {
        return call.Result(static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    if (SharedState::Get().Raw().devices.wlanServiceRuns == 0) {
        return call.Result(static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    }
    *negotiatedVersion = std::min(clientVersion, kNegotiatedVersion);
    *clientHandle = Clients::Get().Open();
    InterlockedIncrement(&SharedState::Get().Raw().ledger.wlanHandles);
    return call.Result(static_cast<DWORD>(ERROR_SUCCESS));
}

DWORD WINAPI NotebookWlanCloseHandle(HANDLE clientHandle, PVOID reserved) {
    CallScope call(Call::WlanCloseHandle);
    if (call.Refused()) {
        return call.Result(call.Error());
    }
    Machine& machine = SharedState::Get().Raw();
    if (reserved != nullptr || !Clients::Get().Close(clientHandle)) {
        InterlockedIncrement(&machine.ledger.misuses);
        return call.Result(static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    InterlockedDecrement(&machine.ledger.wlanHandles);
    return call.Result(static_cast<DWORD>(ERROR_SUCCESS));
}

DWORD WINAPI NotebookWlanEnumInterfaces(HANDLE clientHandle, PVOID reserved,
                                        PWLAN_INTERFACE_INFO_LIST* list) {
    CallScope call(Call::WlanEnumInterfaces);
    if (list != nullptr) {
        *list = nullptr;
    }
    const DWORD refusal = Admit(call, clientHandle, reserved == nullptr && list != nullptr);
    return call.Result(refusal != ERROR_SUCCESS || call.Refused() ? refusal : Enumerate(list));
}

DWORD WINAPI NotebookWlanGetInterfaceCapability(HANDLE clientHandle, const GUID* interfaceGuid,
                                                PVOID reserved, PWLAN_INTERFACE_CAPABILITY* capability) {
    CallScope call(Call::WlanGetInterfaceCapability);
    if (capability != nullptr) {
        *capability = nullptr;
    }
    const bool fit = interfaceGuid != nullptr && reserved == nullptr && capability != nullptr;
    const DWORD refusal = Admit(call, clientHandle, fit);
    return call.Result(refusal != ERROR_SUCCESS || call.Refused() ? refusal
                                                                  : Capability(*interfaceGuid, capability));
}

DWORD WINAPI NotebookWlanSetInterface(HANDLE clientHandle, const GUID* interfaceGuid, WLAN_INTF_OPCODE opcode,
                                      DWORD dataSize, const PVOID data, PVOID reserved) {
    CallScope call(Call::WlanSetInterface);
    const bool fit = interfaceGuid != nullptr && reserved == nullptr && data != nullptr &&
                     opcode == wlan_intf_opcode_radio_state && dataSize >= sizeof(WLAN_PHY_RADIO_STATE);
    if (!call.Refused() && fit) {
        const auto& wanted = *static_cast<const WLAN_PHY_RADIO_STATE*>(data);
        call.Detail("PHY %lu to %d", wanted.dwPhyIndex, wanted.dot11SoftwareRadioState);
    }
    const DWORD refusal = Admit(call, clientHandle, fit);
    if (refusal != ERROR_SUCCESS || call.Refused()) {
        return call.Result(refusal);
    }
    return call.Result(SetRadio(*interfaceGuid, *static_cast<const WLAN_PHY_RADIO_STATE*>(data)));
}

DWORD WINAPI NotebookWlanQueryInterface(HANDLE clientHandle, const GUID* interfaceGuid,
                                        WLAN_INTF_OPCODE opcode, PVOID reserved, PDWORD dataSize, PVOID* data,
                                        PWLAN_OPCODE_VALUE_TYPE valueType) {
    CallScope call(Call::WlanQueryInterface);
    if (data != nullptr) {
        *data = nullptr;
    }
    const bool fit = interfaceGuid != nullptr && reserved == nullptr && dataSize != nullptr &&
                     data != nullptr && opcode == wlan_intf_opcode_radio_state;
    const DWORD refusal = Admit(call, clientHandle, fit);
    if (refusal != ERROR_SUCCESS || call.Refused()) {
        return call.Result(refusal);
    }
    if (valueType != nullptr) {
        *valueType = wlan_opcode_value_type_query_only;
    }
    return call.Result(QueryRadio(*interfaceGuid, dataSize, data));
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
    DWORD result = Admit(call, clientHandle, reserved == nullptr);
    if (result != ERROR_SUCCESS || call.Refused()) {
        return call.Result(result);
    }
    const std::uint64_t since = EventPump::Get().Start();
    DWORD before = 0;
    const bool known = Clients::Get().Register(clientHandle, sources, callback, context, since, before);
    result = known ? static_cast<DWORD>(ERROR_SUCCESS) : static_cast<DWORD>(ERROR_INVALID_HANDLE);
    if (previousSources != nullptr) {
        *previousSources = before;
    }
    return call.Result(result);
}

}  // extern "C"
