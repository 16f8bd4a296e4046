#include "core/mobile_broadband_subscription.h"

#include <olectl.h>

#include <cstdlib>
#include <utility>

#include "radio/wwan_state.h"
#include "tests/core/core_test.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

using Rig::Lines::Error;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kListen[] = "CMainService::ListenForWwanEvents";

class MobileBroadbandSubscriptionTest : public CoreTest {
  protected:
    MobileBroadbandSubscriptionTest() {
        state.mbnInterfaceManager =
            notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager);
        notebook.ForgetCalls();
    }

    /// The sink closes the radio-change event when it is destroyed.
    static bool SinkIsGone() { return WwanState::radioChangeEvent.load() == nullptr; }
    static void WatchSink() {
        WwanState::radioChangeEvent =
            std::make_shared<Platform::UniqueHandle>(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    }

    OpenService service;
    ServiceState& state = service.m_state;
};

TEST_F(MobileBroadbandSubscriptionTest, ModemsCompletionsReachANewSinkUntilTheStopDestroysIt) {
    ListenForWwanEvents(state);
    EXPECT_THAT(notebook.Calls(),
                ElementsAre("FindConnectionPoint IMbnRadioEvents", "Advise IMbnRadioEvents"));
    EXPECT_THAT(log.Of(kListen), ElementsAre(TraceIn(kListen), TraceOut(kListen)));
    // One reference of the service, one of the connection point, and this one.
    EXPECT_EQ(state.mbnSinks->AddRef(), 3U);
    EXPECT_EQ(state.mbnSinks->Release(), 2U);
    notebook.Act(&::Notebook::SwitchModemByUser, 0U, false);
    notebook.Deliver();
    EXPECT_FALSE(log.Of("CMbnSinks::OnSetSoftwareRadioStateComplete").empty());
    WwanState::lastRadio.store(nullptr);

    WatchSink();
    Stop(service);
    EXPECT_TRUE(SinkIsGone());
    EXPECT_EQ(state.mbnSinks, nullptr);
    EXPECT_EQ(notebook.Held().comReferences, 0);
}

TEST_F(MobileBroadbandSubscriptionTest, SinkOutlivesTheStopWhileTheConnectionPointHoldsIt) {
    ListenForWwanEvents(state);
    WatchSink();
    notebook.Fail(Call::Unadvise, 1, E_FAIL);
    Stop(service);
    EXPECT_FALSE(SinkIsGone());
    EXPECT_EQ(notebook.Held().comSinks, 1);
}

TEST_F(MobileBroadbandSubscriptionTest, StopInTheMiddleLeavesTheSinkToTheConnectionPoint) {
    WatchSink();
    notebook.At(Call::Advise, 1, [this] {
        Stop(service);
        return std::nullopt;
    });
    ListenForWwanEvents(state);
    EXPECT_EQ(state.mbnSinks, nullptr);
    EXPECT_EQ(state.mbnRadioEvents, nullptr);
    EXPECT_FALSE(SinkIsGone());
    EXPECT_EQ(notebook.Held().comSinks, 1);
}

TEST_F(MobileBroadbandSubscriptionTest, FailingStepLogsOneLineAndLeavesNothingBehindAfterTheStop) {
    struct Step {
        Call call;
        HRESULT error;
        const wchar_t* line;
        bool makesSink;
    };
    for (const Step& step :
         {Step{Call::FindConnectionPoint, CONNECT_E_NOCONNECTION,
               L"FindConnectionPoint failed with error: 0x80040200", false},
          Step{Call::Advise, E_ACCESSDENIED, L"Advise failed with error: 0x80070005", true}}) {
        SCOPED_TRACE(step.line);
        log.Clear();
        state.mbnInterfaceManager =
            notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager);
        notebook.Fail(step.call, 1, step.error);
        ListenForWwanEvents(state);
        EXPECT_THAT(log.Of(kListen),
                    ElementsAre(TraceIn(kListen), Error(kListen, step.line), TraceOut(kListen)));
        EXPECT_EQ(state.mbnSinks != nullptr, step.makesSink);
        EXPECT_EQ(state.mbnRadioEvents != nullptr, step.makesSink);
        WatchSink();
        Stop(service);
        EXPECT_EQ(SinkIsGone(), step.makesSink);
        EXPECT_EQ(notebook.Held().comReferences, 0);
    }
}

TEST_F(MobileBroadbandSubscriptionTest, MissingManagerIsAFailedQuery) {
    state.mbnInterfaceManager.Reset();
    ListenForWwanEvents(state);
    EXPECT_THAT(LinesOf(kListen),
                ElementsAre(Error(kListen,
                                  L"IID_IConnectionPointContainer QueryInterface failed with error: "
                                  L"0x80004003")));
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

TEST_F(MobileBroadbandSubscriptionTest, NoMemoryForTheSinkEndsTheSubscription) {
    SKIP_UNLESS_IMPORTED(malloc);
    bool isNext = false;
    notebook.At(Call::FindConnectionPoint, 1, [&] {
        isNext = true;
        return std::nullopt;
    });
    Rig::ScopedImport<&::malloc> noMemory{
        [&](std::size_t bytes) { return bytes == sizeof(CMbnSinks) && std::exchange(isNext, false); },
        [](std::size_t) -> void* { return nullptr; }};
    ListenForWwanEvents(state);
    EXPECT_EQ(noMemory.Calls(), 1);
    EXPECT_THAT(LinesOf(kListen), ElementsAre(Error(kListen, L"CMbnSinks allocation Failed")));
    EXPECT_THAT(notebook.Calls(), ElementsAre("FindConnectionPoint IMbnRadioEvents"));
    EXPECT_EQ(state.mbnSinks, nullptr);
}

}  // namespace
}  // namespace CoreTests
