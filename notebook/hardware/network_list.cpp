// The Network List Manager: connections of the notebook's adapters and the events about them.

#include <windows.h>
#include <netlistmgr.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/com_object.h"
#include "notebook/hardware/network_list_manager_base.h"
#include "notebook/state/machine.h"

namespace Notebook {

namespace {

constexpr std::uint32_t kInternet = NLM_CONNECTIVITY_IPV4_INTERNET | NLM_CONNECTIVITY_IPV6_INTERNET;
/// What a connection that has gone answers.
constexpr HRESULT kGone = static_cast<HRESULT>(0x80070490);  // HRESULT_FROM_WIN32(ERROR_NOT_FOUND)

VARIANT_BOOL ToVariant(bool value) {
    return value ? VARIANT_TRUE : VARIANT_FALSE;
}

class Network final : public ComObject<As<Automation<INetwork>, IID_INetwork, IID_IDispatch>> {
  public:
    explicit Network(const wchar_t* name) : m_name(name) {}

    HRESULT STDMETHODCALLTYPE GetName(BSTR* name) override {
        CallScope call(Call::NetworkGetName);
        *name = nullptr;
        return call.Answer([&] {
            *name = SysAllocString(m_name.c_str());
            return *name == nullptr ? E_OUTOFMEMORY : S_OK;
        });
    }
    NOTEBOOK_NOT_NEEDED(GetNetworkId(GUID*));
    NOTEBOOK_NOT_NEEDED(SetName(BSTR));
    NOTEBOOK_NOT_NEEDED(GetDescription(BSTR*));
    NOTEBOOK_NOT_NEEDED(SetDescription(BSTR));
    NOTEBOOK_NOT_NEEDED(GetDomainType(NLM_DOMAIN_TYPE*));
    NOTEBOOK_NOT_NEEDED(GetNetworkConnections(IEnumNetworkConnections**));
    NOTEBOOK_NOT_NEEDED(GetTimeCreatedAndConnected(DWORD*, DWORD*, DWORD*, DWORD*));
    NOTEBOOK_NOT_NEEDED(get_IsConnectedToInternet(VARIANT_BOOL*));
    NOTEBOOK_NOT_NEEDED(get_IsConnected(VARIANT_BOOL*));
    NOTEBOOK_NOT_NEEDED(GetConnectivity(NLM_CONNECTIVITY*));
    NOTEBOOK_NOT_NEEDED(GetCategory(NLM_NETWORK_CATEGORY*));
    NOTEBOOK_NOT_NEEDED(SetCategory(NLM_NETWORK_CATEGORY));

  private:
    std::wstring m_name;
};

/// A connection as it was found; its identifiers stay, everything else is asked anew each time.
class Connection final
    : public ComObject<As<Automation<INetworkConnection>, IID_INetworkConnection, IID_IDispatch>> {
  public:
    explicit Connection(const Adapter& adapter) : m_id(adapter.connectionId), m_adapter(adapter.id) {}

    HRESULT STDMETHODCALLTYPE GetNetwork(INetwork** network) override {
        *network = nullptr;
        return Ask(Call::NetworkConnectionGetNetwork, [&](const Adapter* adapter) {
            *network = adapter == nullptr ? nullptr : new Network(adapter->networkName);
        });
    }
    HRESULT STDMETHODCALLTYPE get_IsConnectedToInternet(VARIANT_BOOL* connected) override {
        return Ask(Call::NetworkConnectionIsConnectedToInternet, [&](const Adapter* adapter) {
            *connected = ToVariant(adapter != nullptr && (adapter->connectivity & kInternet) != 0);
        });
    }
    HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* connected) override {
        return Ask(Call::NetworkConnectionIsConnected,
                   [&](const Adapter* adapter) { *connected = ToVariant(adapter != nullptr); });
    }
    HRESULT STDMETHODCALLTYPE GetConnectivity(NLM_CONNECTIVITY* connectivity) override {
        return Ask(Call::NetworkConnectionGetConnectivity, [&](const Adapter* adapter) {
            *connectivity = static_cast<NLM_CONNECTIVITY>(adapter == nullptr ? 0 : adapter->connectivity);
        });
    }
    HRESULT STDMETHODCALLTYPE GetConnectionId(GUID* id) override {
        return Give(Call::NetworkConnectionGetConnectionId, m_id, id);
    }
    HRESULT STDMETHODCALLTYPE GetAdapterId(GUID* id) override {
        return Give(Call::NetworkConnectionGetAdapterId, m_adapter, id);
    }
    NOTEBOOK_NOT_NEEDED(GetDomainType(NLM_DOMAIN_TYPE*));

  private:
    /// Tells `give` of the adapter as it is now; of none, null, when the call fails.
    template <class Function>
    HRESULT Ask(Call name, Function give) const {
        CallScope call(name);
        LockedMachine machine;
        const Adapter* const found = FindAdapterByConnection(*machine, m_id);
        const bool isThere = found != nullptr && found->connectivity != 0;
        give(isThere && !call.Refused() ? found : nullptr);
        return call.Answer([&] { return isThere ? S_OK : kGone; });
    }

    static HRESULT Give(Call name, const GUID& value, GUID* out) {
        CallScope call(name);
        *out = call.Refused() ? GUID{} : value;
        return call.Answer([] { return S_OK; });
    }

    GUID m_id;
    GUID m_adapter;
};

class ConnectionEnumerator final
    : public ComObject<As<Automation<IEnumNetworkConnections>, IID_IEnumNetworkConnections, IID_IDispatch>> {
  public:
    explicit ConnectionEnumerator(std::vector<Adapter> adapters) : m_adapters(std::move(adapters)) {}

    HRESULT STDMETHODCALLTYPE Next(ULONG count, INetworkConnection** connections, ULONG* fetched) override {
        CallScope call(Call::NetworkConnectionsNext);
        return call.Answer([&] {
            const ConnectionList kind = SharedState::Get().Raw().devices.connectionList;
            ULONG given = 0;
            if (kind == ConnectionList::NullElement && m_next == 0 && !m_adapters.empty()) {
                connections[given++] = nullptr;
            }
            for (; given < count && m_next < m_adapters.size(); ++given) {
                connections[given] = new Connection(m_adapters[m_next++]);
            }
            call.Detail("%lu of %lu", given, count);
            if (fetched != nullptr) {
                *fetched = given == 0 || kind != ConnectionList::TooMany ? given : given + 1000;
            }
            return given == count ? S_OK : S_FALSE;
        });
    }
    NOTEBOOK_NOT_NEEDED(Skip(ULONG));
    NOTEBOOK_NOT_NEEDED(Reset());
    NOTEBOOK_NOT_NEEDED(Clone(IEnumNetworkConnections**));
    NOTEBOOK_NOT_NEEDED(get__NewEnum(IEnumVARIANT**));

  private:
    std::vector<Adapter> m_adapters;
    std::size_t m_next = 0;
};

using ManagerObject =
    ComObject<As<Automation<NetworkListManagerBase>, IID_INetworkListManager, IID_IDispatch>,
              As<IConnectionPointContainer, IID_IConnectionPointContainer>>;

class Manager final
    : public EventSource<ManagerObject, Tells<INetworkListManagerEvents, IID_INetworkListManagerEvents>,
                         Tells<INetworkConnectionEvents, IID_INetworkConnectionEvents>,
                         Tells<INetworkEvents, IID_INetworkEvents>> {
  public:
    HRESULT STDMETHODCALLTYPE GetNetworkConnections(IEnumNetworkConnections** connections) override {
        CallScope call(Call::NetworkListManagerGetNetworkConnections);
        *connections = nullptr;
        return call.Answer([&] {
            LockedMachine machine;
            std::vector<Adapter> connected;
            for (const Adapter& adapter : Adapters(machine->devices)) {
                if (adapter.connectivity != 0) {
                    connected.push_back(adapter);
                }
            }
            *connections = new ConnectionEnumerator(std::move(connected));
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetNetworkConnection(GUID id, INetworkConnection** connection) override {
        CallScope call(Call::NetworkListManagerGetNetworkConnection);
        *connection = nullptr;
        // S_FALSE comes with the connection.
        if (call.Refused() && call.Hresult() != S_FALSE) {
            return call.Result(call.Hresult());
        }
        LockedMachine machine;
        const Adapter* const adapter = FindAdapterByConnection(*machine, id);
        if (adapter == nullptr || adapter->connectivity == 0) {
            return call.Result(kGone);
        }
        *connection = new Connection(*adapter);
        return call.Answer([] { return S_OK; });
    }
    NOTEBOOK_NOT_NEEDED(GetConnectivity(NLM_CONNECTIVITY*));
    NOTEBOOK_NOT_NEEDED(GetNetworks(NLM_ENUM_NETWORK, IEnumNetworks**));
    NOTEBOOK_NOT_NEEDED(GetNetwork(GUID, INetwork**));
};

void DeliverNetwork(const Event& event, std::uint64_t number) {
    CallScope scope(Call::Notification);
    scope.Detail("network event %u value 0x%x", static_cast<unsigned>(event.kind), event.value);
    const auto connectivity = static_cast<NLM_CONNECTIVITY>(event.value);
    switch (event.kind) {
        case EventKind::ConnectionConnectivity:
            return Tell(number, &INetworkConnectionEvents::NetworkConnectionConnectivityChanged, event.id,
                        connectivity);
        case EventKind::NetworkConnectivity:
            return Tell(number, &INetworkEvents::NetworkConnectivityChanged, event.id, connectivity);
        case EventKind::MachineConnectivity:
            return Tell(number, &INetworkListManagerEvents::ConnectivityChanged, connectivity);
        default:
            return;
    }
}

}  // namespace

IUnknown* MakeNetworkListManager() {
    EventPump::Get().On(Channel::Network, &DeliverNetwork);
    return static_cast<INetworkListManager*>(new Manager());
}

}  // namespace Notebook
