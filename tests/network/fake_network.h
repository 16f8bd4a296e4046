#pragma once

#include <windows.h>
#include <netlistmgr.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/network_list_manager_base.h"
#include "tests/support/fake_unknown.h"

template <>
struct Rig::InterfaceId<Platform::NetworkListManagerBase> {
    static REFIID Value() { return IID_INetworkListManager; }
};

namespace NetworkTests {

/// A fake with a dual interface: what scripts would use is not there.
template <class Interface>
class FakeDispatch : public Rig::FakeUnknown<Interface> {
  public:
    HRESULT WINAPI GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT WINAPI Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }

  protected:
    explicit FakeDispatch(std::string name) : Rig::FakeUnknown<Interface>(std::move(name)) {}
};

/// Its name, or none (a null text), or a failure.
class FakeNetwork : public FakeDispatch<INetwork> {
  public:
    FakeNetwork() : FakeDispatch("network") {}

    HRESULT nameResult = S_OK;
    std::optional<std::wstring> name = L"Home";

    HRESULT WINAPI GetName(BSTR* text) override;
    HRESULT WINAPI SetName(BSTR) override { return E_NOTIMPL; }
    HRESULT WINAPI GetDescription(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI SetDescription(BSTR) override { return E_NOTIMPL; }
    HRESULT WINAPI GetNetworkId(GUID*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetDomainType(NLM_DOMAIN_TYPE*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetNetworkConnections(IEnumNetworkConnections**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetTimeCreatedAndConnected(DWORD*, DWORD*, DWORD*, DWORD*) override { return E_NOTIMPL; }
    HRESULT WINAPI get_IsConnectedToInternet(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT WINAPI get_IsConnected(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetCategory(NLM_NETWORK_CATEGORY*) override { return E_NOTIMPL; }
    HRESULT WINAPI SetCategory(NLM_NETWORK_CATEGORY) override { return E_NOTIMPL; }
};

/// A connection with its identifiers; each getter can be made to fail.
class FakeConnection : public FakeDispatch<INetworkConnection> {
  public:
    FakeConnection(const GUID& connectionId, const GUID& adapterId);

    GUID connectionId;
    GUID adapterId;
    FakeNetwork network;
    HRESULT connectionIdResult = S_OK;
    HRESULT adapterIdResult = S_OK;
    HRESULT networkResult = S_OK;
    HRESULT isConnectedResult = S_OK;
    HRESULT isConnectedToInternetResult = S_OK;
    HRESULT connectivityResult = S_OK;
    bool hasNetwork = true;
    bool isConnected = true;
    bool isConnectedToInternet = false;
    DWORD connectivity = NLM_CONNECTIVITY_IPV4_INTERNET;

    HRESULT WINAPI GetNetwork(INetwork** object) override;
    HRESULT WINAPI get_IsConnectedToInternet(VARIANT_BOOL* value) override;
    HRESULT WINAPI get_IsConnected(VARIANT_BOOL* value) override;
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY* value) override;
    HRESULT WINAPI GetConnectionId(GUID* id) override;
    HRESULT WINAPI GetAdapterId(GUID* id) override;
    HRESULT WINAPI GetDomainType(NLM_DOMAIN_TYPE*) override { return E_NOTIMPL; }
};

/// Lists connections; a null pointer is listed as such.
class FakeConnectionEnumerator : public FakeDispatch<IEnumNetworkConnections> {
  public:
    FakeConnectionEnumerator() : FakeDispatch("connection enumerator") {}

    std::vector<FakeConnection*> connections;
    /// The result of the n-th `Next`, counted from 1, that fails.
    std::optional<std::pair<int, HRESULT>> failure;
    /// Adds to what the calls say they fetched.
    ULONG boast = 0;

    /// How many connections each call was asked for, and gave.
    std::vector<ULONG> asked;
    std::vector<ULONG> given;

    HRESULT WINAPI get__NewEnum(IEnumVARIANT**) override { return E_NOTIMPL; }
    HRESULT WINAPI Next(ULONG count, INetworkConnection** array, ULONG* fetched) override;
    HRESULT WINAPI Skip(ULONG) override { return E_NOTIMPL; }
    HRESULT WINAPI Reset() override { return E_NOTIMPL; }
    HRESULT WINAPI Clone(IEnumNetworkConnections**) override { return E_NOTIMPL; }

  private:
    std::size_t m_position = 0;
};

/// Hands out its connections, one by its identifier or all through the enumerator.
class FakeNetworkListManager : public FakeDispatch<Platform::NetworkListManagerBase> {
  public:
    FakeNetworkListManager() : FakeDispatch("network list manager") {}

    std::vector<FakeConnection*> connections;
    FakeConnectionEnumerator enumerator;
    /// The result of `GetNetworkConnection` for a connection that is there.
    HRESULT connectionResult = S_OK;
    bool givesConnection = true;
    HRESULT connectionsResult = S_OK;
    bool givesEnumerator = true;

    HRESULT WINAPI GetNetworks(NLM_ENUM_NETWORK, IEnumNetworks**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetNetwork(GUID, INetwork**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetNetworkConnections(IEnumNetworkConnections** object) override;
    HRESULT WINAPI GetNetworkConnection(GUID id, INetworkConnection** object) override;
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY*) override { return E_NOTIMPL; }
};

/// {A0000000-0000-0000-0000-0000000000nn}: identifiers that are told apart at a glance.
[[nodiscard]] GUID ConnectionGuid(unsigned char number);
[[nodiscard]] std::wstring ConnectionText(unsigned char number);
/// {ADA00000-0000-0000-0000-0000000000nn}
[[nodiscard]] GUID AdapterGuid(unsigned char number);
[[nodiscard]] std::wstring AdapterText(unsigned char number);
/// The adapter's name as the IP helper has it.
[[nodiscard]] std::string AdapterName(unsigned char number);

}  // namespace NetworkTests
