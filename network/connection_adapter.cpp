#include <winsock2.h>

#include "network/connection_adapter.h"

#include <wrl/client.h>

#include <algorithm>
#include <locale>
#include <optional>
#include <string>

#include "logging/log_scope.h"
#include "network/adapter_records.h"
#include "platform/handles.h"

namespace {

using Microsoft::WRL::ComPtr;
using AddressList = Platform::UniqueProcessHeap<IP_ADAPTER_ADDRESSES>;

/// Bytes of the first try, enough for most machines.
constexpr ULONG kFirstAddressBytes = 15000;
/// Passes with more memory: at most four are made, but as many as this count as failure, whatever
/// the last one brought.
constexpr int kMostPasses = 4;
constexpr int kPassesThatFail = 3;

const wchar_t* TextOrEmpty(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

/// Reads the adapters into a new block of so many bytes, in place of the one before; `bytes` is then what
/// the system asks for. The error of the call; empty when there is no memory.
std::optional<ULONG> ReadAddresses(const LogScope& log, AddressList& list, ULONG& bytes) {
    list.Reset();
    list = NLMUtils::AllocateAdapterRecords<IP_ADAPTER_ADDRESSES>(bytes);
    if (!list) {
        return log.Failure(std::nullopt, L"Memory allocation failed for IP_ADAPTER_ADDRESSES struct");
    }
    return GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX, nullptr, list.Get(), &bytes);
}

/// The adapters with their addresses; empty when they could not be read.
AddressList ReadAdapterAddresses(const LogScope& log) {
    AddressList list;
    ULONG bytes = kFirstAddressBytes;
    const std::optional<ULONG> firstError = ReadAddresses(log, list, bytes);
    if (!firstError) {
        return {};
    }
    ULONG error = *firstError;
    if (error != ERROR_SUCCESS) {
        log.Information(L"GetAdaptersAddresses failed with an Error code : %d", error);
    }
    int passes = 0;
    for (; error == ERROR_BUFFER_OVERFLOW && passes < kMostPasses; ++passes) {
        log.Information(
            L"The buffer size is not enough,trying to allocate more memory...Required Memory is %d Bytes",
            bytes);
        error = ReadAddresses(log, list, bytes).value_or(ERROR_BUFFER_OVERFLOW);
    }
    if (passes >= kPassesThatFail) {
        return log.Failure(AddressList{}, L"Memory allocation retry limit exceeded ");
    }
    if (error != ERROR_SUCCESS) {
        return log.Failure(AddressList{}, L"ERROR with GetAdaptersAddresses");
    }
    log.Information(L"Memory allocation success for IP_ADAPTER_ADDRESSES struct");
    return list;
}

/// Whether an adapter's narrow name, widened letter by letter, is the given identifier.
bool HasName(const IP_ADAPTER_ADDRESSES& adapter, const std::wstring& adapterId) {
    if (adapter.AdapterName == nullptr) {
        return false;
    }
    const std::locale locale;
    const auto& conversion = std::use_facet<std::ctype<wchar_t>>(locale);
    const std::string name = adapter.AdapterName;
    return std::equal(name.begin(), name.end(), adapterId.begin(), adapterId.end(),
                      [&conversion](char narrow, wchar_t wide) { return conversion.widen(narrow) == wide; });
}

void LogMatchingAdapters(const LogScope& log, const AddressList& adapters, const std::wstring& adapterId,
                         unsigned char* isEthernet) {
    bool matched = false;
    NLMUtils::VisitRecords(adapters, [&](const IP_ADAPTER_ADDRESSES& adapter) {
        if (!HasName(adapter, adapterId)) {
            return false;
        }
        matched = true;
        log.Information(L"Description   : %s", TextOrEmpty(adapter.Description));
        log.Information(L"Friendly Name : %s", TextOrEmpty(adapter.FriendlyName));
        log.Information(L"Interface type: %s", NLMUtils::GetInterfaceTypeString(&adapter.IfType).c_str());
        if (adapter.IfType == IF_TYPE_ETHERNET_CSMACD) {
            *isEthernet = 1;
        }
        return false;
    });
    if (!matched) {
        log.Warning(L"Could not find matching adapter");
    }
}

constexpr NLMUtils::TypeText kTypeNames[] = {
    {IF_TYPE_OTHER, L"Other"},
    {IF_TYPE_ETHERNET_CSMACD, L"Ethernet"},
    {IF_TYPE_ISO88025_TOKENRING, L"Token Ring"},
    {IF_TYPE_PPP, L"PPP"},
    {IF_TYPE_SOFTWARE_LOOPBACK, L"Software Loopback"},
    {IF_TYPE_ATM, L"ATM"},
    {IF_TYPE_IEEE80211, L"IEEE 802.11 Wireless"},
    {IF_TYPE_TUNNEL, L"Tunnel"},
    {IF_TYPE_IEEE1394, L"IEEE 1394 (Firewire)"},
};

/// Whether the connection's adapter could be told; its type goes to `*isEthernet`.
bool ExamineConnection(const LogScope& log, INetworkListManager* networkListManager, const GUID& connectionId,
                       unsigned char* isEthernet) {
    if (networkListManager == nullptr) {
        return log.Failure(false, L"INetworkListManager is NULL");
    }
    ComPtr<INetworkConnection> connection;
    HRESULT result = networkListManager->GetNetworkConnection(connectionId, connection.GetAddressOf());
    // Exactly S_OK: a success code without a connection would be of no use.
    if (result != S_OK || connection == nullptr) {
        return log.Failure(false, L"GetNetworkConnection Failed with error 0x%08X", result);
    }
    GUID adapterId{};
    result = connection->GetAdapterId(&adapterId);
    if (FAILED(result)) {
        return log.Failure(false, L"GetAdapterId Failed with error 0x%08X", result);
    }
    Platform::UniqueCoTaskText text;
    result = StringFromCLSID(adapterId, text.Put());
    if (FAILED(result)) {
        return log.Failure(false, L"StringFromCLSID Failed with error 0x%08X", result);
    }
    log.Information(L"Matching Adapter Id: %s", text.Get());
    const std::wstring adapterText = text.Get();
    text.Reset();
    NLMUtils::PrintAdapterInfo(adapterText, isEthernet);
    return true;
}

}  // namespace

bool NLMUtils::IsEthernetConnection(INetworkListManager* networkListManager, const GUID& connectionId,
                                    unsigned char* isEthernet) {
    LogScope log("NLMUtils::IsEthernetConnection");
    return log.Return(L"Return Value = %d", log.Guard(false, [&] {
        return ExamineConnection(log, networkListManager, connectionId, isEthernet);
    }));
}

void NLMUtils::PrintAdapterInfo(const std::wstring& adapterId, unsigned char* isEthernet) {
    LogScope log("NLMUtils::PrintAdapterInfo", L"GUID Value = %s", adapterId.c_str());
    log.Guard([&] {
        if (const AddressList adapters = ReadAdapterAddresses(log)) {
            LogMatchingAdapters(log, adapters, adapterId, isEthernet);
        }
    });
    log.ExitLine(L"Ethernet Status = %d", *isEthernet);
}

std::wstring NLMUtils::GetInterfaceTypeString(const DWORD* interfaceType) {
    LogScope log("NLMUtils::GetInterfaceTypeString", L"IFTYPE Value = %d", *interfaceType);
    const wchar_t* const name = FindText(kTypeNames, *interfaceType);
    return log.Return(L"InterfaceType = %s", name != nullptr ? name : L"Unrecognized interface type");
}
