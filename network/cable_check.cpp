#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>

#include "logging/log_scope.h"
#include "network/adapter_records.h"
#include "network/cable_check.h"
#include "network/nlm_event_handler.h"
#include "platform/handles.h"

namespace {

using AdapterList = Platform::UniqueProcessHeap<IP_ADAPTER_INFO>;

/// Bytes of the first try: one record on a 64-bit system.
constexpr ULONG kFirstAdapterBytes = 704;

/// Answer of `InitialiseAdapter` when it got no answer from the system.
constexpr DWORD kAdaptersNotRead = 1;

/// Interface types (IANA ifType, in the IP helper's documents IF_TYPE_IEEE80216_WMAN,
/// IF_TYPE_WWANPP and IF_TYPE_WWANPP2) that not every compiler's <ipifcons.h> knows.
constexpr DWORD kWiMaxType = 237;
constexpr DWORD kGsmType = 243;
constexpr DWORD kCdmaType = 244;

/// The lines of adapters that are no Ethernet.
constexpr NLMUtils::TypeText kOtherTypes[] = {
    {MIB_IF_TYPE_OTHER, L"Some other type of network interface."},
    {IF_TYPE_IEEE80211, L"An IEEE 802.11 wireless network interface."},
    {kWiMaxType, L"A mobile broadband interface for WiMax devices."},
    {kGsmType, L"A mobile broadband interface for GSM - based devices."},
    {kCdmaType, L"A mobile broadband interface for CDMA-based devices."},
};

constexpr std::string_view kNoAddress = "0.0.0.0";

/// Makes the adapter list single-threaded: reading it, walking it, releasing it.
std::mutex ethernetCheckLock;

/// The list of the last read. Never destroyed: threads that nobody waits for may still walk it
/// while the process ends.
AdapterList& lastAdapters = *new AdapterList;

/// The text in a fixed field, whether or not it is terminated.
template <std::size_t Size>
std::string_view FieldText(const char (&field)[Size]) {
    const char* const end = std::find(field, field + Size, '\0');
    return {field, static_cast<std::size_t>(end - field)};
}

DWORD ReadAdapters(const LogScope& log) {
    lastAdapters.Reset();
    ULONG bytes = kFirstAdapterBytes;
    lastAdapters = NLMUtils::AllocateAdapterRecords<IP_ADAPTER_INFO>(bytes);
    if (!lastAdapters) {
        return log.Failure(kAdaptersNotRead, L"Error allocating memory needed to call GetAdaptersinfo\n");
    }
    if (GetAdaptersInfo(lastAdapters.Get(), &bytes) == ERROR_BUFFER_OVERFLOW) {
        log.Information(
            L"GetAdaptersInfo() returns ERROR_BUFFER_OVERFLOW: Re-allocating with new buffer size = %u",
            bytes);
        lastAdapters.Reset();
        lastAdapters = NLMUtils::AllocateAdapterRecords<IP_ADAPTER_INFO>(bytes);
        if (!lastAdapters) {
            return log.Failure(kAdaptersNotRead,
                               L"Error allocating memory needed to call GetAdaptersinfo.Error = 0x%08lx",
                               GetLastError());
        }
    }
    // Asked again whatever the first answer was: only the second one counts.
    const DWORD result = GetAdaptersInfo(lastAdapters.Get(), &bytes);
    if (result == ERROR_SUCCESS) {
        log.Information(L"GetAdaptersInfo() success: ulOutBufLen = %u.", bytes);
    } else {
        // The line shows the thread's last error, which need not be the code that was returned.
        log.Error(L"GetAdaptersInfo() failed.Error = 0x%08lx", GetLastError());
    }
    return result;
}

void LogOtherAdapter(const LogScope& log, UINT type) {
    if (const wchar_t* const line = NLMUtils::FindText(kOtherTypes, type)) {
        log.Information(line);
    } else {
        log.Information(L"Unknown type %d", type);
    }
}

/// Whether one adapter of the list counts as a connected Ethernet; the first such ends the walk.
bool FindUsableEthernet(const LogScope& log, const AdapterList& adapters, int* noAddress) {
    return NLMUtils::VisitRecords(adapters, [&](const IP_ADAPTER_INFO& adapter) {
        switch (NLMUtils::JudgeAdapter(adapter)) {
            case NLMUtils::AdapterVerdict::kNotEthernet:
                LogOtherAdapter(log, adapter.Type);
                break;
            case NLMUtils::AdapterVerdict::kNoAddress:
                if (noAddress != nullptr) {
                    *noAddress = 1;
                }
                break;
            case NLMUtils::AdapterVerdict::kVirtual:
                log.Information(L"An Ethernet network interface.");
                log.Information(L"Ethernet is VPN and IP is valid");
                break;
            case NLMUtils::AdapterVerdict::kCable:
                log.Information(L"An Ethernet network interface.");
                log.Information(L"Ethernet is not VPN and IP is valid");
                return true;
        }
        return false;
    });
}

}  // namespace

NLMUtils::AdapterVerdict NLMUtils::JudgeAdapter(const IP_ADAPTER_INFO& adapter) {
    if (adapter.Type != MIB_IF_TYPE_ETHERNET) {
        return AdapterVerdict::kNotEthernet;
    }
    if (FieldText(adapter.IpAddressList.IpAddress.String) == kNoAddress) {
        return AdapterVerdict::kNoAddress;
    }
    // Case matters.
    const std::string_view description = FieldText(adapter.Description);
    const auto contains = [&description](const char* part) {
        return description.find(part) != std::string_view::npos;
    };
    return contains("VPN") || contains("Virtual") ? AdapterVerdict::kVirtual : AdapterVerdict::kCable;
}

DWORD NLMEventHandler::InitialiseAdapter() {
    LogScope log("NLMEventHandler::InitialiseAdapter");
    DWORD result = kAdaptersNotRead;
    try {
        result = ReadAdapters(log);
    } catch (...) {
        log.Information(L"Exception in GetAdaptersInfo()");
    }
    return log.Return(L"Return = %d", result);
}

int NLMEventHandler::CheckEthernetConnectionStatus(int* status, int* noAddress) {
    LogScope log("NLMEventHandler::CheckEthernetConnectionStatus");
    int found = 0;
    const int completed = log.Guard(0, [&] {
        if (InitialiseAdapter() != ERROR_SUCCESS) {
            return log.Failure(0, L"InitialiseAdapter failed");
        }
        if (!lastAdapters) {
            return log.Failure(0, L"PIP_ADAPTER_INFO is NULL!!");
        }
        found = FindUsableEthernet(log, lastAdapters, noAddress) ? 1 : 0;
        *status = found;
        return 1;
    });
    log.ExitLine(L"Ethernet Status = %d", found);
    return completed;
}

int NLMEventHandler::CheckEthernetConnectionStatusEx(int* status, int* noAddress) {
    LogScope log("NLMEventHandler::CheckEthernetConnectionStatusEx");
    int result = 0;
    try {
        const std::lock_guard lock(ethernetCheckLock);
        result = CheckEthernetConnectionStatus(status, noAddress);
    } catch (const std::system_error& error) {
        log.Error(L"Exception in CheckEthernetConnectionStatusEx() : Code = %d", error.code().value());
    } catch (...) {
        log.Error(L"Exception in CheckEthernetConnectionStatusEx()");
    }
    return log.Return(L"Return Value = %d", result);
}

std::optional<bool> NLMUtils::IsCableIn(bool* awaitsAddress) {
    int status = 0;
    int noAddress = 0;
    const bool isRead = NLMEventHandler::CheckEthernetConnectionStatusEx(
                            &status, awaitsAddress != nullptr ? &noAddress : nullptr) != 0;
    if (noAddress != 0) {
        *awaitsAddress = true;
    }
    return isRead ? std::optional(status != 0) : std::nullopt;
}

std::optional<bool> NLMUtils::IsCableIn(const LogScope& log, const wchar_t* failureLine) {
    const std::optional<bool> isIn = IsCableIn();
    if (!isIn) {
        log.Error(failureLine);
    }
    return isIn;
}

void NLMEventHandler::ReleaseAdapters() {
    const std::lock_guard lock(ethernetCheckLock);
    lastAdapters.Reset();
}
