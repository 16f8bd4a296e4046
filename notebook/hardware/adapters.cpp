// The adapter list (IP helper) and the network-alive query, put in place of the executable's imports.

#include "notebook/hardware/adapters.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
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
constexpr std::size_t kAlignment = alignof(IP_ADAPTER_ADDRESSES);

/// The text of a fixed field, which need not have an end.
template <std::size_t Size>
std::string FieldText(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

std::vector<Adapter> Snapshot() {
    LockedMachine machine;
    std::vector<Adapter> adapters;
    for (std::uint32_t i = 0; i < machine->devices.adapterCount; ++i) {
        if (machine->devices.adapters[i].present != 0) {
            adapters.push_back(machine->devices.adapters[i]);
        }
    }
    return adapters;
}

void Describe(const Adapter& adapter, DWORD index, IP_ADAPTER_INFO& info) {
    std::memset(&info, 0, sizeof(info));
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

}  // namespace

ULONG WINAPI NotebookAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
    CallScope call(Call::GetAdaptersInfo);
    call.Detail("%lu bytes", size != nullptr ? *size : 0);
    if (call.Refused()) {
        return call.Result(call.Error());
    }
    if (size == nullptr) {
        return call.Result(static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    const std::vector<Adapter> adapters = Snapshot();
    if (adapters.empty()) {
        return call.Result(static_cast<DWORD>(ERROR_NO_DATA));
    }
    const auto needed = static_cast<ULONG>(adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (list == nullptr || *size < needed) {
        *size = needed;
        return call.Result(static_cast<DWORD>(ERROR_BUFFER_OVERFLOW));
    }
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        Describe(adapters[i], static_cast<DWORD>(i + 1), list[i]);
        list[i].Next = i + 1 < adapters.size() ? &list[i + 1] : nullptr;
    }
    return call.Result(static_cast<DWORD>(ERROR_SUCCESS));
}

namespace {

/// Lays the adapters and their texts out in one block; run once without a block to measure.
class AddressList {
  public:
    explicit AddressList(std::byte* block) : m_block(block) {}

    void Add(const Adapter& adapter) {
        auto* const record = Place<IP_ADAPTER_ADDRESSES>();
        const std::string id = Narrow(GuidText(adapter.id));
        char* const name = PlaceText(id.c_str(), id.size() + 1);
        const std::wstring wideDescription = Widened(FieldText(adapter.description));
        wchar_t* const description = PlaceText(wideDescription.c_str(), wideDescription.size() + 1);
        wchar_t* const friendly = PlaceText(adapter.friendlyName, std::wcslen(adapter.friendlyName) + 1);
        IP_ADAPTER_UNICAST_ADDRESS* const address = adapter.hasAddress != 0 ? PlaceAddress(adapter) : nullptr;
        if (record == nullptr) {
            return;
        }
        record->Length = sizeof(IP_ADAPTER_ADDRESSES);
        record->AdapterName = name;
        record->Description = description;
        record->FriendlyName = friendly;
        record->FirstUnicastAddress = address;
        record->IfType = adapter.type;
        record->IfIndex = ++m_count;
        record->OperStatus = adapter.plugged != 0 ? IfOperStatusUp : IfOperStatusDown;
        if (m_last != nullptr) {
            m_last->Next = record;
        }
        m_last = record;
    }

    [[nodiscard]] std::size_t Size() const { return m_used; }

  private:
    /// As Windows shows an adapter's name: each byte a letter.
    static std::wstring Widened(const std::string& text) {
        std::wstring wide;
        for (const char letter : text) {
            wide.push_back(static_cast<unsigned char>(letter));
        }
        return wide;
    }

    template <class T>
    T* Place(std::size_t count = 1) {
        m_used = (m_used + kAlignment - 1) / kAlignment * kAlignment;
        auto* const place = m_block == nullptr ? nullptr : reinterpret_cast<T*>(m_block + m_used);
        m_used += sizeof(T) * count;
        if (place != nullptr) {
            std::memset(static_cast<void*>(place), 0, sizeof(T) * count);
        }
        return place;
    }

    template <class Char>
    Char* PlaceText(const Char* text, std::size_t length) {
        Char* const place = Place<Char>(length);
        if (place != nullptr) {
            std::copy_n(text, length, place);
        }
        return place;
    }

    IP_ADAPTER_UNICAST_ADDRESS* PlaceAddress(const Adapter& adapter) {
        auto* const address = Place<IP_ADAPTER_UNICAST_ADDRESS>();
        auto* const socket = Place<sockaddr_in>();
        if (address != nullptr) {
            socket->sin_family = AF_INET;
            socket->sin_addr.s_addr = inet_addr(adapter.address);
            address->Length = sizeof(IP_ADAPTER_UNICAST_ADDRESS);
            address->Address.lpSockaddr = reinterpret_cast<SOCKADDR*>(socket);
            address->Address.iSockaddrLength = sizeof(sockaddr_in);
        }
        return address;
    }

    std::byte* m_block;
    std::size_t m_used = 0;
    DWORD m_count = 0;
    IP_ADAPTER_ADDRESSES* m_last = nullptr;
};

}  // namespace

ULONG WINAPI NotebookAdaptersAddresses(ULONG family, ULONG flags, PVOID reserved, PIP_ADAPTER_ADDRESSES list,
                                       PULONG size) {
    CallScope call(Call::GetAdaptersAddresses);
    call.Detail("family %lu, flags 0x%lx, %lu bytes", family, flags, size != nullptr ? *size : 0);
    if (call.Refused()) {
        return call.Result(call.Error());
    }
    if (size == nullptr || reserved != nullptr) {
        return call.Result(static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    const std::vector<Adapter> adapters = Snapshot();
    if (adapters.empty()) {
        return call.Result(static_cast<DWORD>(ERROR_NO_DATA));
    }
    AddressList measure(nullptr);
    for (const Adapter& adapter : adapters) {
        measure.Add(adapter);
    }
    if (list == nullptr || *size < measure.Size()) {
        *size = static_cast<ULONG>(measure.Size());
        return call.Result(static_cast<DWORD>(ERROR_BUFFER_OVERFLOW));
    }
    AddressList filled(reinterpret_cast<std::byte*>(list));
    for (const Adapter& adapter : adapters) {
        filled.Add(adapter);
    }
    return call.Result(static_cast<DWORD>(ERROR_SUCCESS));
}

BOOL WINAPI NotebookNetworkAlive(LPDWORD flags) {
    CallScope call(Call::IsNetworkAlive);
    if (call.Refused()) {
        SetLastError(call.Error());
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
