#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

namespace NLMUtils {

/// What one adapter is to the question "is a cable in?".
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
