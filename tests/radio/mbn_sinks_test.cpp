#include "radio/mbn_sinks.h"

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <type_traits>

#include "bios/bios_settings.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/fake_modem.h"
#include "tests/radio/machine.h"
#include "tests/support/throw_from_log_line.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using namespace std::chrono_literals;
using Orva::Shared::Level::kError;
using Rig::ThrowFromLogLine;
using ServiceUtils::kRadioOff;
using ServiceUtils::SwitchWwanStatus;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kComplete[] = "CMbnSinks::OnSetSoftwareRadioStateComplete";
constexpr char kChange[] = "CMbnSinks::OnRadioStateChange";

/// The auto-reset event of a switch, as it publishes it.
std::shared_ptr<Platform::UniqueHandle> PublishEvent() {
    auto event = std::make_shared<Platform::UniqueHandle>(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    WwanState::radioChangeEvent = event;
    return event;
}

bool IsSignalled(const Platform::UniqueHandle& event) {
    return WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0;
}

bool CanBeUsed(HANDLE event) {
    return SetEvent(event) != FALSE;
}

class SinkIdentityTest : public testing::Test {
  protected:
    Machine m_machine;
    RadioLedger m_ledger;
};

TEST_F(SinkIdentityTest, SinkIsItsTwoInterfacesWithAReferenceEach) {
    auto* const sink = new CMbnSinks;
    for (const IID& id : {IID_IUnknown, IID_IMbnRadioEvents}) {
        void* object = nullptr;
        EXPECT_EQ(sink->QueryInterface(id, &object), S_OK);
        EXPECT_EQ(object, static_cast<IMbnRadioEvents*>(sink));
    }
    EXPECT_EQ(sink->Release(), 1U);
    EXPECT_EQ(sink->Release(), 0U);
}

TEST_F(SinkIdentityTest, SinkIsNothingElse) {
    const HeldSink sink;
    for (const IID& id : {IID_IMbnRadio, IID_IMbnInterface, IID_IMbnInterfaceManager, IID_IDispatch}) {
        void* object = this;
        EXPECT_EQ(sink->QueryInterface(id, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_EQ(sink->AddRef(), 2U) << "no reference was taken";
    EXPECT_EQ(sink->Release(), 1U);
}

TEST_F(SinkIdentityTest, QueryWithoutAPlaceForTheAnswerIsRefused) {
    const HeldSink sink;
    EXPECT_EQ(sink->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(sink->QueryInterface(IID_IMbnRadio, nullptr), E_POINTER);
}

TEST_F(SinkIdentityTest, CountStartsAtZero) {
    auto* const sink = new CMbnSinks;
    EXPECT_EQ(sink->AddRef(), 1U);
    EXPECT_EQ(sink->AddRef(), 2U);
    EXPECT_EQ(sink->Release(), 1U);
    EXPECT_EQ(sink->Release(), 0U);
}

TEST_F(SinkIdentityTest, ReferencesOfManyThreadsAreCounted) {
    const HeldSink sink;
    constexpr int kThreads = 4;
    constexpr int kRounds = 50'000;
    std::vector<std::thread> callers;
    for (int i = 0; i < kThreads; ++i) {
        callers.emplace_back([&sink] {
            for (int round = 0; round < kRounds; ++round) {
                sink->AddRef();
            }
            for (int round = 0; round < kRounds; ++round) {
                sink->Release();
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(sink->AddRef(), 2U);
    EXPECT_EQ(sink->Release(), 1U);
}

TEST_F(SinkIdentityTest, LastReleaseClosesAndClearsTheEvent) {
    const EventWatch events;
    PublishEvent().reset();
    {
        const HeldSink sink;
        EXPECT_EQ(events.Open(), 1U);
    }
    EXPECT_EQ(events.Open(), 0U);
    EXPECT_EQ(WwanState::radioChangeEvent.load(), nullptr);
}

TEST_F(SinkIdentityTest, EventThatCannotBeClosedStaysPublished) {
    const HANDLE event = PublishEvent()->Get();
    {
        const Rig::ScopedImport<&::CloseHandle> fails{[event](HANDLE handle) { return handle == event; },
                                                      [](HANDLE) { return FALSE; }};
        { const HeldSink sink; }
        EXPECT_EQ(fails.Calls(), 1);
    }
    ASSERT_NE(WwanState::radioChangeEvent.load(), nullptr);
    EXPECT_EQ(WwanState::radioChangeEvent.load()->Get(), event);
    EXPECT_TRUE(CanBeUsed(event));
    WwanState::radioChangeEvent.store(nullptr);
}

TEST_F(SinkIdentityTest, EventWhoseCloseThrowsStaysPublished) {
    const HANDLE event = PublishEvent()->Get();
    {
        const Rig::ScopedImport<&::CloseHandle> throws{[event](HANDLE handle) { return handle == event; },
                                                       [](HANDLE) -> BOOL { throw DWORD{ERROR_CRC}; }};
        { const HeldSink sink; }
        EXPECT_EQ(throws.Calls(), 1);
    }
    ASSERT_NE(WwanState::radioChangeEvent.load(), nullptr);
    EXPECT_TRUE(CanBeUsed(event));
    EXPECT_THAT(m_machine.log.Lines(), IsEmpty());
    WwanState::radioChangeEvent.store(nullptr);
}

TEST_F(SinkIdentityTest, WithoutAnEventTheLastReleaseClosesNothing) {
    const Rig::ScopedImport<&::CloseHandle> closes{
        Rig::kWrapping, [](const auto& original, HANDLE handle) { return original.Original(handle); }};
    { const HeldSink sink; }
    EXPECT_EQ(closes.Calls(), 0);
}

TEST_F(SinkIdentityTest, EventThatASwitchStillWaitsForIsClosedByTheSwitch) {
    const EventWatch events;
    auto waiting = PublishEvent();
    { const HeldSink sink; }
    EXPECT_EQ(WwanState::radioChangeEvent.load(), nullptr);
    EXPECT_TRUE(CanBeUsed(waiting->Get()));
    EXPECT_EQ(events.Open(), 1U);
    waiting.reset();
    EXPECT_EQ(events.Open(), 0U);
}

TEST_F(SinkIdentityTest, RadioStateChangeIsOnlyLogged) {
    const HeldSink sink;
    const auto event = PublishEvent();
    EXPECT_EQ(sink->OnRadioStateChange(nullptr), S_OK);
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kChange), TraceOut(kChange)));
    EXPECT_FALSE(IsSignalled(*event));
}

#if defined(__GNUC__)
/// The entry of a virtual table, as a function.
template <class Function>
Function* Slot(void* object, std::size_t number) {
    return reinterpret_cast<Function*>((*static_cast<void***>(object))[number]);
}

TEST_F(SinkIdentityTest, VirtualTableHoldsTheOperationsInTheirOrder) {
    static_assert(!std::has_virtual_destructor_v<CMbnSinks>);
    m_machine.HideAdapters();
    auto* const sink = new CMbnSinks;
    EXPECT_EQ(Slot<ULONG WINAPI(void*)>(sink, 1)(sink), 1U);
    void* found = nullptr;
    EXPECT_EQ(Slot<HRESULT WINAPI(void*, REFIID, void**)>(sink, 0)(sink, IID_IMbnRadioEvents, &found), S_OK);
    EXPECT_EQ(found, sink);
    EXPECT_EQ(Slot<ULONG WINAPI(void*)>(sink, 2)(sink), 1U);
    EXPECT_EQ(Slot<HRESULT WINAPI(void*, IMbnRadio*)>(sink, 3)(sink, nullptr), S_OK);
    EXPECT_EQ(Slot<HRESULT WINAPI(void*, IMbnRadio*, ULONG, HRESULT)>(sink, 4)(sink, nullptr, 7, S_FALSE),
              S_OK);
    EXPECT_THAT(m_machine.log.Of(kChange), ElementsAre(TraceIn(kChange), TraceOut(kChange)));
    EXPECT_EQ(m_machine.log.Of(kComplete).front(), TraceIn(kComplete, L"RequestID = 7, Status = 0x1"));
    EXPECT_EQ(sink->Release(), 0U);
}
#endif

TEST_F(SinkIdentityTest, CountAndLockStandBehindTheVirtualTable) {
    struct Layout {
        void* virtualTable;
        ULONG count;
        std::mutex lock;
    };
    static_assert(sizeof(CMbnSinks) == sizeof(Layout));
    m_machine.HideAdapters();
    const HeldSink sink;
    sink->AddRef();
    sink->AddRef();
    auto* const layout = reinterpret_cast<Layout*>(sink.operator->());
    ASSERT_EQ(layout->count, 3U);
    layout->lock.lock();
    std::thread completion([&] { sink.Complete(nullptr, 7); });
    EXPECT_TRUE(m_machine.log.WaitFor(TraceIn(kComplete, L"RequestID = 7, Status = 0x0")));
    Rig::Real<&::Sleep>(50);
    EXPECT_EQ(m_machine.log.Of(kComplete).size(), 1U) << "the event waits for this very lock";
    layout->lock.unlock();
    completion.join();
    EXPECT_EQ(m_machine.log.Of(kComplete).back(), TraceOut(kComplete));
    sink->Release();
    sink->Release();
}

/// A machine with a modem whose radio is on, and nobody switching.
class SinkTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kComplete); }

    FakeRadio& Radio() { return m_modems.Radio(); }

    /// Has the radio do what it is asked at once, without a word: the switch runs into its wait.
    void FollowAtOnce() {
        Radio().onSet = [this](MBN_RADIO wanted, ULONG*) {
            Radio().state = wanted;
            return S_OK;
        };
    }

    /// Sets or takes back the mark of the service's own switches while the sink looks for Ethernet:
    /// after it has logged the mark, before it decides.
    void MarkDuringTheEthernetTest(bool mark) {
        m_machine.adapters.AnswerNext([mark](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
            WwanState::NetworkChangedForSetRadio = mark;
            return ERROR_SUCCESS;
        });
    }

    Machine m_machine;
    RadioLedger m_ledger;
    FakeModems m_modems{{MBN_RADIO_ON}};
    HeldSink m_sink;
};

TEST_F(SinkTest, RadioOfACompletionIsKeptUntilAnotherOneComes) {
    FakeRadio second{MBN_RADIO_ON, "second"};
    m_sink.Complete(&Radio());
    EXPECT_EQ(WwanState::lastRadio.load().get(), &Radio());
    EXPECT_EQ(Radio().References(), 1);
    m_sink.Complete(&Radio());
    EXPECT_EQ(Radio().References(), 1) << "the same radio is not referenced again";
    m_sink.Complete(&second);
    EXPECT_EQ(Radio().References(), 0);
    EXPECT_EQ(second.References(), 1);
    m_sink.Complete(nullptr);
    EXPECT_EQ(second.References(), 0);
    EXPECT_EQ(WwanState::lastRadio.load(), nullptr);
    m_sink.Complete(nullptr);
}

TEST_F(SinkTest, CompletionSignalsTheEvent) {
    const auto event = PublishEvent();
    m_sink.Complete(&Radio());
    EXPECT_TRUE(IsSignalled(*event));
    EXPECT_FALSE(IsSignalled(*event)) << "one waiter is woken";
}

TEST_F(SinkTest, CompletionWithoutASwitchEverSignalsNothing) {
    const Rig::ScopedImport<&::SetEvent> sets{
        Rig::kWrapping, [](const auto& original, HANDLE event) { return original.Original(event); }};
    EXPECT_EQ(m_sink.Complete(&Radio()), S_OK);
    EXPECT_EQ(sets.Calls(), 0);
}

TEST_F(SinkTest, RadioIsKeptBeforeTheSwitchIsWokenToAskIt) {
    PublishEvent().reset();
    const IMbnRadio* keptAtTheSignal = nullptr;
    const Rig::ScopedImport<&::SetEvent> sets{Rig::kWrapping, [&](const auto& original, HANDLE event) {
                                                  keptAtTheSignal = WwanState::lastRadio.load().get();
                                                  return original.Original(event);
                                              }};
    m_sink.Complete(&Radio());
    EXPECT_EQ(keptAtTheSignal, &Radio());
}

TEST_F(SinkTest, EventThatIsReplacedWhileItIsSignalledStaysOpen) {
    PublishEvent().reset();
    BOOL signalled = FALSE;
    const Rig::ScopedImport<&::SetEvent> sets{Rig::kWrapping, [&](const auto& original, HANDLE event) {
                                                  // A new switch begins in this very moment.
                                                  PublishEvent().reset();
                                                  signalled = original.Original(event);
                                                  return signalled;
                                              }};
    m_sink.Complete(&Radio());
    EXPECT_TRUE(signalled);
}

TEST_F(SinkTest, UserSwitchingOnWithoutACableIsRemembered) {
    EXPECT_EQ(m_sink.Complete(&Radio(), 17, S_OK), S_OK);
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 0"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 0"),
                            Information(kComplete, L"Ethernet Connection Status = 0"),
                            Information(kComplete, L"WWAN Status = 1"),
                            Information(kComplete, L"Writing WWAN status 1 to registry"),
                            Information(kComplete,
                                        L"Received OnSetSoftwareRadioStateComplete Event for requestID = 17"),
                            TraceOut(kComplete)));
}

TEST_F(SinkTest, UserSwitchingOffWithoutACableIsRemembered) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.RememberWwan(L"True");
    Radio().state = MBN_RADIO_OFF;
    m_sink.Complete(&Radio());
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_THAT(Lines(), Contains(Information(kComplete, L"LAN-WWAN Auto Switching Status = 1")));
    EXPECT_THAT(Lines(), Contains(Information(kComplete, L"Writing WWAN status 0 to registry")));
}

TEST_F(SinkTest, WithTheFeatureOffTheCableDoesNotMatter) {
    m_machine.PlugCableIn();
    m_sink.Complete(&Radio());
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
    EXPECT_THAT(Radio().sets, IsEmpty());
    EXPECT_THAT(Lines(), Contains(Information(kComplete, L"Ethernet Connection Status = 1")));
}

TEST_F(SinkTest, UserSwitchingOnWithTheCableInIsUndoneAndNotRemembered) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.PlugCableIn();
    m_machine.RememberWwan(L"False");
    FollowAtOnce();
    EXPECT_EQ(m_sink.Complete(&Radio(), 17), S_OK);
    EXPECT_EQ(Radio().state, MBN_RADIO_OFF);
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                                     Information(kComplete, L"NetworkChangedForSetRadio Status = 0"),
                                     Information(kComplete, L"LAN-WWAN Auto Switching Status = 1"),
                                     Information(kComplete, L"Ethernet Connection Status = 1"),
                                     Information(kComplete, L"WWAN Status = 1"),
                                     Information(kComplete, L"Ethernet is present, switching OFF WWAN"),
                                     TraceOut(kComplete)));
    EXPECT_THAT(m_machine.log.Lines(), Contains(TraceIn("ServiceUtils::SwitchWwanStatusWithRetry",
                                                        L"NewStatus = 0, Retry Count = 5")));
}

TEST_F(SinkTest, ChangeThatCannotBeUndoneIsTriedSixTimesAndNotRemembered) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.PlugCableIn();
    m_machine.RememberWwan(L"False");
    EXPECT_EQ(m_sink.Complete(&Radio(), 17), S_OK);
    EXPECT_THAT(Radio().sets, AllOf(SizeIs(6 * 10), Each(MBN_RADIO_OFF)));
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_EQ(Lines().back(), TraceOut(kComplete));

    Radio().state = MBN_RADIO_OFF;
    EXPECT_EQ(m_sink.Complete(&Radio(), 18), S_OK) << "the lock is free again";
    EXPECT_THAT(Lines(),
                Contains(Information(kComplete,
                                     L"Received OnSetSoftwareRadioStateComplete Event for requestID = 18")));
}

TEST_F(SinkTest, UserSwitchingOffWithTheCableInIsOnlyLogged) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.PlugCableIn();
    m_machine.RememberWwan(L"True");
    Radio().state = MBN_RADIO_OFF;
    m_sink.Complete(&Radio(), 17);
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
    EXPECT_THAT(Radio().sets, IsEmpty());
    EXPECT_THAT(Lines(),
                Contains(Information(kComplete,
                                     L"Received OnSetSoftwareRadioStateComplete Event for requestID = 17")));
}

TEST_F(SinkTest, CompletionOfTheServicesOwnSwitchOnlySignals) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    WwanState::NetworkChangedForSetRadio = true;
    m_machine.PlugCableIn();
    const auto event = PublishEvent();
    m_sink.Complete(&Radio(), 17);
    EXPECT_TRUE(IsSignalled(*event));
    EXPECT_THAT(Radio().sets, IsEmpty());
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 1"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 1"),
                            Information(kComplete, L"Ethernet Connection Status = 1"),
                            Information(kComplete, L"Not Processing OnSetSoftwareRadioStateComplete"),
                            TraceOut(kComplete)));
}

TEST_F(SinkTest, SwitchThatBeginsDuringTheEthernetTestIsTheServicesOwn) {
    MarkDuringTheEthernetTest(true);
    m_sink.Complete(&Radio(), 17);
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 0"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 0"),
                            Information(kComplete, L"Ethernet Connection Status = 0"),
                            Information(kComplete, L"Not Processing OnSetSoftwareRadioStateComplete"),
                            TraceOut(kComplete)));
}

TEST_F(SinkTest, SwitchThatEndsDuringTheEthernetTestDoesNotHideTheChange) {
    WwanState::NetworkChangedForSetRadio = true;
    MarkDuringTheEthernetTest(false);
    m_sink.Complete(&Radio(), 17);
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 1"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 0"),
                            Information(kComplete, L"Ethernet Connection Status = 0"),
                            Information(kComplete, L"WWAN Status = 1"),
                            Information(kComplete, L"Writing WWAN status 1 to registry"),
                            Information(kComplete,
                                        L"Received OnSetSoftwareRadioStateComplete Event for requestID = 17"),
                            TraceOut(kComplete)));
}

TEST_F(SinkTest, InAirplaneModeACompletionOnlySignals) {
    m_machine.SetAirplaneMode(true);
    Radio().state = MBN_RADIO_OFF;
    const auto event = PublishEvent();
    m_sink.Complete(&Radio());
    EXPECT_TRUE(IsSignalled(*event));
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
    EXPECT_THAT(Lines(), Contains(Information(kComplete, L"Not Processing OnSetSoftwareRadioStateComplete")));
}

TEST_F(SinkTest, InAirplaneModeARadioThatIsOnWithTheCableInIsLeftAlone) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.PlugCableIn();
    m_machine.SetAirplaneMode(true);
    m_machine.RememberWwan(L"False");
    EXPECT_EQ(m_sink.Complete(&Radio(), 17), S_OK);
    EXPECT_THAT(Radio().sets, IsEmpty());
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 0"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 1"),
                            Information(kComplete, L"Ethernet Connection Status = 1"),
                            Information(kComplete, L"Not Processing OnSetSoftwareRadioStateComplete"),
                            TraceOut(kComplete)));
}

TEST_F(SinkTest, WhenEthernetCannotBeToldACompletionOnlySignals) {
    m_machine.HideAdapters();
    const auto event = PublishEvent();
    EXPECT_EQ(m_sink.Complete(&Radio(), 17), S_OK);
    EXPECT_TRUE(IsSignalled(*event));
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 0"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 0"),
                            Error(kComplete, L"CheckEthernetConnectionStatus failed"), TraceOut(kComplete)));
}

TEST_F(SinkTest, StatusOfTheRequestIsLoggedAndIgnored) {
    EXPECT_EQ(m_sink.Complete(&Radio(), 0xFFFFFFFF, E_FAIL), S_OK);
    EXPECT_EQ(Lines().front(), TraceIn(kComplete, L"RequestID = -1, Status = 0x80004005"));
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
}

TEST_F(SinkTest, WithoutADeviceTheRadioReadsAsOff) {
    WwanState::devicePresent = false;
    m_sink.Complete(nullptr);
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
}

TEST_F(SinkTest, ExceptionIsLoggedAndTheLockLeft) {
    {
        const Rig::ScopedImport<&::SetEvent> throws{[](HANDLE) -> BOOL { throw DWORD{ERROR_CRC}; }};
        PublishEvent().reset();
        EXPECT_EQ(m_sink.Complete(&Radio(), 17), S_OK);
    }
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                                     Error(kComplete, L"Exception in OnSetSoftwareRadioStateComplete()"),
                                     TraceOut(kComplete)));
    EXPECT_EQ(m_sink.Complete(&Radio()), S_OK);
}

TEST_F(SinkTest, CompletionDuringASwitchOfAnotherThreadWakesItWithoutWaitingForIt) {
    // The switching thread holds the switch lock while the sink runs on a thread of its own.
    Radio().onSet = [this](MBN_RADIO wanted, ULONG*) {
        m_machine.clock.AtOnOwnThread(m_machine.clock.Elapsed() + 200ms, [this, wanted] {
            Radio().state = wanted;
            m_sink.Complete(&Radio());
        });
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, 0));
    EXPECT_EQ(m_machine.clock.Elapsed(), 300ms);
    EXPECT_THAT(Lines(), Contains(Information(kComplete, L"Not Processing OnSetSoftwareRadioStateComplete")));
}

TEST_F(SinkTest, CompletionOfASwitchOutOfTheSinkWaitsUntilThatSwitchHasTimedOut) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.PlugCableIn();
    std::thread completion;
    std::atomic<bool> completed = false;
    Radio().onSet = [&](MBN_RADIO wanted, ULONG*) {
        Radio().state = wanted;
        completion = std::thread([&] {
            m_sink.Complete(&Radio(), 2);
            completed = true;
        });
        return S_OK;
    };
    bool completedDuringTheWait = false;
    m_machine.clock.At(3000ms, [&] {
        Rig::Real<&::Sleep>(50);
        completedDuringTheWait = completed;
    });
    m_sink.Complete(&Radio(), 1);
    completion.join();
    EXPECT_FALSE(completedDuringTheWait);
    EXPECT_THAT(m_machine.clock.Waits(), ElementsAre(7000));
    EXPECT_THAT(m_machine.log.Of("ServiceUtils::SwitchWwanStatus"),
                Contains(Information("ServiceUtils::SwitchWwanStatus",
                                     L"New Radio State is Set after timeout. So exiting from loop")));
    // Afterwards it is taken for what it looks like now: WWAN off with the cable in.
    EXPECT_THAT(Lines(),
                Contains(Information(kComplete,
                                     L"Received OnSetSoftwareRadioStateComplete Event for requestID = 2")));
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
}

TEST_F(SinkTest, SwitchOutOfTheSinkWaitsForARunningSwitch) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_machine.PlugCableIn();
    std::thread foreignChange;
    Radio().onSet = [&](MBN_RADIO wanted, ULONG*) {
        Radio().state = wanted;
        return S_OK;
    };
    // Another thread holds the switch lock when the user turns WWAN on.
    {
        const std::lock_guard running(WwanState::switchLock);
        foreignChange = std::thread([&] { m_sink.Complete(&Radio()); });
        EXPECT_TRUE(m_machine.log.WaitFor(
            TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")));
        Rig::Real<&::Sleep>(50);
        EXPECT_THAT(Radio().sets, IsEmpty());
    }
    foreignChange.join();
    EXPECT_EQ(Radio().state, MBN_RADIO_OFF);
}

TEST_F(SinkTest, CompletionsAreHandledOneAfterAnother) {
    // The first one is held up in the Ethernet test.
    std::thread second;
    m_machine.adapters.AnswerNext([&](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        second = std::thread([&] { m_sink.Complete(&Radio(), 2); });
        EXPECT_TRUE(m_machine.log.WaitFor(TraceIn(kComplete, L"RequestID = 2, Status = 0x0")));
        Rig::Real<&::Sleep>(50);
        EXPECT_EQ(m_machine.log.Count(Information(kComplete, L"NetworkChangedForSetRadio Status = 0")), 1);
        return ERROR_NO_DATA;
    });
    m_sink.Complete(&Radio(), 1);
    second.join();
    EXPECT_EQ(m_machine.log.Count(Information(kComplete, L"NetworkChangedForSetRadio Status = 0")), 2);
}

TEST_F(SinkTest, ManyCompletionsWhileASwitchRunsKeepReferencesBalanced) {
    FakeRadio other{MBN_RADIO_OFF, "other"};
    std::atomic<bool> stop = false;
    std::vector<std::thread> callers;
    for (FakeRadio* radio : {&Radio(), &other}) {
        callers.emplace_back([&, radio] {
            while (!stop) {
                m_sink.Complete(radio);
            }
        });
    }
    FollowAtOnce();
    for (int i = 0; i < 20; ++i) {
        SwitchWwanStatus(i % 2 == 0 ? kRadioOff : ServiceUtils::kRadioOn, 0);
    }
    stop = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    WwanState::lastRadio.store(nullptr);
    EXPECT_EQ(Radio().References(), 0);
    EXPECT_EQ(other.References(), 0);
}

}  // namespace
}  // namespace RadioTests
