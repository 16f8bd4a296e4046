#include <windows.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "radio/wwan_state.h"
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

constexpr char kListen[] = "CMainService::ListenForWwanEvents";

class MbnSubscriptionTest : public CoreTest {
  protected:
    MbnSubscriptionTest() { world.mbnManager.HandOut(service.m_mbnInterfaceManager.GetAddressOf()); }

    /// The sink closes the radio-change event when it is destroyed.
    static bool SinkIsGone() { return WwanState::radioChangeEvent.load() == nullptr; }
    static void WatchSink() {
        WwanState::radioChangeEvent =
            std::make_shared<Platform::UniqueHandle>(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    }

    OpenService service;
};

TEST_F(MbnSubscriptionTest, SubscribesANewSinkToRadioEvents) {
    service.ListenForWwanEvents();
    EXPECT_THAT(world.journal.Calls(), ElementsAre("Find IMbnRadioEvents", "Advise IMbnRadioEvents"));
    EXPECT_EQ(service.m_mbnRadioEvents.Get(), &world.radioEvents);
    EXPECT_EQ(service.m_mbnRadioCookie, 14U);
    ASSERT_NE(service.m_mbnSinks, nullptr);
    EXPECT_EQ(world.radioEvents.Advised(), service.m_mbnSinks);
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), TraceOut(kListen)));
    Stop(service);
}

TEST_F(MbnSubscriptionTest, SinkIsHeldByTheServiceAndTheConnectionPointOnly) {
    service.ListenForWwanEvents();
    ASSERT_NE(service.m_mbnSinks, nullptr);
    EXPECT_EQ(service.m_mbnSinks->AddRef(), 3U);
    EXPECT_EQ(service.m_mbnSinks->Release(), 2U);
    EXPECT_EQ(world.mbnManager.References(), 1);
    Stop(service);
}

TEST_F(MbnSubscriptionTest, StopDestroysTheSink) {
    service.ListenForWwanEvents();
    WatchSink();
    Stop(service);
    EXPECT_TRUE(SinkIsGone());
    EXPECT_EQ(service.m_mbnSinks, nullptr);
    EXPECT_EQ(world.radioEvents.References(), 0);
    EXPECT_EQ(world.mbnManager.References(), 0);
}

TEST_F(MbnSubscriptionTest, SinkOutlivesTheStopWhileTheConnectionPointHoldsIt) {
    service.ListenForWwanEvents();
    WatchSink();
    world.radioEvents.unadviseResult = E_FAIL;
    Stop(service);
    EXPECT_FALSE(SinkIsGone());
    ASSERT_NE(world.radioEvents.Sink(), nullptr);
    EXPECT_EQ(world.radioEvents.Sink()->Release(), 0U);
    EXPECT_TRUE(SinkIsGone());
}

struct FailingStep {
    const char* name;
    std::function<void(World&)> breakIt;
    std::wstring line;
    std::vector<std::string> calls;
    bool makesSink;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.name;
}

class FailingMbnSubscription : public MbnSubscriptionTest, public testing::WithParamInterface<FailingStep> {};

TEST_P(FailingMbnSubscription, LogsOneLineAndLeavesNothingBehindAfterTheStop) {
    const FailingStep& step = GetParam();
    step.breakIt(world);
    service.ListenForWwanEvents();
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), Error(kListen, step.line), TraceOut(kListen)));
    EXPECT_THAT(world.journal.Calls(), ElementsAreArray(step.calls));
    EXPECT_EQ(service.m_mbnSinks != nullptr, step.makesSink);
    EXPECT_EQ(service.m_mbnRadioEvents != nullptr, step.makesSink);
    EXPECT_EQ(service.m_mbnRadioCookie, 0U);

    WatchSink();
    Stop(service);
    EXPECT_EQ(SinkIsGone(), step.makesSink);
    EXPECT_EQ(world.radioEvents.References(), 0);
    EXPECT_EQ(world.mbnManager.References(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailingMbnSubscription,
    testing::Values(FailingStep{"LostContainer",
                                [](World& world) { world.mbnManager.losesContainer = true; },
                                L"IID_IConnectionPointContainer QueryInterface failed with error: 0x80004003",
                                {},
                                false},
                    FailingStep{"LostPoint",
                                [](World& world) { world.radioEvents.isLost = true; },
                                L"FindConnectionPoint failed with error: 0x80004003",
                                {"Find IMbnRadioEvents"},
                                false},
                    FailingStep{"Container",
                                [](World& world) { world.mbnManager.containerResult = E_NOINTERFACE; },
                                L"IID_IConnectionPointContainer QueryInterface failed with error: 0x80004002",
                                {},
                                false},
                    FailingStep{"Point",
                                [](World& world) { world.radioEvents.findResult = CONNECT_E_NOCONNECTION; },
                                L"FindConnectionPoint failed with error: 0x80040200",
                                {"Find IMbnRadioEvents"},
                                false},
                    FailingStep{"Advise",
                                [](World& world) { world.radioEvents.adviseResult = E_ACCESSDENIED; },
                                L"Advise failed with error: 0x80070005",
                                {"Find IMbnRadioEvents", "Advise IMbnRadioEvents"},
                                true}),
    [](const testing::TestParamInfo<FailingStep>& parameter) { return parameter.param.name; });

TEST_F(MbnSubscriptionTest, MissingManagerIsAFailedQuery) {
    service.m_mbnInterfaceManager.Reset();
    world.journal.Clear();
    service.ListenForWwanEvents();
    EXPECT_THAT(world.LinesOf(kListen),
                ElementsAre(Error(kListen,
                                  L"IID_IConnectionPointContainer QueryInterface failed with error: "
                                  L"0x80004003")));
    EXPECT_THAT(world.journal.Calls(), IsEmpty());
}

TEST_F(MbnSubscriptionTest, NoMemoryForTheSinkEndsTheSubscription) {
    SKIP_UNLESS_IMPORTED(malloc);
    bool isNext = false;
    world.journal.At("Find IMbnRadioEvents", [&] { isNext = true; });
    Rig::ScopedImport<&::malloc> noMemory{
        [&](std::size_t bytes) { return bytes == sizeof(CMbnSinks) && std::exchange(isNext, false); },
        [](std::size_t) -> void* { return nullptr; }};
    service.ListenForWwanEvents();
    EXPECT_EQ(noMemory.Calls(), 1);
    EXPECT_THAT(world.LinesOf(kListen), ElementsAre(Error(kListen, L"CMbnSinks allocation Failed")));
    EXPECT_THAT(world.journal.Calls(), ElementsAre("Find IMbnRadioEvents"));
    EXPECT_EQ(service.m_mbnSinks, nullptr);
}

/// The sink answers for its interface; what if one day it did not?
TEST_F(MbnSubscriptionTest, SinkWithoutItsInterfaceEndsTheSubscription) {
    auto* const other = new CMbnSinks();
    other->AddRef();
    {
        const FailingQuery failing(*other, IID_IMbnRadioEvents, E_NOINTERFACE);
        service.ListenForWwanEvents();
    }
    EXPECT_THAT(
        world.LinesOf(kListen),
        ElementsAre(Error(kListen, L"IID_IMbnRadioEvents QueryInterface failed with error: 0x80004002")));
    EXPECT_THAT(world.journal.Calls(), ElementsAre("Find IMbnRadioEvents"));
    Stop(service);
    EXPECT_EQ(world.radioEvents.References(), 0);
    other->Release();
}

TEST_F(MbnSubscriptionTest, StopInTheMiddleLeavesTheSinkToTheConnectionPoint) {
    WatchSink();
    world.journal.At("Advise IMbnRadioEvents", [this] { Stop(service); });
    service.ListenForWwanEvents();
    EXPECT_EQ(service.m_mbnSinks, nullptr);
    EXPECT_EQ(service.m_mbnRadioEvents, nullptr);
    EXPECT_FALSE(SinkIsGone());
    ASSERT_NE(world.radioEvents.Sink(), nullptr);
    EXPECT_EQ(world.radioEvents.Sink()->Release(), 0U);
    EXPECT_TRUE(SinkIsGone());
}

}  // namespace
}  // namespace CoreTests
