// The Network List Manager: connections of the notebook's adapters and the events about them.

#include <windows.h>
#include <netlistmgr.h>

#include <cstdint>
#include <string>
#include <vector>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/com_object.h"
#include "notebook/state/machine.h"
#include "platform/network_list_manager_base.h"

namespace Notebook {

namespace {

constexpr std::uint32_t kInternet = NLM_CONNECTIVITY_IPV4_INTERNET | NLM_CONNECTIVITY_IPV6_INTERNET;
/// What a connection that has gone answers.
constexpr HRESULT kGone = static_cast<HRESULT>(0x80070490);  // HRESULT_FROM_WIN32(ERROR_NOT_FOUND)

VARIANT_BOOL ToVariant(bool value) {
    return value ? VARIANT_TRUE : VARIANT_FALSE;
}

class Network final : public ComObject<Automation<INetwork>> {
  public:
    Network(const GUID& id, const wchar_t* name) : m_id(id), m_name(name) {}

    HRESULT STDMETHODCALLTYPE GetName(BSTR* name) override {
        CallScope call(Call::NetworkGetName);
        *name = nullptr;
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        *name = SysAllocString(m_name.c_str());
        return call.Result(*name == nullptr ? E_OUTOFMEMORY : S_OK);
    }
    HRESULT STDMETHODCALLTYPE GetNetworkId(GUID* id) override {
        *id = m_id;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetName(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDescription(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDomainType(NLM_DOMAIN_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetNetworkConnections(IEnumNetworkConnections**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTimeCreatedAndConnected(DWORD*, DWORD*, DWORD*, DWORD*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_IsConnectedToInternet(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetConnectivity(NLM_CONNECTIVITY*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCategory(NLM_NETWORK_CATEGORY*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetCategory(NLM_NETWORK_CATEGORY) override { return E_NOTIMPL; }

  protected:
    void* Find(REFIID iid) override {
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
                       IsEqualIID(iid, IID_INetwork)
                   ? static_cast<INetwork*>(this)
                   : nullptr;
    }

  private:
    ~Network() override = default;

    GUID m_id;
    std::wstring m_name;
};

/// A connection as it was found; its identifiers stay, everything else is asked anew each time.
class Connection final : public ComObject<Automation<INetworkConnection>> {
  public:
    explicit Connection(const Adapter& adapter) : m_id(adapter.connectionId), m_adapter(adapter.id) {}

    HRESULT STDMETHODCALLTYPE GetNetwork(INetwork** network) override {
        CallScope call(Call::NetworkConnectionGetNetwork);
        *network = nullptr;
        Adapter adapter{};
        const HRESULT result = Ask(call, adapter);
        if (result == S_OK && !call.Refused()) {
            *network = new Network(adapter.networkId, adapter.networkName);
        }
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_IsConnectedToInternet(VARIANT_BOOL* connected) override {
        CallScope call(Call::NetworkConnectionIsConnectedToInternet);
        Adapter adapter{};
        const HRESULT result = Ask(call, adapter);
        *connected = ToVariant((adapter.connectivity & kInternet) != 0);
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* connected) override {
        CallScope call(Call::NetworkConnectionIsConnected);
        Adapter adapter{};
        const HRESULT result = Ask(call, adapter);
        *connected = ToVariant(adapter.connectivity != 0);
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetConnectivity(NLM_CONNECTIVITY* connectivity) override {
        CallScope call(Call::NetworkConnectionGetConnectivity);
        Adapter adapter{};
        const HRESULT result = Ask(call, adapter);
        *connectivity = static_cast<NLM_CONNECTIVITY>(adapter.connectivity);
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetConnectionId(GUID* id) override {
        CallScope call(Call::NetworkConnectionGetConnectionId);
        return Give(call, m_id, id);
    }
    HRESULT STDMETHODCALLTYPE GetAdapterId(GUID* id) override {
        CallScope call(Call::NetworkConnectionGetAdapterId);
        return Give(call, m_adapter, id);
    }
    HRESULT STDMETHODCALLTYPE GetDomainType(NLM_DOMAIN_TYPE*) override { return E_NOTIMPL; }

  protected:
    void* Find(REFIID iid) override {
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
                       IsEqualIID(iid, IID_INetworkConnection)
                   ? static_cast<INetworkConnection*>(this)
                   : nullptr;
    }

  private:
    ~Connection() override = default;

    HRESULT Ask(CallScope& call, Adapter& adapter) const {
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        LockedMachine machine;
        const Adapter* const found = FindAdapterByConnection(*machine, m_id);
        if (found == nullptr || found->connectivity == 0) {
            return call.Result(kGone);
        }
        adapter = *found;
        return call.Result(S_OK);
    }

    static HRESULT Give(CallScope& call, const GUID& value, GUID* out) {
        *out = {};
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        *out = value;
        return call.Result(S_OK);
    }

    GUID m_id;
    GUID m_adapter;
};

class ConnectionEnumerator final : public ComObject<Automation<IEnumNetworkConnections>> {
  public:
    explicit ConnectionEnumerator(std::vector<Adapter> adapters) : m_adapters(std::move(adapters)) {}

    HRESULT STDMETHODCALLTYPE Next(ULONG count, INetworkConnection** connections, ULONG* fetched) override {
        CallScope call(Call::NetworkConnectionsNext);
        if (fetched != nullptr) {
            *fetched = 0;
        }
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
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
        return call.Result(given == count ? S_OK : S_FALSE);
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        m_next = std::min<std::size_t>(m_adapters.size(), m_next + count);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        m_next = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumNetworkConnections**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get__NewEnum(IEnumVARIANT**) override { return E_NOTIMPL; }

  protected:
    void* Find(REFIID iid) override {
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
                       IsEqualIID(iid, IID_IEnumNetworkConnections)
                   ? static_cast<IEnumNetworkConnections*>(this)
                   : nullptr;
    }

  private:
    ~ConnectionEnumerator() override = default;

    std::vector<Adapter> m_adapters;
    std::size_t m_next = 0;
};

class Manager final
    : public ComObject<Automation<Platform::NetworkListManagerBase>, IConnectionPointContainer> {
  public:
    HRESULT STDMETHODCALLTYPE GetNetworkConnections(IEnumNetworkConnections** connections) override {
        CallScope call(Call::NetworkListManagerGetNetworkConnections);
        *connections = nullptr;
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        LockedMachine machine;
        std::vector<Adapter> connected;
        for (std::uint32_t i = 0; i < machine->devices.adapterCount; ++i) {
            const Adapter& adapter = machine->devices.adapters[i];
            if (adapter.present != 0 && adapter.connectivity != 0) {
                connected.push_back(adapter);
            }
        }
        *connections = new ConnectionEnumerator(std::move(connected));
        return call.Result(S_OK);
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
        return call.Result(call.Refused() ? S_FALSE : S_OK);
    }
    HRESULT STDMETHODCALLTYPE GetConnectivity(NLM_CONNECTIVITY* connectivity) override {
        LockedMachine machine;
        *connectivity = static_cast<NLM_CONNECTIVITY>(MachineConnectivity(*machine));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNetworks(NLM_ENUM_NETWORK, IEnumNetworks**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetNetwork(GUID, INetwork**) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        CallScope call(Call::FindConnectionPoint);
        call.Detail("%s", EventsName(iid));
        *point = nullptr;
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        if (IsEqualIID(iid, IID_INetworkListManagerEvents)) {
            *point = new ConnectionPoint<INetworkListManagerEvents>(this, iid);
        } else if (IsEqualIID(iid, IID_INetworkConnectionEvents)) {
            *point = new ConnectionPoint<INetworkConnectionEvents>(this, iid);
        } else if (IsEqualIID(iid, IID_INetworkEvents)) {
            *point = new ConnectionPoint<INetworkEvents>(this, iid);
        }
        return call.Result(*point == nullptr ? CONNECT_E_NOCONNECTION : S_OK);
    }

  protected:
    void* Find(REFIID iid) override {
        if (IsEqualIID(iid, IID_IConnectionPointContainer)) {
            return static_cast<IConnectionPointContainer*>(this);
        }
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
                       IsEqualIID(iid, IID_INetworkListManager)
                   ? static_cast<INetworkListManager*>(this)
                   : nullptr;
    }

  private:
    ~Manager() override = default;
};

void DeliverNetwork(const Event& event, std::uint64_t number) {
    CallScope scope(Call::Notification);
    scope.Detail("network event %u value 0x%x", static_cast<unsigned>(event.kind), event.value);
    const auto connectivity = static_cast<NLM_CONNECTIVITY>(event.value);
    switch (event.kind) {
        case EventKind::ConnectionConnectivity:
            SinkTable<INetworkConnectionEvents>::Get().Tell(number, [&](INetworkConnectionEvents& sink) {
                return sink.NetworkConnectionConnectivityChanged(event.id, connectivity);
            });
            break;
        case EventKind::ConnectionProperty:
            SinkTable<INetworkConnectionEvents>::Get().Tell(number, [&](INetworkConnectionEvents& sink) {
                return sink.NetworkConnectionPropertyChanged(
                    event.id, static_cast<NLM_CONNECTION_PROPERTY_CHANGE>(event.value));
            });
            break;
        case EventKind::NetworkConnectivity:
            SinkTable<INetworkEvents>::Get().Tell(number, [&](INetworkEvents& sink) {
                return sink.NetworkConnectivityChanged(event.id, connectivity);
            });
            break;
        case EventKind::NetworkAdded:
            SinkTable<INetworkEvents>::Get().Tell(
                number, [&](INetworkEvents& sink) { return sink.NetworkAdded(event.id); });
            break;
        case EventKind::NetworkDeleted:
            SinkTable<INetworkEvents>::Get().Tell(
                number, [&](INetworkEvents& sink) { return sink.NetworkDeleted(event.id); });
            break;
        case EventKind::NetworkProperty:
            SinkTable<INetworkEvents>::Get().Tell(number, [&](INetworkEvents& sink) {
                return sink.NetworkPropertyChanged(event.id,
                                                   static_cast<NLM_NETWORK_PROPERTY_CHANGE>(event.value));
            });
            break;
        case EventKind::MachineConnectivity:
            SinkTable<INetworkListManagerEvents>::Get().Tell(number, [&](INetworkListManagerEvents& sink) {
                return sink.ConnectivityChanged(connectivity);
            });
            break;
        default:
            break;
    }
}

}  // namespace

IUnknown* MakeNetworkListManager() {
    EventPump::Get().OnNetwork(&DeliverNetwork);
    return static_cast<INetworkListManager*>(new Manager());
}

}  // namespace Notebook
