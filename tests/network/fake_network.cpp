#include "tests/network/fake_network.h"

#include <algorithm>
#include <array>

namespace NetworkTests {

namespace {

HRESULT Answer(HRESULT result, bool value, VARIANT_BOOL* out) {
    if (SUCCEEDED(result)) {
        *out = value ? VARIANT_TRUE : VARIANT_FALSE;
    }
    return result;
}

std::wstring Text(const GUID& id) {
    std::array<wchar_t, 39> text{};
    StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
    return text.data();
}

}  // namespace

HRESULT FakeNetwork::GetName(BSTR* text) {
    ExpectHeld("GetName");
    if (SUCCEEDED(nameResult)) {
        *text = name.has_value() ? SysAllocString(name->c_str()) : nullptr;
    }
    return nameResult;
}

FakeConnection::FakeConnection(const GUID& connection, const GUID& adapter)
    : FakeDispatch("connection"), connectionId(connection), adapterId(adapter) {}

HRESULT FakeConnection::GetNetwork(INetwork** object) {
    ExpectHeld("GetNetwork");
    *object = nullptr;
    if (SUCCEEDED(networkResult) && hasNetwork) {
        network.HandOut(object);
    }
    return networkResult;
}

HRESULT FakeConnection::get_IsConnectedToInternet(VARIANT_BOOL* value) {
    ExpectHeld("get_IsConnectedToInternet");
    return Answer(isConnectedToInternetResult, isConnectedToInternet, value);
}

HRESULT FakeConnection::get_IsConnected(VARIANT_BOOL* value) {
    ExpectHeld("get_IsConnected");
    return Answer(isConnectedResult, isConnected, value);
}

HRESULT FakeConnection::GetConnectivity(NLM_CONNECTIVITY* value) {
    ExpectHeld("GetConnectivity");
    if (SUCCEEDED(connectivityResult)) {
        *value = static_cast<NLM_CONNECTIVITY>(connectivity);
    }
    return connectivityResult;
}

HRESULT FakeConnection::GetConnectionId(GUID* id) {
    ExpectHeld("GetConnectionId");
    if (SUCCEEDED(connectionIdResult)) {
        *id = connectionId;
    }
    return connectionIdResult;
}

HRESULT FakeConnection::GetAdapterId(GUID* id) {
    ExpectHeld("GetAdapterId");
    if (SUCCEEDED(adapterIdResult)) {
        *id = adapterId;
    }
    return adapterIdResult;
}

HRESULT FakeConnectionEnumerator::Next(ULONG count, INetworkConnection** array, ULONG* fetched) {
    ExpectHeld("Next");
    asked.push_back(count);
    *fetched = 0;
    if (failure.has_value() && failure->first == static_cast<int>(asked.size())) {
        return failure->second;
    }
    while (*fetched < count && m_position < connections.size()) {
        FakeConnection* const connection = connections[m_position++];
        array[*fetched] = nullptr;
        if (connection != nullptr) {
            connection->HandOut(&array[*fetched]);
        }
        ++*fetched;
    }
    given.push_back(*fetched);
    const HRESULT result = *fetched == count ? S_OK : S_FALSE;
    if (*fetched != 0) {
        *fetched += boast;
    }
    return result;
}

HRESULT FakeNetworkListManager::GetNetworkConnections(IEnumNetworkConnections** object) {
    ExpectHeld("GetNetworkConnections");
    *object = nullptr;
    if (SUCCEEDED(connectionsResult) && givesEnumerator) {
        enumerator.connections = connections;
        enumerator.HandOut(object);
    }
    return connectionsResult;
}

HRESULT FakeNetworkListManager::GetNetworkConnection(GUID id, INetworkConnection** object) {
    ExpectHeld("GetNetworkConnection");
    *object = nullptr;
    const auto found =
        std::find_if(connections.begin(), connections.end(),
                     [&id](const FakeConnection* connection) { return connection->connectionId == id; });
    if (found == connections.end()) {
        return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
    if (SUCCEEDED(connectionResult) && givesConnection) {
        (*found)->HandOut(object);
    }
    return connectionResult;
}

GUID ConnectionGuid(unsigned char number) {
    return {0xA0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, number}};
}
std::wstring ConnectionText(unsigned char number) {
    return Text(ConnectionGuid(number));
}
GUID AdapterGuid(unsigned char number) {
    return {0xADA00000, 0, 0, {0, 0, 0, 0, 0, 0, 0, number}};
}
std::wstring AdapterText(unsigned char number) {
    return Text(AdapterGuid(number));
}
std::string AdapterName(unsigned char number) {
    const std::wstring text = AdapterText(number);
    std::string name;
    std::transform(text.begin(), text.end(), std::back_inserter(name),
                   [](wchar_t letter) { return static_cast<char>(letter); });
    return name;
}

}  // namespace NetworkTests
