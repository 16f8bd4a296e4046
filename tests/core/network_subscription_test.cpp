#include <windows.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/core/code_patch.h"
#include "tests/core/core_world.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

using Rig::Lines::Error;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kListen[] = "CMainService::ListenForWlanEvents";

/// The handler with its inside open.
class OpenHandler : public NLMEventHandler {
  public:
    using NLMEventHandler::m_networkListManager;
    using NLMEventHandler::m_references;
    using NLMEventHandler::m_wiredConnections;
};

const auto& Inside(const NLMEventHandler& handler) {
    return static_cast<const OpenHandler&>(handler);  // NOLINT: only to see its fields
}

class NetworkSubscriptionTest : public CoreTest {
  protected:
    NetworkSubscriptionTest() {
        service.m_running = true;
        world.listManager.HandOut(service.m_networkListManager.GetAddressOf());
    }
    ~NetworkSubscriptionTest() override {
        // The references that are kept would let the handler outlive the process.
        NLMEventHandler* const handler = m_handler;
        m_handler = nullptr;
        while (handler != nullptr && handler->Release() != 0) {
        }
    }

    void Listen() {
        service.ListenForWlanEvents();
        m_handler = service.m_networkEventHandler;
        if (m_handler != nullptr) {
            m_handler->AddRef();
        }
    }

    /// References to the handler besides the test's own.
    [[nodiscard]] ULONG References() const { return Inside(*m_handler).m_references - 1; }

    OpenService service;

  private:
    NLMEventHandler* m_handler = nullptr;
};

TEST_F(NetworkSubscriptionTest, SubscribesToThreeKindsOfEventsInTheirOrder) {
    Listen();
    EXPECT_THAT(world.journal.Calls(),
                ElementsAre("Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
                            "Find INetworkConnectionEvents", "Advise INetworkConnectionEvents",
                            "Find INetworkEvents", "Advise INetworkEvents"));
    EXPECT_EQ(service.m_networkListManagerEvents.Get(), &world.listManagerEvents);
    EXPECT_EQ(service.m_networkConnectionEvents.Get(), &world.connectionEvents);
    EXPECT_EQ(service.m_networkEvents.Get(), &world.networkEvents);
    EXPECT_EQ(service.m_networkListManagerCookie, 11U);
    EXPECT_EQ(service.m_networkConnectionCookie, 12U);
    EXPECT_EQ(service.m_networkCookie, 13U);
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), TraceOut(kListen)));
}

TEST_F(NetworkSubscriptionTest, EachConnectionPointGetsTheHandlersOwnInterface) {
    Listen();
    NLMEventHandler* const handler = service.m_networkEventHandler;
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(world.listManagerEvents.Advised(), static_cast<INetworkListManagerEvents*>(handler));
    EXPECT_EQ(world.connectionEvents.Advised(), static_cast<INetworkConnectionEvents*>(handler));
    EXPECT_EQ(world.networkEvents.Advised(), static_cast<INetworkEvents*>(handler));
}

TEST_F(NetworkSubscriptionTest, HandlerKnowsTheManagerAndTheWiredConnections) {
    Listen();
    ASSERT_NE(service.m_networkEventHandler, nullptr);
    EXPECT_EQ(Inside(*service.m_networkEventHandler).m_networkListManager,
              service.m_networkListManager.Get());
    EXPECT_EQ(Inside(*service.m_networkEventHandler).m_wiredConnections, service.m_wiredConnections);
    // Borrowed: the service's own reference is the only one left.
    EXPECT_EQ(world.listManager.References(), 1);
}

TEST_F(NetworkSubscriptionTest, HandlerOutlivesTheStop) {
    Listen();
    NLMEventHandler* const handler = service.m_networkEventHandler;
    // One of the service, three of the connection points, three that are kept.
    EXPECT_EQ(References(), 7U);
    Stop(service);
    EXPECT_EQ(References(), 3U);
    EXPECT_EQ(world.listManagerEvents.Sink(), nullptr);
    EXPECT_EQ(world.connectionEvents.Sink(), nullptr);
    EXPECT_EQ(world.networkEvents.Sink(), nullptr);
    EXPECT_EQ(world.listManager.References(), 0);
    // An event that was under way when the service stopped.
    EXPECT_EQ(handler->NetworkAdded(GUID{}), S_OK);
}

TEST_F(NetworkSubscriptionTest, EventsOfAPlugReachTheWiredConnections) {
    NetworkTests::FakeConnection cable{NetworkTests::ConnectionGuid(1), NetworkTests::AdapterGuid(1)};
    world.listManager.connections = {&cable};
    world.adapterAddresses.Set({{NetworkTests::AdapterName(1), NetworkTests::kEthernet}});
    world.machine.PlugCableIn();
    Listen();
    auto* const events = static_cast<INetworkConnectionEvents*>(service.m_networkEventHandler);
    EXPECT_EQ(
        events->NetworkConnectionConnectivityChanged(cable.connectionId, NLM_CONNECTIVITY_IPV4_INTERNET),
        S_OK);
    EXPECT_THAT(*service.m_wiredConnections, ElementsAre(NetworkTests::ConnectionText(1)));
}

/// One step that fails, what it logs and what was called until then.
struct FailingStep {
    const char* name;
    std::function<void(World&)> breakIt;
    std::wstring line;
    std::vector<std::string> calls;
    ULONG handlerReferences;  ///< after the attempt; 0 when there is no handler
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.name;
}

class FailingNetworkSubscription : public NetworkSubscriptionTest,
                                   public testing::WithParamInterface<FailingStep> {};

TEST_P(FailingNetworkSubscription, LogsOneLineAndKeepsWhatWasMade) {
    const FailingStep& step = GetParam();
    step.breakIt(world);
    Listen();
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), Error(kListen, step.line), TraceOut(kListen)));
    EXPECT_THAT(world.journal.Calls(), ElementsAreArray(step.calls));
    EXPECT_EQ(service.m_networkListManagerCookie, world.listManagerEvents.Sink() != nullptr ? 11U : 0U);
    EXPECT_EQ(service.m_networkConnectionCookie, world.connectionEvents.Sink() != nullptr ? 12U : 0U);
    EXPECT_EQ(service.m_networkCookie, 0U);
    EXPECT_EQ(service.m_networkListManagerEvents == nullptr, step.calls.size() < 2);
    EXPECT_EQ(service.m_networkConnectionEvents == nullptr, step.calls.size() < 4);
    EXPECT_EQ(service.m_networkEvents == nullptr, step.calls.size() < 6);
    if (step.handlerReferences == 0) {
        EXPECT_EQ(service.m_networkEventHandler, nullptr);
    } else {
        ASSERT_NE(service.m_networkEventHandler, nullptr);
        EXPECT_EQ(References(), step.handlerReferences);
    }
}

TEST_P(FailingNetworkSubscription, StopGivesBackWhatWasMade) {
    GetParam().breakIt(world);
    Listen();
    Stop(service);
    EXPECT_EQ(world.listManagerEvents.References(), 0);
    EXPECT_EQ(world.connectionEvents.References(), 0);
    EXPECT_EQ(world.networkEvents.References(), 0);
    EXPECT_EQ(world.listManager.References(), 0);
    EXPECT_EQ(world.listManagerEvents.Sink(), nullptr);
    EXPECT_EQ(world.connectionEvents.Sink(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailingNetworkSubscription,
    testing::Values(
        FailingStep{"LostContainer",
                    [](World& world) { world.listManager.losesContainer = true; },
                    L"IID_IConnectionPointContainer QueryInterface failed with error: 0x80004003",
                    {},
                    0},
        FailingStep{"LostFirstPoint",
                    [](World& world) { world.listManagerEvents.isLost = true; },
                    L"FindConnectionPoint Failed with error: 0x80004003",
                    {"Find INetworkListManagerEvents"},
                    0},
        FailingStep{"LostSecondPoint",
                    [](World& world) { world.connectionEvents.isLost = true; },
                    L"FindConnectionPoint failed with error: 0x80004003",
                    {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
                     "Find INetworkConnectionEvents"},
                    3},
        FailingStep{
            "LostThirdPoint",
            [](World& world) { world.networkEvents.isLost = true; },
            L"FindConnectionPoint failed with error: 0x80004003",
            {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
             "Find INetworkConnectionEvents", "Advise INetworkConnectionEvents", "Find INetworkEvents"},
            5},
        FailingStep{"Container",
                    [](World& world) { world.listManager.containerResult = E_NOINTERFACE; },
                    L"IID_IConnectionPointContainer QueryInterface failed with error: 0x80004002",
                    {},
                    0},
        FailingStep{"FirstPoint",
                    [](World& world) { world.listManagerEvents.findResult = CONNECT_E_NOCONNECTION; },
                    L"FindConnectionPoint Failed with error: 0x80040200",
                    {"Find INetworkListManagerEvents"},
                    0},
        FailingStep{"FirstAdvise",
                    [](World& world) { world.listManagerEvents.adviseResult = E_ACCESSDENIED; },
                    L"Advise failed with error: 0x80070005",
                    {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents"},
                    2},
        FailingStep{"SecondPoint",
                    [](World& world) { world.connectionEvents.findResult = CONNECT_E_NOCONNECTION; },
                    L"FindConnectionPoint failed with error: 0x80040200",
                    {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
                     "Find INetworkConnectionEvents"},
                    3},
        FailingStep{"SecondAdvise",
                    [](World& world) { world.connectionEvents.adviseResult = CONNECT_E_ADVISELIMIT; },
                    L"Advise failed with error: 0x80040201",
                    {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
                     "Find INetworkConnectionEvents", "Advise INetworkConnectionEvents"},
                    4},
        FailingStep{
            "ThirdPoint",
            [](World& world) { world.networkEvents.findResult = E_OUTOFMEMORY; },
            L"FindConnectionPoint failed with error: 0x8007000E",
            {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
             "Find INetworkConnectionEvents", "Advise INetworkConnectionEvents", "Find INetworkEvents"},
            5},
        FailingStep{"ThirdAdvise",
                    [](World& world) { world.networkEvents.adviseResult = RPC_E_DISCONNECTED; },
                    L"Advise failed with error: 0x80010108",
                    {"Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",
                     "Find INetworkConnectionEvents", "Advise INetworkConnectionEvents",
                     "Find INetworkEvents", "Advise INetworkEvents"},
                    6}),
    [](const testing::TestParamInfo<FailingStep>& parameter) { return parameter.param.name; });

TEST_F(NetworkSubscriptionTest, MissingManagerIsAFailedQuery) {
    service.m_networkListManager.Reset();
    world.journal.Clear();
    Listen();
    EXPECT_THAT(world.LinesOf(kListen),
                ElementsAre(Error(kListen,
                                  L"IID_IConnectionPointContainer QueryInterface failed with error: "
                                  L"0x80004003")));
    EXPECT_THAT(world.journal.Calls(), IsEmpty());
}

TEST_F(NetworkSubscriptionTest, NoMemoryForTheHandlerEndsTheSubscription) {
    SKIP_UNLESS_IMPORTED(malloc);
    bool isNext = false;
    world.journal.At("Find INetworkListManagerEvents", [&] { isNext = true; });
    Rig::ScopedImport<&::malloc> noMemory{
        [&](std::size_t bytes) { return bytes == sizeof(NLMEventHandler) && std::exchange(isNext, false); },
        [](std::size_t) -> void* { return nullptr; }};
    Listen();
    EXPECT_EQ(noMemory.Calls(), 1);
    EXPECT_THAT(world.LinesOf(kListen),
                ElementsAre(Error(kListen, L"NLMEventHandler creation failed with error: 0x8007000E")));
    EXPECT_THAT(world.journal.Calls(), ElementsAre("Find INetworkListManagerEvents"));
    EXPECT_EQ(service.m_networkEventHandler, nullptr);
}

/// The handler answers for all three interfaces; what if one day it did not?
struct MissingInterface {
    const char* name;
    const IID* interfaceId;
    std::wstring line;
    std::string lastCall;
};

void PrintTo(const MissingInterface& missing, std::ostream* out) {
    *out << missing.name;
}

class HandlerWithoutInterface : public NetworkSubscriptionTest,
                                public testing::WithParamInterface<MissingInterface> {};

TEST_P(HandlerWithoutInterface, EndsTheSubscriptionWithItsLine) {
    NLMEventHandler other(nullptr, nullptr);
    log.Clear();
    {
        const FailingQuery failing(static_cast<INetworkListManagerEvents&>(other), *GetParam().interfaceId,
                                   E_NOINTERFACE);
        Listen();
    }
    EXPECT_THAT(log.Of(kListen),
                ElementsAre(TraceIn(kListen), Error(kListen, GetParam().line), TraceOut(kListen)));
    EXPECT_EQ(world.journal.Calls().back(), GetParam().lastCall);
    Stop(service);
    EXPECT_EQ(world.listManager.References(), 0);
    // Nothing was kept of it when not even its first interface was had.
    EXPECT_EQ(References() == 0, GetParam().interfaceId == &IID_INetworkListManagerEvents);
}

INSTANTIATE_TEST_SUITE_P(
    Interfaces, HandlerWithoutInterface,
    testing::Values(
        MissingInterface{"INetworkListManagerEvents", &IID_INetworkListManagerEvents,
                         L"IID_INetworkListManagerEvents QueryInterface failed with error: 0x80004002",
                         "Find INetworkListManagerEvents"},
        MissingInterface{"INetworkConnectionEvents", &IID_INetworkConnectionEvents,
                         L"IID_INetworkConnectionEvents QueryInterface failed with error: 0x80004002",
                         "Find INetworkConnectionEvents"},
        MissingInterface{"INetworkEvents", &IID_INetworkEvents,
                         L"IID_INetworkEvents QueryInterface failed with error: 0x80004002",
                         "Find INetworkEvents"}),
    [](const testing::TestParamInfo<MissingInterface>& parameter) { return parameter.param.name; });

TEST_F(NetworkSubscriptionTest, StopInTheMiddleKeepsTheManagerForLaterEvents) {
    world.journal.At("Find INetworkConnectionEvents", [this] { Stop(service); });
    Listen();
    EXPECT_EQ(service.m_networkListManager, nullptr);
    // Two subscriptions were made after the stop; their events need it.
    ASSERT_EQ(world.listManager.References(), 1);
    ASSERT_NE(world.connectionEvents.Sink(), nullptr);
    IUnknown* const sink = world.connectionEvents.Sink();
    static_cast<INetworkConnectionEvents*>(sink)->NetworkConnectionConnectivityChanged(
        NetworkTests::ConnectionGuid(1), NLM_CONNECTIVITY_IPV4_INTERNET);
    EXPECT_EQ(world.listManager.References(), 1);
    world.listManager.Release();
}

TEST_F(NetworkSubscriptionTest, SubscriptionBehindAnUnadviseOfTheStopKeepsTheManagerToo) {
    // The stop takes back a subscription that is only being made, and is still at it, the manager
    // in its field, when the last one has been made.
    const Platform::UniqueHandle stopIsAtIt(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Platform::UniqueHandle allWereMade(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread stop;
    world.journal.At("Unadvise INetworkConnectionEvents 0", [&] {
        SetEvent(stopIsAtIt.Get());
        WaitForSingleObject(allWereMade.Get(), INFINITE);
    });
    world.journal.At("Advise INetworkConnectionEvents", [&] {
        stop = std::thread([this] { Stop(service); });
        WaitForSingleObject(stopIsAtIt.Get(), INFINITE);
    });
    Listen();
    EXPECT_NE(service.m_networkListManager, nullptr);
    SetEvent(allWereMade.Get());
    stop.join();
    EXPECT_EQ(service.m_networkListManager, nullptr);
    // Nobody takes this one back, and its events need the manager.
    IUnknown* const sink = world.connectionEvents.Sink();
    ASSERT_NE(sink, nullptr);
    ASSERT_EQ(world.listManager.References(), 1);
    static_cast<INetworkConnectionEvents*>(sink)->NetworkConnectionConnectivityChanged(
        NetworkTests::ConnectionGuid(1), NLM_CONNECTIVITY_IPV4_INTERNET);
    EXPECT_EQ(world.listManager.References(), 1);
    world.listManager.Release();
}

}  // namespace
}  // namespace CoreTests
