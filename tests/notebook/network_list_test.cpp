#include <windows.h>
#include <netlistmgr.h>
#include <ocidl.h>
#include <olectl.h>

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "tests/notebook/hardware.h"

namespace Notebook::Tests {

namespace {

using testing::ElementsAre;

/// Notes what it is told; counts its references as badly as a sink may.
class Sink final : public INetworkConnectionEvents {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        *object =
            IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_INetworkConnectionEvents) ? this : nullptr;
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE NetworkConnectionConnectivityChanged(GUID,
                                                                   NLM_CONNECTIVITY connectivity) override {
        Sleep(static_cast<DWORD>(sleepMs.load()));
        const std::lock_guard hold(lock);
        values.push_back(connectivity);
        if (answer != S_OK) {
            return answer;
        }
        thread = GetCurrentThreadId();
        APTTYPE type{};
        APTTYPEQUALIFIER qualifier{};
        CoGetApartmentType(&type, &qualifier);
        apartment = type;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE
    NetworkConnectionPropertyChanged(GUID, NLM_CONNECTION_PROPERTY_CHANGE flags) override {
        const std::lock_guard hold(lock);
        values.push_back(flags);
        return S_OK;
    }

    std::vector<int> Values() {
        const std::lock_guard hold(lock);
        return values;
    }

    std::mutex lock;
    std::vector<int> values;
    DWORD thread = 0;
    APTTYPE apartment = APTTYPE_CURRENT;
    ULONG references = 0;
    std::atomic<int> sleepMs{0};
    HRESULT answer = S_OK;
};

class NetworkListTest : public NotebookTest {
  protected:
    NetworkListTest() : m_manager(Hardware::Get().Create<INetworkListManager>(CLSID_NetworkListManager)) {}

    ComPtr<IConnectionPoint> Point() {
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(S_OK, m_manager.As(&container));
        ComPtr<IConnectionPoint> point;
        EXPECT_EQ(S_OK, container->FindConnectionPoint(IID_INetworkConnectionEvents, &point));
        return point;
    }
    void Plug(std::uint32_t cable = 1) {
        LockedMachine machine;
        PlugIn(*machine, *CablePort(*machine, cable), 0, machine.Time());
    }
    void Unplug(std::uint32_t cable = 1) {
        LockedMachine machine;
        PullOut(*machine, *CablePort(*machine, cable), machine.Time());
    }
    GUID ConnectionId(std::uint32_t cable = 1) {
        LockedMachine machine;
        return CablePort(*machine, cable)->connectionId;
    }
    ComPtr<INetworkConnection> Connection() {
        ComPtr<INetworkConnection> connection;
        EXPECT_EQ(S_OK, m_manager->GetNetworkConnection(ConnectionId(), &connection));
        return connection;
    }

    ComPtr<INetworkListManager> m_manager;
};

TEST_F(NetworkListTest, PlugAndUnplugReachTheSinkInOrderOnAnotherThread) {
    Sink sink;
    const ComPtr<IConnectionPoint> point = Point();
    DWORD cookie = 0;
    ASSERT_EQ(S_OK, point->Advise(&sink, &cookie));

    Plug();
    Unplug();

    ASSERT_TRUE(Eventually([&] { return sink.Values().size() == 2; }));
    EXPECT_THAT(sink.Values(), ElementsAre(NLM_CONNECTIVITY_IPV4_INTERNET, NLM_CONNECTIVITY_DISCONNECTED));
    EXPECT_NE(GetCurrentThreadId(), sink.thread);
    EXPECT_EQ(APTTYPE_MTA, sink.apartment);
    EXPECT_EQ(S_OK, point->Unadvise(cookie));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, point->Unadvise(cookie));
    EXPECT_TRUE(Eventually([&] { return sink.references == 0; }));
}

TEST_F(NetworkListTest, SubscriptionsAreTracedByTheirEventsAndNumberedApart) {
    Machine& machine = SharedState::Get().Raw();
    machine.traceOn = 1;
    const LONGLONG first = machine.traceCount;
    Sink sink;
    const ComPtr<IConnectionPoint> point = Point();
    DWORD cookies[2] = {};
    ASSERT_EQ(S_OK, point->Advise(&sink, &cookies[0]));
    ASSERT_EQ(S_OK, point->Advise(&sink, &cookies[1]));
    EXPECT_NE(cookies[0], cookies[1]);
    for (const DWORD cookie : cookies) {
        EXPECT_EQ(S_OK, point->Unadvise(cookie));
    }
    machine.traceOn = 0;
    ASSERT_EQ(machine.traceCount, first + 5);
    for (LONGLONG i = first; i < machine.traceCount; ++i) {
        EXPECT_STREQ(machine.trace[i % kTraceCapacity].detail, "INetworkConnectionEvents");
    }
}

TEST_F(NetworkListTest, SinkIsReleasedOnlyWhenTheCallInProgressHasEnded) {
    Sink sink;
    sink.sleepMs = 100;
    const ComPtr<IConnectionPoint> point = Point();
    DWORD cookie = 0;
    point->Advise(&sink, &cookie);
    Plug();
    Activity& activity = SharedState::Get().Raw().activity;
    ASSERT_TRUE(Eventually([&] { return activity.callsBegun - activity.callsEnded == 1; }));

    point->Unadvise(cookie);

    EXPECT_EQ(1U, sink.references);
    EXPECT_TRUE(Eventually([&] { return sink.references == 0; }));
    EXPECT_THAT(sink.Values(), ElementsAre(NLM_CONNECTIVITY_IPV4_INTERNET));
}

TEST_F(NetworkListTest, SinksGoWithTheApartmentWhichNoDeliveryKeepsAlive) {
    Sink sink;
    const ComPtr<IConnectionPoint> point = Point();
    DWORD cookie = 0;
    point->Advise(&sink, &cookie);
    Plug();
    ASSERT_TRUE(Eventually([&] { return sink.Values().size() == 1; }));

    CoUninitialize();

    EXPECT_EQ(0, SharedState::Get().Raw().ledger.comSinks);
    EXPECT_TRUE(Eventually([&] { return sink.references == 0; }));
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    EXPECT_EQ(CONNECT_E_NOCONNECTION, point->Unadvise(cookie));
    EXPECT_EQ(S_OK, point->Advise(&sink, &cookie));
    Unplug();
    EXPECT_TRUE(Eventually([&] { return sink.Values().size() == 2; }));
    point->Unadvise(cookie);
}

TEST_F(NetworkListTest, SinkOfAnEndedProcessIsLetGoOf) {
    Sink sink;
    sink.answer = HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    DWORD cookie = 0;
    Point()->Advise(&sink, &cookie);
    Plug();
    EXPECT_TRUE(Eventually([] { return SharedState::Get().Raw().ledger.comSinks == 0; }));
    EXPECT_EQ(0U, sink.references);
    EXPECT_THAT(sink.Values(), ElementsAre(NLM_CONNECTIVITY_IPV4_INTERNET));
}

TEST_F(NetworkListTest, WhatAnEarlierRunHeldIsNotInTheLedger) {
    Sink sink;
    const ComPtr<IConnectionPoint> point = Point();
    DWORD cookie = 0;
    point->Advise(&sink, &cookie);
    {
        LockedMachine machine;
        ++machine->service.runs;
        machine->ledger = {};
    }
    point->Unadvise(cookie);
    EXPECT_TRUE(Eventually([&] { return sink.references == 0; }));
    EXPECT_EQ(0, SharedState::Get().Raw().ledger.comSinks);
    EXPECT_EQ(0, SharedState::Get().Raw().ledger.comReferences);
    const ComPtr<INetworkListManager> later =
        Hardware::Get().Create<INetworkListManager>(CLSID_NetworkListManager);
    EXPECT_EQ(1, SharedState::Get().Raw().ledger.comReferences);
}

TEST_F(NetworkListTest, LateAddressIsAnnouncedWithoutAnyoneAsking) {
    Sink sink;
    const ComPtr<IConnectionPoint> point = Point();
    DWORD cookie = 0;
    point->Advise(&sink, &cookie);
    {
        LockedMachine machine;
        PlugIn(*machine, *CablePort(*machine, 1), 30, machine.Time());
    }
    EXPECT_TRUE(Eventually([&] { return sink.Values().size() == 2; }));
    EXPECT_THAT(sink.Values(), ElementsAre(NLM_CONNECTIVITY_IPV4_NOTRAFFIC | NLM_CONNECTIVITY_IPV6_NOTRAFFIC,
                                           NLM_CONNECTIVITY_IPV4_INTERNET));
    point->Unadvise(cookie);
}

TEST_F(NetworkListTest, OnlyConnectedAdaptersAreEnumerated) {
    Plug(1);
    Plug(2);
    ComPtr<IEnumNetworkConnections> connections;
    ASSERT_EQ(S_OK, m_manager->GetNetworkConnections(&connections));
    INetworkConnection* found[20] = {};
    ULONG fetched = 0;
    EXPECT_EQ(S_FALSE, connections->Next(20, found, &fetched));
    ASSERT_EQ(2U, fetched);
    GUID id{};
    EXPECT_EQ(S_OK, found[1]->GetConnectionId(&id));
    EXPECT_TRUE(IsEqualGUID(ConnectionId(2), id));
    found[0]->Release();
    found[1]->Release();
    EXPECT_EQ(S_FALSE, connections->Next(20, found, &fetched));
    EXPECT_EQ(0U, fetched);
}

TEST_F(NetworkListTest, ConnectionNamesItsAdapterNetworkAndConnectivity) {
    Plug();
    const ComPtr<INetworkConnection> connection = Connection();
    GUID adapter{};
    EXPECT_EQ(S_OK, connection->GetAdapterId(&adapter));
    VARIANT_BOOL connected = VARIANT_FALSE;
    EXPECT_EQ(S_OK, connection->get_IsConnectedToInternet(&connected));
    EXPECT_EQ(VARIANT_TRUE, connected);
    ComPtr<INetwork> network;
    ASSERT_EQ(S_OK, connection->GetNetwork(&network));
    BSTR name = nullptr;
    ASSERT_EQ(S_OK, network->GetName(&name));
    EXPECT_STREQ(L"Office", name);
    SysFreeString(name);
    LockedMachine machine;
    EXPECT_TRUE(IsEqualGUID(CablePort(*machine, 1)->id, adapter));
}

TEST_F(NetworkListTest, VanishedConnectionKeepsItsNamesAndAnswersNothingElse) {
    Plug();
    const ComPtr<INetworkConnection> connection = Connection();
    Unplug();
    GUID id{};
    EXPECT_EQ(S_OK, connection->GetConnectionId(&id));
    NLM_CONNECTIVITY connectivity{};
    EXPECT_TRUE(FAILED(connection->GetConnectivity(&connectivity)));
    ComPtr<INetwork> network;
    EXPECT_TRUE(FAILED(connection->GetNetwork(&network)));
    ComPtr<INetworkConnection> again;
    EXPECT_TRUE(FAILED(m_manager->GetNetworkConnection(id, &again)));
}

TEST_F(NetworkListTest, UnknownEventInterfaceHasNoConnectionPoint) {
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(S_OK, m_manager.As(&container));
    ComPtr<IConnectionPoint> point;
    EXPECT_EQ(CONNECT_E_NOCONNECTION, container->FindConnectionPoint(IID_IUnknown, &point));
}

}  // namespace

}  // namespace Notebook::Tests
