#include <olectl.h>

#include <cstdlib>
#include <thread>
#include <utility>

#include "core/mobile_broadband_subscription.h"
#include "core/network_subscription.h"
#include "notebook/state/text.h"
#include "radio/wwan_state.h"
#include "tests/core/core_test.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

/// A service that runs, with both managers.
class SubscriptionTest : public CoreTest {
  protected:
    SubscriptionTest() {
        state.running = true;
        CreateManagers();
    }

    void CreateManagers() {
        state.networkListManager =
            notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
        state.mbnInterfaceManager =
            notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager);
        notebook.ForgetCalls();
    }

    OpenService service;
    ServiceState& state = service.m_state;
};

// --- What both subscriptions have in common --------------------------------------------------------

/// One of them, by the kinds of events that it is for.
struct Subscription {
    const char* name;
    const char* function;
    void (*listen)(ServiceState& service);
    std::vector<std::string> kinds;
    const wchar_t* firstFindFailed;
    std::size_t sinkBytes;
    const wchar_t* noMemory;
};

const Subscription kNetwork{"Network",
                            "CMainService::ListenForWlanEvents",
                            &ListenForWlanEvents,
                            {"INetworkListManagerEvents", "INetworkConnectionEvents", "INetworkEvents"},
                            L"FindConnectionPoint Failed with error: ",  // with a capital, this one alone
                            sizeof(NLMEventHandler),
                            L"NLMEventHandler creation failed with error: 0x8007000E"};
const Subscription kMobileBroadband{"MobileBroadband",
                                    "CMainService::ListenForWwanEvents",
                                    &ListenForWwanEvents,
                                    {"IMbnRadioEvents"},
                                    L"FindConnectionPoint failed with error: ",
                                    sizeof(CMbnSinks),
                                    L"CMbnSinks allocation Failed"};

void PrintTo(const Subscription& subscription, std::ostream* out) {
    *out << subscription.name;
}

class EitherSubscription : public SubscriptionTest, public testing::WithParamInterface<Subscription> {
  protected:
    [[nodiscard]] bool HasSink() const {
        return state.networkEventHandler != nullptr || state.mbnSinks != nullptr;
    }
    [[nodiscard]] std::size_t Points() const {
        std::size_t points = 0;
        for (const IConnectionPoint* const point :
             {state.networkListManagerEvents.Get(), state.networkConnectionEvents.Get(),
              state.networkEvents.Get(), state.mbnRadioEvents.Get()}) {
            points += point != nullptr ? 1 : 0;
        }
        return points;
    }
    void ExpectLine(const std::wstring& line) const {
        const char* const function = GetParam().function;
        EXPECT_THAT(log.Of(function),
                    ElementsAre(TraceIn(function), Error(function, line), TraceOut(function)));
    }
};

TEST_P(EitherSubscription, FindsAndAdvisesEachPointInItsOrderUntilTheStopTakesAllBack) {
    GetParam().listen(state);
    std::vector<std::string> calls;
    for (const std::string& kind : GetParam().kinds) {
        calls.push_back("FindConnectionPoint " + kind);
        calls.push_back("Advise " + kind);
    }
    EXPECT_EQ(notebook.Calls(), calls);
    EXPECT_EQ(Points(), GetParam().kinds.size());
    const char* const function = GetParam().function;
    EXPECT_THAT(log.Of(function), ElementsAre(TraceIn(function), TraceOut(function)));
    Stop(service);
    EXPECT_EQ(notebook.Held().comSinks, 0);
    EXPECT_EQ(notebook.Held().comReferences, 0);
}

TEST_P(EitherSubscription, FailingStepLogsOneLineAndTheStopGivesBackWhatWasMade) {
    struct Failure {
        Call call;
        HRESULT result;
        const wchar_t* text;
    };
    const std::wstring findFailed = L"FindConnectionPoint failed with error: ";
    for (std::size_t kind = 0; kind < GetParam().kinds.size(); ++kind) {
        for (const Failure& failure :
             {Failure{Call::FindConnectionPoint, CONNECT_E_NOCONNECTION, L"0x80040200"},
              Failure{Call::FindConnectionPoint, S_OK, L"0x80004003"},  // without one
              Failure{Call::Advise, CONNECT_E_ADVISELIMIT, L"0x80040201"}}) {
            const bool isFound = failure.call == Call::Advise;
            SCOPED_TRACE(testing::Message() << kind << testing::PrintToString(failure.text));
            log.Clear();
            CreateManagers();
            notebook.Fail(failure.call, static_cast<int>(kind) + 1, failure.result);
            GetParam().listen(state);
            ExpectLine((isFound     ? L"Advise failed with error: "
                        : kind == 0 ? GetParam().firstFindFailed
                                    : findFailed) +
                       std::wstring(failure.text));
            EXPECT_THAT(notebook.Calls(), SizeIs(2 * kind + (isFound ? 2 : 1)));
            EXPECT_EQ(Points(), kind + (isFound ? 1 : 0));
            EXPECT_EQ(HasSink(), Points() > 0);
            Stop(service);
            EXPECT_FALSE(HasSink());
            EXPECT_EQ(notebook.Held().comReferences, 0);
            EXPECT_EQ(notebook.Held().comSinks, 0);
            state.running = true;
        }
    }
}

TEST_P(EitherSubscription, MissingManagerIsAFailedQuery) {
    state.networkListManager.Reset();
    state.mbnInterfaceManager.Reset();
    GetParam().listen(state);
    ExpectLine(L"IID_IConnectionPointContainer QueryInterface failed with error: 0x80004003");
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

TEST_P(EitherSubscription, NoMemoryForTheSinkEndsIt) {
    SKIP_UNLESS_IMPORTED(malloc);
    bool isNext = false;
    notebook.Before(Call::FindConnectionPoint, 1, [&] { isNext = true; });
    ScopedImport<&::malloc> noMemory{
        [&](std::size_t bytes) { return bytes == GetParam().sinkBytes && std::exchange(isNext, false); },
        [](std::size_t) -> void* { return nullptr; }};
    GetParam().listen(state);
    EXPECT_EQ(noMemory.Calls(), 1);
    ExpectLine(GetParam().noMemory);
    EXPECT_THAT(notebook.Calls(), ElementsAre("FindConnectionPoint " + GetParam().kinds.front()));
    EXPECT_FALSE(HasSink());
    Stop(service);
}

INSTANTIATE_TEST_SUITE_P(Subscriptions, EitherSubscription, testing::Values(kNetwork, kMobileBroadband),
                         [](const auto& parameter) { return parameter.param.name; });

// --- The modem's completions -----------------------------------------------------------------------

class MobileBroadbandSubscriptionTest : public SubscriptionTest {
  protected:
    MobileBroadbandSubscriptionTest() {
        state.networkListManager.Reset();
        WwanState::radioChangeEvent =
            std::make_shared<Platform::UniqueHandle>(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    }
    /// The sink closes the radio-change event when it is destroyed.
    static bool SinkIsGone() { return WwanState::radioChangeEvent.load() == nullptr; }
};

TEST_F(MobileBroadbandSubscriptionTest, CompletionsReachANewSinkUntilTheStopDestroysIt) {
    ListenForWwanEvents(state);
    // One reference of the service, one of the connection point, and this one.
    EXPECT_EQ(state.mbnSinks->AddRef(), 3U);
    EXPECT_EQ(state.mbnSinks->Release(), 2U);
    notebook.Act(&::Notebook::SwitchModemByUser, 0U, false);
    notebook.Deliver();
    EXPECT_FALSE(log.Of("CMbnSinks::OnSetSoftwareRadioStateComplete").empty());
    WwanState::lastRadio.store(nullptr);
    Stop(service);
    EXPECT_TRUE(SinkIsGone());
    EXPECT_EQ(state.mbnSinks, nullptr);
}

TEST_F(MobileBroadbandSubscriptionTest, SinkOutlivesAStopInTheMiddleAndOneThatCannotUnsubscribe) {
    notebook.Before(Call::Advise, 1, [this] { Stop(service); });
    ListenForWwanEvents(state);
    EXPECT_EQ(state.mbnSinks, nullptr);
    EXPECT_EQ(state.mbnRadioEvents, nullptr);
    EXPECT_FALSE(SinkIsGone());
    EXPECT_EQ(notebook.Held().comSinks, 1);

    CreateManagers();
    ListenForWwanEvents(state);
    notebook.Fail(Call::Unadvise, 1, E_FAIL);
    Stop(service);
    EXPECT_FALSE(SinkIsGone());
    EXPECT_EQ(notebook.Held().comSinks, 2);
}

// --- The network's events --------------------------------------------------------------------------

class NetworkSubscriptionTest : public SubscriptionTest {
  protected:
    NetworkSubscriptionTest() { state.mbnInterfaceManager.Reset(); }

    /// Plugs the cable in: whoever subscribed hears of it, and its connection joins the set.
    void ExpectACableIsHeardOf() const {
        notebook.PlugCable();
        notebook.Deliver();
        EXPECT_THAT(*state.wiredConnections,
                    ElementsAre(::Notebook::GuidText(notebook.Devices().adapters[0].connectionId)));
    }
    /// Subscriptions that nobody takes back, because a stop came in between: they work, with a manager that
    /// stays for good.
    void ExpectEventsWorkWithoutTheService() {
        EXPECT_EQ(state.networkListManager, nullptr);
        EXPECT_GT(notebook.Held().comSinks, 0);
        ExpectACableIsHeardOf();
        Stop(service);
        EXPECT_EQ(notebook.Held().comReferences, 1);
        notebook.KeepForGood(1);
    }
};

TEST_F(NetworkSubscriptionTest, EachInterfaceHearsOfACable) {
    ListenForWlanEvents(state);
    ExpectACableIsHeardOf();
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

TEST_F(NetworkSubscriptionTest, StopInTheMiddleLeavesTheManagerToLaterEvents) {
    notebook.Before(Call::FindConnectionPoint, 2, [this] { Stop(service); });
    ListenForWlanEvents(state);
    ExpectEventsWorkWithoutTheService();
}

TEST_F(NetworkSubscriptionTest, StopThatIsStillUnsubscribingLeavesTheManagerToLaterEventsToo) {
    // The stop takes back a subscription that is only being made, and is still at it, the manager
    // in its field, when the last one has been made.
    const Platform::UniqueHandle stopIsAtIt(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Platform::UniqueHandle allWereMade(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread stop;
    notebook.Before(Call::Unadvise, 2, [&] {
        SetEvent(stopIsAtIt.Get());
        WaitForSingleObject(allWereMade.Get(), INFINITE);
    });
    notebook.Before(Call::Advise, 2, [&] {
        stop = std::thread([&] {
            Stop(service);
            SetEvent(stopIsAtIt.Get());  // at the latest
        });
        WaitForSingleObject(stopIsAtIt.Get(), INFINITE);
    });
    ListenForWlanEvents(state);
    EXPECT_NE(state.networkListManager, nullptr);
    SetEvent(allWereMade.Get());
    stop.join();
    ExpectEventsWorkWithoutTheService();
}

}  // namespace
}  // namespace CoreTests
