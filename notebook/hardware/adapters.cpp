// The adapter list (IP helper) and the network-alive query, put in place of the executable's imports.

#include "notebook/hardware/adapters.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

constexpr char kNoAddress[] = "0.0.0.0";

/// The text of a fixed field, which need not have an end.
template <std::size_t Size>
std::string FieldText(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

std::vector<Adapter> Snapshot() {
    LockedMachine machine;
    auto present = Adapters(machine->devices);
    return {present.begin(), present.end()};
}

/// A list call: its errors, or what `fill` makes of the adapters in `list`, of which each takes one `Entry`.
template <class Entry, class List, class Function>
ULONG GiveList(CallScope& call, List* list, PULONG size, bool argumentsFit, Function fill) {
    return static_cast<ULONG>(call.Answer([&]() -> HRESULT {
        if (!argumentsFit) {
            return ERROR_INVALID_PARAMETER;
        }
        const std::vector<Adapter> adapters = Snapshot();
        if (adapters.empty()) {
            return ERROR_NO_DATA;
        }
        const auto needed = static_cast<ULONG>(adapters.size() * sizeof(Entry));
        if (list == nullptr || *size < needed) {
            *size = needed;
            return ERROR_BUFFER_OVERFLOW;
        }
        auto* const entries = reinterpret_cast<Entry*>(list);
        for (std::size_t i = 0; i < adapters.size(); ++i) {
            std::memset(static_cast<void*>(&entries[i]), 0, sizeof(Entry));
            fill(adapters[i], static_cast<DWORD>(i + 1), entries[i],
                 i + 1 < adapters.size() ? &entries[i + 1] : nullptr);
        }
        return ERROR_SUCCESS;
    }));
}

void Describe(const Adapter& adapter, DWORD index, IP_ADAPTER_INFO& info, IP_ADAPTER_INFO* next) {
    info.Next = next;
    info.Index = index;
    info.Type = adapter.type;
    info.DhcpEnabled = TRUE;
    const std::string id = Narrow(GuidText(adapter.id));
    std::memcpy(info.AdapterName, id.c_str(), id.size() + 1);
    static_assert(sizeof(info.Description) == sizeof(adapter.description));
    std::memcpy(info.Description, adapter.description, sizeof(info.Description));
    static_assert(sizeof(info.IpAddressList.IpAddress) == sizeof(adapter.address));
    const std::string address = adapter.hasAddress != 0 ? FieldText(adapter.address) : kNoAddress;
    std::memcpy(info.IpAddressList.IpAddress.String, address.data(), address.size());
    std::memcpy(info.IpAddressList.IpMask.String, "255.255.255.0", sizeof("255.255.255.0"));
}

/// An adapter with its texts and address, which the record points to.
struct AddressEntry {
    IP_ADAPTER_ADDRESSES record;
    IP_ADAPTER_UNICAST_ADDRESS address;
    sockaddr_in socket;
    char name[40];
    wchar_t description[sizeof(Adapter::description) + 1];
    wchar_t friendlyName[std::extent_v<decltype(Adapter::friendlyName)>];
};

void Describe(const Adapter& adapter, DWORD index, AddressEntry& entry, AddressEntry* next) {
    IP_ADAPTER_ADDRESSES& record = entry.record;
    record.Length = sizeof(record);
    record.IfIndex = index;
    record.Next = next == nullptr ? nullptr : &next->record;
    record.AdapterName = entry.name;
    record.Description = entry.description;
    record.FriendlyName = entry.friendlyName;
    record.IfType = adapter.type;
    record.OperStatus = adapter.plugged != 0 ? IfOperStatusUp : IfOperStatusDown;
    CopyText(entry.name, Narrow(GuidText(adapter.id)));
    // As Windows shows an adapter's name: each byte a letter.
    std::ranges::transform(FieldText(adapter.description), entry.description,
                           [](char letter) { return static_cast<unsigned char>(letter); });
    CopyText(entry.friendlyName, std::wstring_view(adapter.friendlyName));
    if (adapter.hasAddress != 0) {
        record.FirstUnicastAddress = &entry.address;
        entry.socket.sin_family = AF_INET;
        entry.socket.sin_addr.s_addr = inet_addr(adapter.address);
        entry.address.Length = sizeof(entry.address);
        entry.address.Address.lpSockaddr = reinterpret_cast<SOCKADDR*>(&entry.socket);
        entry.address.Address.iSockaddrLength = sizeof(entry.socket);
    }
}

}  // namespace

ULONG WINAPI NotebookAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
    CallScope call(Call::GetAdaptersInfo);
    call.Detail("%lu bytes", size != nullptr ? *size : 0);
    return GiveList<IP_ADAPTER_INFO>(call, list, size, size != nullptr,
                                     [](auto&&... what) { Describe(what...); });
}

ULONG WINAPI NotebookAdaptersAddresses(ULONG family, ULONG flags, PVOID reserved, PIP_ADAPTER_ADDRESSES list,
                                       PULONG size) {
    CallScope call(Call::GetAdaptersAddresses);
    call.Detail("family %lu, flags 0x%lx, %lu bytes", family, flags, size != nullptr ? *size : 0);
    return GiveList<AddressEntry>(call, list, size, size != nullptr && reserved == nullptr,
                                  [](auto&&... what) { Describe(what...); });
}

BOOL WINAPI NotebookNetworkAlive(LPDWORD flags) {
    CallScope call(Call::IsNetworkAlive);
    if (call.RefusedWithLastError()) {
        call.Result(DWORD{FALSE});
        return FALSE;
    }
    LockedMachine machine;
    const bool alive = MachineConnectivity(*machine) != 0;
    if (flags != nullptr) {
        *flags = alive ? NETWORK_ALIVE_LAN : 0;
    }
    SetLastError(ERROR_SUCCESS);
    call.Result(alive ? DWORD{TRUE} : DWORD{FALSE});
    return alive ? TRUE : FALSE;
}

void ReplaceAdapterList() {
    ReplaceImport("GetAdaptersInfo", &NotebookAdaptersInfo);
    ReplaceImport("GetAdaptersAddresses", &NotebookAdaptersAddresses);
    ReplaceImport("IsNetworkAlive", &NotebookNetworkAlive);
}

}  // namespace Notebook
