#include "network/network_diagnostics.h"

#include <wrl/client.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <string>

#include "logging/log_scope.h"
#include "network/connection_adapter.h"
#include "platform/handles.h"

namespace {

using Microsoft::WRL::ComPtr;

/// Connections fetched from the enumerator at once.
constexpr ULONG kBatch = 20;

/// The bits of NLM_CONNECTIVITY in three groups.
constexpr DWORD kNoTrafficBits = 0x00F;
constexpr DWORD kIpv4Bits = 0x0F0;
constexpr DWORD kIpv6Bits = 0xF00;

/// One value of one group, and its line. A group is compared as a whole: a mixture of its bits has
/// no line, and a connected value without a "no traffic" bit reads as disconnected there.
struct ConnectivityLine {
    DWORD group;
    NLM_CONNECTIVITY value;
    const wchar_t* text;
};
constexpr std::array kConnectivityLines{
    ConnectivityLine{kNoTrafficBits, NLM_CONNECTIVITY_DISCONNECTED, L"Network Disconnected"},
    ConnectivityLine{kNoTrafficBits, NLM_CONNECTIVITY_IPV4_NOTRAFFIC, L"IPV4 - No Traffic"},
    ConnectivityLine{kNoTrafficBits, NLM_CONNECTIVITY_IPV6_NOTRAFFIC, L"IPV6 - No Traffic"},
    ConnectivityLine{kIpv4Bits, NLM_CONNECTIVITY_IPV4_SUBNET, L"IPV4 - Subnet"},
    ConnectivityLine{kIpv4Bits, NLM_CONNECTIVITY_IPV4_LOCALNETWORK, L"IPV4 - Local Connectivity"},
    ConnectivityLine{kIpv4Bits, NLM_CONNECTIVITY_IPV4_INTERNET, L"IPV4 - Internet Connectivity"},
    ConnectivityLine{kIpv6Bits, NLM_CONNECTIVITY_IPV6_SUBNET, L"IPV6 - Subnet"},
    ConnectivityLine{kIpv6Bits, NLM_CONNECTIVITY_IPV6_LOCALNETWORK, L"IPV6 - Local Connectivity"},
    ConnectivityLine{kIpv6Bits, NLM_CONNECTIVITY_IPV6_INTERNET, L"IPV6 - Internet Connectivity"},
};

/// Logs the identifier that `read` gives, in registry form; empty, without a line, when either step fails.
template <class Read>
std::wstring LogIdentifier(const LogScope& log, INetworkConnection& connection, Read read,
                           const wchar_t* line) {
    GUID identifier{};
    Platform::UniqueCoTaskText text;
    if (FAILED((connection.*read)(&identifier)) || FAILED(StringFromCLSID(identifier, text.Put()))) {
        return {};
    }
    std::wstring registryForm = text.Get();
    log.Information(line, registryForm.c_str());
    return registryForm;
}

void LogNetworkName(const LogScope& log, INetworkConnection& connection) {
    ComPtr<INetwork> network;
    if (FAILED(connection.GetNetwork(network.GetAddressOf())) || network == nullptr) {
        return;
    }
    Platform::UniqueBstr name;
    if (SUCCEEDED(network->GetName(name.Put()))) {
        log.Information(L"Connected to Network (Name): %s", name ? name.Get() : L"");
    }
}

void LogConnectivity(const LogScope& log, INetworkConnection& connection) {
    VARIANT_BOOL isConnected = VARIANT_FALSE;
    if (SUCCEEDED(connection.get_IsConnected(&isConnected))) {
        log.Information(L"Is Connected to Network: %d", isConnected);
    }
    VARIANT_BOOL isConnectedToInternet = VARIANT_FALSE;
    if (SUCCEEDED(connection.get_IsConnectedToInternet(&isConnectedToInternet))) {
        log.Information(L"Is Connected to Internet: %d", isConnectedToInternet);
    }
    log.Information(L"Detailed connectivity states:");
    NLM_CONNECTIVITY connectivity = NLM_CONNECTIVITY_DISCONNECTED;
    if (SUCCEEDED(connection.GetConnectivity(&connectivity))) {
        const auto connectivityBits = static_cast<DWORD>(connectivity);
        NLMUtils::PrintConnectivityState(&connectivityBits);
    }
}

/// The lines of one connection; a step that fails leaves out its own line only.
void LogConnection(const LogScope& log, INetworkConnection& connection, WiredConnections* wiredConnections) {
    const std::wstring connectionId =
        LogIdentifier(log, connection, &INetworkConnection::GetConnectionId, L"Connection Id : %s");
    const std::wstring adapterId =
        LogIdentifier(log, connection, &INetworkConnection::GetAdapterId, L"Adapter Id : %s");
    log.Information(L"Adapter Info: ");
    unsigned char isEthernet = 0;
    NLMUtils::PrintAdapterInfo(adapterId, &isEthernet);
    // Connected or not: what counts later is whether the connection was ever wired.
    if (isEthernet == 1 && wiredConnections != nullptr && !connectionId.empty()) {
        log.Information(L"Ethernet Connection - adding to set...");
        // The network events are subscribed already and may touch the set at this moment.
        const std::lock_guard lock(connectivityChangeLock);
        wiredConnections->insert(connectionId);
    }
    LogNetworkName(log, connection);
    LogConnectivity(log, connection);
}

/// One batch of connections, each with its reference. How many there are; 0 ends the list.
ULONG FetchBatch(IEnumNetworkConnections& enumerator, std::array<ComPtr<INetworkConnection>, kBatch>& batch) {
    std::array<INetworkConnection*, kBatch> fetched{};
    ULONG count = 0;
    if (FAILED(enumerator.Next(kBatch, fetched.data(), &count))) {
        return 0;
    }
    count = std::min(count, kBatch);
    for (ULONG i = 0; i < count; ++i) {
        // The reference comes with the pointer. Not by `Attach`, which in one compiler's header takes
        // another one.
        *batch[i].ReleaseAndGetAddressOf() = fetched[i];
    }
    return count;
}

void LogConnections(const LogScope& log, IEnumNetworkConnections& enumerator,
                    WiredConnections* wiredConnections) {
    log.Information(L"Current Connections:");
    unsigned number = 0;
    std::array<ComPtr<INetworkConnection>, kBatch> batch;
    for (ULONG count = FetchBatch(enumerator, batch); count != 0; count = FetchBatch(enumerator, batch)) {
        for (ULONG i = 0; i < count; ++i) {
            const ComPtr<INetworkConnection> connection = std::move(batch[i]);
            log.Information(L"Connection : %u", ++number);
            if (connection != nullptr) {
                LogConnection(log, *connection.Get(), wiredConnections);
            }
        }
    }
}

}  // namespace

void NLMUtils::PrintConnectivityState(const DWORD* connectivity) {
    const LogScope log("NLMUtils::PrintConnectivityState", L"NLM_CONNECTIVITY - 0x%x", *connectivity);
    for (const ConnectivityLine& line : kConnectivityLines) {
        if ((*connectivity & line.group) == static_cast<DWORD>(line.value)) {
            log.Information(L"%s", line.text);
        }
    }
}

void NLMUtils::PrintNetworkConnections(INetworkListManager* networkListManager,
                                       WiredConnections* wiredConnections) {
    const LogScope log("NLMUtils::PrintNetworkConnections");
    log.Guard([&] {
        if (networkListManager == nullptr) {
            log.Error(L"INetworkListManager is NULL");
            return;
        }
        ComPtr<IEnumNetworkConnections> enumerator;
        const HRESULT result = networkListManager->GetNetworkConnections(enumerator.GetAddressOf());
        if (FAILED(result)) {
            log.Error(L"GetNetworkConnections Failed with error 0x%08X", result);
            return;
        }
        if (enumerator != nullptr) {
            LogConnections(log, *enumerator.Get(), wiredConnections);
        }
    });
}
