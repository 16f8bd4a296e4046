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
class NetworkSink final : public INetworkConnectionEvents {
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
    HRESULT STDMETHODCALLTYPE NetworkConnectionPropertyChanged(GUID,
                                                               NLM_CONNECTION_PROPERTY_CHANGE) override {
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
    NetworkListTest() : m_manager(CreateDevice<INetworkListManager>(CLSID_NetworkListManager)) {}

    ComPtr<IConnectionPoint> Point() {
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(S_OK, m_manager.As(&container));
        ComPtr<IConnectionPoint> point;
        EXPECT_EQ(S_OK, container->FindConnectionPoint(IID_INetworkConnectionEvents, &point));
        return point;
    }
    static void Plug() {
        LockedMachine machine;
        PlugIn(*machine, *CablePort(*machine, 1), 0, machine.Time());
    }
    static void Unplug() {
        LockedMachine machine;
        PullOut(*machine, *CablePort(*machine, 1), machine.Time());
    }
    ComPtr<INetworkConnection> Connection() {
        ComPtr<INetworkConnection> connection;
        LockedMachine machine;
        EXPECT_EQ(S_OK, m_manager->GetNetworkConnection(CablePort(*machine, 1)->connectionId, &connection));
        return connection;
    }

    ComPtr<INetworkListManager> m_manager;
};

TEST_F(NetworkListTest, PlugAndUnplugReachTheSinkInOrderOnAnotherThread) {
    NetworkSink sink;
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

TEST_F(NetworkListTest, SinkIsReleasedOnlyWhenTheCallInProgressHasEnded) {
    NetworkSink sink;
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
    NetworkSink sink;
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
    NetworkSink sink;
    sink.answer = HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    DWORD cookie = 0;
    Point()->Advise(&sink, &cookie);
    Plug();
    EXPECT_TRUE(Eventually([] { return SharedState::Get().Raw().ledger.comSinks == 0; }));
    EXPECT_EQ(0U, sink.references);
    EXPECT_THAT(sink.Values(), ElementsAre(NLM_CONNECTIVITY_IPV4_INTERNET));
}

TEST_F(NetworkListTest, WhatAnEarlierRunHeldIsNotInTheLedger) {
    NetworkSink sink;
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
    const ComPtr<INetworkListManager> later = CreateDevice<INetworkListManager>(CLSID_NetworkListManager);
    EXPECT_EQ(1, SharedState::Get().Raw().ledger.comReferences);
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

}  // namespace

}  // namespace Notebook::Tests
