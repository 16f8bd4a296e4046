#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <optional>

class LogScope;

/// Is a cable in? The question is the whole machine's; whether one connection is wired is answered in
/// network/connection_adapter.h. Callable on any thread; nothing is thrown. The walk itself is
/// `NLMEventHandler::CheckEthernetConnectionStatusEx`, whose caller is here alone.
namespace NLMUtils {

/// Whether a real Ethernet adapter has a usable IPv4 address; empty when the adapters could not be read.
/// Sets `*awaitsAddress` (may be null) to true when an Ethernet adapter without an address was seen, else
/// leaves it alone. Never while the Ethernet-check lock is held.
[[nodiscard]] std::optional<bool> IsCableIn(bool* awaitsAddress = nullptr);

/// The same; where it is empty, `failureLine` is written as an error of the operation that asks.
[[nodiscard]] std::optional<bool> IsCableIn(
    const LogScope& log, const wchar_t* failureLine = L"CheckEthernetConnectionStatusEx failed");

/// What one adapter is to that question.
enum class AdapterVerdict {
    kNotEthernet,  ///< of another interface type
    kNoAddress,    ///< Ethernet without an IPv4 address
    kVirtual,      ///< Ethernet with one, whose description says that it is a VPN's or a virtual one
    kCable,        ///< counts as a cable that is in
};

/// Judges one record of GetAdaptersInfo, of which only the first address counts. Virtual switches,
/// hypervisor and VPN adapters present themselves as Ethernet; their descriptions tell. Any thread.
[[nodiscard]] AdapterVerdict JudgeAdapter(const IP_ADAPTER_INFO& adapter);

}  // namespace NLMUtils
