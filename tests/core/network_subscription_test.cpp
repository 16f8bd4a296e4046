#include "core/network_subscription.h"

#include <olectl.h>

#include <cstdlib>
#include <ostream>
#include <thread>
#include <utility>

#include "notebook/state/text.h"
#include "tests/core/core_test.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

using Rig::Lines::Error;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kListen[] = "CMainService::ListenForWlanEvents";

class NetworkSubscriptionTest : public CoreTest {
  protected:
    NetworkSubscriptionTest() {
        state.running = true;
        state.networkListManager =
            notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
        notebook.ForgetCalls();
    }

    /// Plugs the cable in and lets whoever subscribed hear of it.
    void PlugAndDeliver() const {
        notebook.PlugCable();
        notebook.Deliver();
    }
    [[nodiscard]] std::wstring CableConnection() const {
        return ::Notebook::GuidText(notebook.Devices().adapters[0].connectionId);
    }

    OpenService service;
    ServiceState& state = service.m_state;
};

TEST_F(NetworkSubscriptionTest, SubscribesToThreeKindsOfEventsInTheirOrder) {
    ListenForWlanEvents(state);
    EXPECT_THAT(notebook.Calls(), ElementsAre("FindConnectionPoint INetworkListManagerEvents",
                                              "Advise INetworkListManagerEvents",  //
                                              "FindConnectionPoint INetworkConnectionEvents",
                                              "Advise INetworkConnectionEvents",  //
                                              "FindConnectionPoint INetworkEvents", "Advise INetworkEvents"));
    EXPECT_EQ(notebook.Held().comSinks, 3);
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), TraceOut(kListen)));
    Stop(service);
    EXPECT_EQ(notebook.Held().comSinks, 0);
}

TEST_F(NetworkSubscriptionTest, EventsOfACableReachTheWiredConnections) {
    ListenForWlanEvents(state);
    PlugAndDeliver();
    EXPECT_THAT(*state.wiredConnections, ElementsAre(CableConnection()));
    // Each of its three interfaces hears of the plug.
    for (const char* const operation :
         {"NLMEventHandler::ConnectivityChanged", "NLMEventHandler::NetworkConnectivityChanged",
          "NLMEventHandler::NetworkConnectionConnectivityChanged"}) {
        EXPECT_TRUE(!log.Of(operation).empty()) << operation;
    }
    Stop(service);
}

TEST_F(NetworkSubscriptionTest, HandlerOutlivesTheStop) {
    ListenForWlanEvents(state);
    NLMEventHandler* const handler = state.networkEventHandler;
    // One of the service, three of the connection points, three that are kept, and this one.
    EXPECT_EQ(handler->AddRef(), 8U);
    // The manager is borrowed: the field, and each connection point's own.
    EXPECT_EQ(notebook.Held().comReferences, 1 + 3 * 2);
    Stop(service);
    EXPECT_EQ(handler->Release(), 3U);
    EXPECT_EQ(notebook.Held().comReferences, 0);
    // An event that was under way when the service stopped.
    EXPECT_EQ(handler->NetworkAdded(GUID{}), S_OK);
}

struct FailingStep {
    const char* name;
    Call call;
    int nth;
    HRESULT error;
    const wchar_t* line;
    std::size_t calls;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.name;
}

class FailingNetworkSubscription : public NetworkSubscriptionTest,
                                   public testing::WithParamInterface<FailingStep> {};

TEST_P(FailingNetworkSubscription, LogsOneLineAndStopGivesBackWhatWasMade) {
    const FailingStep& step = GetParam();
    notebook.Fail(step.call, step.nth, step.error);
    ListenForWlanEvents(state);
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), Error(kListen, step.line), TraceOut(kListen)));
    EXPECT_THAT(notebook.Calls(), SizeIs(step.calls));
    EXPECT_EQ(state.networkListManagerEvents != nullptr, step.calls >= 2);
    EXPECT_EQ(state.networkConnectionEvents != nullptr, step.calls >= 4);
    EXPECT_EQ(state.networkEvents != nullptr, step.calls >= 6);
    EXPECT_EQ(state.networkEventHandler != nullptr, step.calls >= 2);
    Stop(service);
    EXPECT_EQ(notebook.Held().comReferences, 0);
    EXPECT_EQ(notebook.Held().comSinks, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailingNetworkSubscription,
    testing::Values(FailingStep{"FirstPoint", Call::FindConnectionPoint, 1, CONNECT_E_NOCONNECTION,
                                L"FindConnectionPoint Failed with error: 0x80040200", 1},
                    FailingStep{"FirstAdvise", Call::Advise, 1, E_ACCESSDENIED,
                                L"Advise failed with error: 0x80070005", 2},
                    FailingStep{"SecondPoint", Call::FindConnectionPoint, 2, CONNECT_E_NOCONNECTION,
                                L"FindConnectionPoint failed with error: 0x80040200", 3},
                    FailingStep{"SecondAdvise", Call::Advise, 2, CONNECT_E_ADVISELIMIT,
                                L"Advise failed with error: 0x80040201", 4},
                    FailingStep{"ThirdPoint", Call::FindConnectionPoint, 3, E_OUTOFMEMORY,
                                L"FindConnectionPoint failed with error: 0x8007000E", 5},
                    FailingStep{"ThirdAdvise", Call::Advise, 3, RPC_E_DISCONNECTED,
                                L"Advise failed with error: 0x80010108", 6}),
    [](const testing::TestParamInfo<FailingStep>& parameter) { return parameter.param.name; });

TEST_F(NetworkSubscriptionTest, NoMemoryForTheHandlerEndsTheSubscription) {
    SKIP_UNLESS_IMPORTED(malloc);
    bool isNext = false;
    notebook.At(Call::FindConnectionPoint, 1, [&] {
        isNext = true;
        return std::nullopt;
    });
    Rig::ScopedImport<&::malloc> noMemory{
        [&](std::size_t bytes) { return bytes == sizeof(NLMEventHandler) && std::exchange(isNext, false); },
        [](std::size_t) -> void* { return nullptr; }};
    ListenForWlanEvents(state);
    EXPECT_EQ(noMemory.Calls(), 1);
    EXPECT_THAT(LinesOf(kListen),
                ElementsAre(Error(kListen, L"NLMEventHandler creation failed with error: 0x8007000E")));
    EXPECT_THAT(notebook.Calls(), ElementsAre("FindConnectionPoint INetworkListManagerEvents"));
    EXPECT_EQ(state.networkEventHandler, nullptr);
    Stop(service);
}

TEST_F(NetworkSubscriptionTest, MissingManagerIsAFailedQuery) {
    state.networkListManager.Reset();
    ListenForWlanEvents(state);
    EXPECT_THAT(LinesOf(kListen),
                ElementsAre(Error(kListen,
                                  L"IID_IConnectionPointContainer QueryInterface failed with error: "
                                  L"0x80004003")));
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

/// Subscriptions that nobody takes back, because a stop came in between: they work, with a manager that
/// stays for good.
class StopDuringTheSubscription : public NetworkSubscriptionTest {
  protected:
    void ExpectEventsWorkWithoutTheService() {
        EXPECT_EQ(state.networkListManager, nullptr);
        EXPECT_GT(notebook.Held().comSinks, 0);
        PlugAndDeliver();
        EXPECT_THAT(*state.wiredConnections, ElementsAre(CableConnection()));
        Stop(service);
        EXPECT_EQ(notebook.Held().comReferences, 1);
        notebook.KeepForGood(1);
    }
};

TEST_F(StopDuringTheSubscription, KeepsTheManagerForLaterEvents) {
    notebook.At(Call::FindConnectionPoint, 2, [this] {
        Stop(service);
        return std::nullopt;
    });
    ListenForWlanEvents(state);
    ExpectEventsWorkWithoutTheService();
}

TEST_F(StopDuringTheSubscription, KeepsTheManagerForOneBehindAnUnadviseOfTheStopToo) {
    // The stop takes back a subscription that is only being made, and is still at it, the manager
    // in its field, when the last one has been made.
    const Platform::UniqueHandle stopIsAtIt(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Platform::UniqueHandle allWereMade(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread stop;
    notebook.At(Call::Unadvise, 2, [&] {
        SetEvent(stopIsAtIt.Get());
        WaitForSingleObject(allWereMade.Get(), INFINITE);
        return std::nullopt;
    });
    notebook.At(Call::Advise, 2, [&] {
        stop = std::thread([this] { Stop(service); });
        WaitForSingleObject(stopIsAtIt.Get(), INFINITE);
        return std::nullopt;
    });
    ListenForWlanEvents(state);
    EXPECT_NE(state.networkListManager, nullptr);
    SetEvent(allWereMade.Get());
    stop.join();
    ExpectEventsWorkWithoutTheService();
}

}  // namespace
}  // namespace CoreTests
