#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <iterator>

#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"
#include "network/adapter_records.h"
#include "network/cable_check.h"
#include "network/connection_adapter.h"
#include "platform/handles.h"

namespace Inspection {
namespace {

constexpr int kMostTries = 4;
constexpr ULONG kFirstListBytes = 15000;

/// Reads a list that says itself how much room it wants. `read` takes the list and the room.
template <class Record, class Read>
DWORD ReadList(Platform::UniqueProcessHeap<Record>& list, const Read& read) {
    ULONG bytes = kFirstListBytes;
    DWORD error = ERROR_BUFFER_OVERFLOW;
    for (int tries = 0; tries < kMostTries && error == ERROR_BUFFER_OVERFLOW; ++tries) {
        list = NLMUtils::AllocateAdapterRecords<Record>(bytes);
        if (!list) {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
        error = read(list.Get(), &bytes);
    }
    return error;
}

/// The text in a fixed field, whether or not it is terminated.
template <std::size_t Size>
std::string FieldText(const char (&field)[Size]) {
    return {field, std::find(std::begin(field), std::end(field), '\0')};
}

const char* VerdictName(NLMUtils::AdapterVerdict verdict) {
    switch (verdict) {
        case NLMUtils::AdapterVerdict::kNotEthernet:
            return "not-ethernet";
        case NLMUtils::AdapterVerdict::kNoAddress:
            return "no-address";
        case NLMUtils::AdapterVerdict::kVirtual:
            return "virtual";
        case NLMUtils::AdapterVerdict::kCable:
            break;
    }
    return "cable";
}

Adapter DescribeAdapter(const IP_ADAPTER_INFO& info) {
    Adapter adapter;
    adapter.description = Utf8FromSystem(FieldText(info.Description));
    adapter.id = FieldText(info.AdapterName);
    adapter.type = info.Type;
    const DWORD type = info.Type;
    adapter.typeName = Utf8(NLMUtils::GetInterfaceTypeString(&type));
    adapter.address = FieldText(info.IpAddressList.IpAddress.String);
    adapter.verdict = VerdictName(NLMUtils::JudgeAdapter(info));
    return adapter;
}

/// What only the other list of adapters knows.
void AddNamesAndLinks(std::vector<Adapter>& adapters) {
    Platform::UniqueProcessHeap<IP_ADAPTER_ADDRESSES> list;
    const DWORD error = ReadList(list, [](IP_ADAPTER_ADDRESSES* place, ULONG* bytes) {
        return GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX, nullptr, place, bytes);
    });
    if (error != ERROR_SUCCESS) {
        return;
    }
    for (const IP_ADAPTER_ADDRESSES* record = list.Get(); record != nullptr; record = record->Next) {
        for (Adapter& adapter : adapters) {
            if (record->AdapterName == nullptr || adapter.id != record->AdapterName) {
                continue;
            }
            adapter.name = record->FriendlyName != nullptr ? Utf8(record->FriendlyName) : "";
            adapter.link = record->OperStatus == IfOperStatusUp     ? "up"
                           : record->OperStatus == IfOperStatusDown ? "down"
                                                                    : "unknown";
        }
    }
}

}  // namespace

Network ReadNetwork() {
    Network network;
    Platform::UniqueProcessHeap<IP_ADAPTER_INFO> list;
    network.error = ReadList(list, &GetAdaptersInfo);
    if (network.error != ERROR_SUCCESS) {
        return network;
    }
    for (const IP_ADAPTER_INFO* info = list.Get(); info != nullptr; info = info->Next) {
        network.adapters.push_back(DescribeAdapter(*info));
    }
    AddNamesAndLinks(network.adapters);
    return network;
}

}  // namespace Inspection
