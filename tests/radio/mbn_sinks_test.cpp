#include "radio/mbn_sinks.h"

#include <atomic>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "bios/bios_settings.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"

namespace RadioTests {
namespace {

using namespace std::chrono_literals;

constexpr char kComplete[] = "CMbnSinks::OnSetSoftwareRadioStateComplete";
constexpr wchar_t kOff[] = L"WWAN Status = 0";
constexpr wchar_t kReceived[] = L"Received OnSetSoftwareRadioStateComplete Event for requestID = 17";
constexpr char kChange[] = "CMbnSinks::OnRadioStateChange";

using Texts = std::vector<const wchar_t*>;

// What a completion ends with.
const Texts kRemembersOn{L"WWAN Status = 1", L"Writing WWAN status 1 to registry", kReceived};
const Texts kRemembersOff{kOff, L"Writing WWAN status 0 to registry", kReceived};
const Texts kUndoes{L"WWAN Status = 1", L"Ethernet is present, switching OFF WWAN"};
const Texts kIgnores{L"Not Processing OnSetSoftwareRadioStateComplete"};

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

class SinkIdentityTest : public RadioTest {
  protected:
    [[nodiscard]] int OpenHandles() const { return m_ledger.Outstanding(Rig::Kind::kHandle); }
};

/// A sink that someone holds, for a scope.
using HeldSink = Microsoft::WRL::ComPtr<CMbnSinks>;

TEST_F(SinkIdentityTest, SinkIsItsTwoInterfacesWithAReferenceEach) {
    auto* const sink = new CMbnSinks;
    for (const IID& id : {IID_IUnknown, IID_IMbnRadioEvents}) {
        void* object = nullptr;
        EXPECT_EQ(sink->QueryInterface(id, &object), S_OK);
        EXPECT_EQ(object, static_cast<IMbnRadioEvents*>(sink));
    }
    EXPECT_EQ(sink->AddRef(), 3U);
    EXPECT_EQ(sink->Release(), 2U);
    EXPECT_EQ(sink->Release(), 1U);
    EXPECT_EQ(sink->Release(), 0U);
}

TEST_F(SinkIdentityTest, SinkIsNothingElse) {
    const HeldSink sink(new CMbnSinks);
    for (const IID& id : {IID_IMbnRadio, IID_IMbnInterface, IID_IMbnInterfaceManager, IID_IDispatch}) {
        void* object = this;
        EXPECT_EQ(sink->QueryInterface(id, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_EQ(sink->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(sink->QueryInterface(IID_IMbnRadio, nullptr), E_POINTER);
    EXPECT_EQ(sink->AddRef(), 2U) << "no reference was taken";
    EXPECT_EQ(sink->Release(), 1U);
}

TEST_F(SinkIdentityTest, ReferencesOfManyThreadsAreCounted) {
    const HeldSink sink(new CMbnSinks);
    constexpr int kThreads = 4;
    constexpr int kRounds = 50'000;
    std::vector<std::thread> callers;
    for (int i = 0; i < kThreads; ++i) {
        callers.emplace_back([&sink] {
            for (int round = 0; round < kRounds; ++round) {
                sink->AddRef();
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
    const int openBefore = OpenHandles();
    PublishEvent().reset();
    {
        const HeldSink sink(new CMbnSinks);
        EXPECT_EQ(OpenHandles(), openBefore + 1);
    }
    EXPECT_EQ(OpenHandles(), openBefore);
    EXPECT_EQ(WwanState::radioChangeEvent.load(), nullptr);
}

TEST_F(SinkIdentityTest, EventThatCannotBeClosedStaysPublished) {
    for (const bool throws : {false, true}) {
        const HANDLE event = PublishEvent()->Get();
        {
            const ScopedImport<&::CloseHandle> fails{
                [event](HANDLE handle) { return handle == event; },
                [throws](HANDLE) { return throws ? throw DWORD{ERROR_CRC} : FALSE; }};
            { const HeldSink sink(new CMbnSinks); }
            EXPECT_EQ(fails.Calls(), 1);
        }
        ASSERT_NE(WwanState::radioChangeEvent.load(), nullptr);
        EXPECT_EQ(WwanState::radioChangeEvent.load()->Get(), event);
        EXPECT_TRUE(CanBeUsed(event));
        WwanState::radioChangeEvent.store(nullptr);
    }
    EXPECT_THAT(m_machine.log.Lines(), IsEmpty());
}

TEST_F(SinkIdentityTest, WithoutAnEventTheLastReleaseClosesNothing) {
    const ScopedWatch<&::CloseHandle> closes;
    { const HeldSink sink(new CMbnSinks); }
    EXPECT_EQ(closes.Calls(), 0);
}

TEST_F(SinkIdentityTest, EventThatASwitchStillWaitsForIsClosedByTheSwitch) {
    const int openBefore = OpenHandles();
    auto waiting = PublishEvent();
    { const HeldSink sink(new CMbnSinks); }
    EXPECT_EQ(WwanState::radioChangeEvent.load(), nullptr);
    EXPECT_TRUE(CanBeUsed(waiting->Get()));
    waiting.reset();
    EXPECT_EQ(OpenHandles(), openBefore);
}

TEST_F(SinkIdentityTest, RadioStateChangeIsOnlyLogged) {
    const HeldSink sink(new CMbnSinks);
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

/// A machine with a modem whose radio is on, and nobody switching.
class SinkTest : public WwanTest {
  protected:
    SinkTest() {
        // It does what it is asked at once, without a word: a switch runs into its wait.
        FollowWithoutAWord();
    }

    [[nodiscard]] std::vector<LogLine> Lines() const { return m_machine.log.Of(kComplete); }

    /// What the completion of request 17 says when the Ethernet test went well.
    [[nodiscard]] static std::vector<LogLine> CompletionLines(bool mark, bool feature, bool cable,
                                                              const Texts& rest) {
        std::vector<LogLine> lines{TraceIn(kComplete, L"RequestID = 17, Status = 0x0")};
        for (const auto& [text, flag] : {std::pair(L"NetworkChangedForSetRadio Status = ", mark),
                                         std::pair(L"LAN-WWAN Auto Switching Status = ", feature),
                                         std::pair(L"Ethernet Connection Status = ", cable)}) {
            lines.push_back(Information(kComplete, text + std::to_wstring(flag)));
        }
        for (const wchar_t* text : rest) {
            lines.push_back(Information(kComplete, text));
        }
        lines.push_back(TraceOut(kComplete));
        return lines;
    }
};

TEST_F(SinkTest, RadioOfACompletionIsKeptUntilAnotherOneComes) {
    Complete();
    const IMbnRadio* const first = WwanState::lastRadio.load().get();
    EXPECT_EQ(References(), 1);
    Complete();
    EXPECT_EQ(WwanState::lastRadio.load().get(), first);
    EXPECT_EQ(References(), 1) << "the same radio is not referenced again";
    Complete(1, S_OK, ConfirmRadio::Fresh);
    EXPECT_NE(WwanState::lastRadio.load().get(), first);
    EXPECT_EQ(References(), 1);
    Complete(1, S_OK, ConfirmRadio::Null);
    EXPECT_EQ(WwanState::lastRadio.load(), nullptr);
    EXPECT_EQ(References(), 0);
    Complete(1, S_OK, ConfirmRadio::Null);
}

TEST_F(SinkTest, CompletionWithoutASwitchEverSignalsNothing) {
    const ScopedWatch<&::SetEvent> sets;
    EXPECT_EQ(Complete(), S_OK);
    EXPECT_EQ(sets.Calls(), 0);
}

TEST_F(SinkTest, RadioIsKeptBeforeTheEventIsSignalledWhichStaysOpenMeanwhile) {
    PublishEvent().reset();
    const IMbnRadio* keptAtTheSignal = nullptr;
    BOOL signalled = FALSE;
    const ScopedImport<&::SetEvent> sets{Rig::kWrapping, [&](const auto& original, HANDLE event) {
                                             keptAtTheSignal = WwanState::lastRadio.load().get();
                                             // A new switch begins in this very moment.
                                             PublishEvent().reset();
                                             signalled = original.Original(event);
                                             return signalled;
                                         }};
    Complete();
    EXPECT_NE(keptAtTheSignal, nullptr);
    EXPECT_TRUE(signalled);
}

/// A machine at the moment of a completion, and what becomes of it.
struct Moment {
    bool mark = false;  ///< the service itself is switching
    bool airplaneMode = false;
    bool feature = false;
    bool cable = false;
    bool isOn = false;
    Texts lines;
    const wchar_t* remembers = nullptr;  ///< null: what was remembered stays
    bool undoes = false;
};

TEST_F(SinkTest, CompletionIsJudgedByMarkAirplaneModeFeatureAndCable) {
    for (const Moment& moment : {
             // The user's choice is remembered,
             Moment{.isOn = true, .lines = kRemembersOn, .remembers = L"True"},
             Moment{.lines = kRemembersOff, .remembers = L"False"},
             Moment{.feature = true, .isOn = true, .lines = kRemembersOn, .remembers = L"True"},
             Moment{.feature = true, .lines = kRemembersOff, .remembers = L"False"},
             Moment{.cable = true, .isOn = true, .lines = kRemembersOn, .remembers = L"True"},
             Moment{.cable = true, .lines = kRemembersOff, .remembers = L"False"},
             // but undone where the cable is in and the feature enabled.
             Moment{.feature = true, .cable = true, .isOn = true, .lines = kUndoes, .undoes = true},
             Moment{.feature = true, .cable = true, .lines = {kOff, kReceived}},
             // The service's own switch, and airplane mode.
             Moment{.mark = true, .feature = true, .cable = true, .isOn = true, .lines = kIgnores},
             Moment{.mark = true, .lines = kIgnores},
             Moment{.airplaneMode = true, .feature = true, .cable = true, .isOn = true, .lines = kIgnores},
             Moment{.airplaneMode = true, .lines = kIgnores},
         }) {
        SCOPED_TRACE(testing::Message()
                     << "mark " << moment.mark << ", airplane mode " << moment.airplaneMode << ", feature "
                     << moment.feature << ", cable " << moment.cable << ", on " << moment.isOn);
        SetModems(1);
        FollowWithoutAWord();
        Modem().software = moment.isOn ? 1 : 0;
        if (moment.cable) {
            m_notebook.PlugCable();
        }
        WwanState::NetworkChangedForSetRadio = moment.mark;
        NLMUtils::lanWwanSwitchingEnabled = moment.feature;
        m_machine.SetAirplaneMode(moment.airplaneMode);
        const std::wstring before = moment.isOn ? L"False" : L"True";
        m_machine.RememberWwan(before);
        m_machine.log.Clear();
        const auto event = PublishEvent();
        EXPECT_EQ(Complete(17), S_OK);
        EXPECT_TRUE(IsSignalled(*event));
        EXPECT_EQ(m_machine.RememberedWwan(), moment.remembers != nullptr ? moment.remembers : before);
        EXPECT_EQ(IsOn(), moment.isOn && !moment.undoes);
        EXPECT_EQ(SetCount(), moment.undoes ? 1 : 0);
        EXPECT_EQ(Lines(), CompletionLines(moment.mark, moment.feature, moment.cable, moment.lines));
        EXPECT_EQ(m_machine.log.Count(
                      TraceIn("ServiceUtils::SwitchWwanStatusWithRetry", L"NewStatus = 0, Retry Count = 5")),
                  moment.undoes ? 1 : 0);
    }
}

TEST_F(SinkTest, ChangeThatCannotBeUndoneIsTriedSixTimesAndNotRemembered) {
    IgnoreRequests();
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_notebook.PlugCable();
    m_machine.RememberWwan(L"False");
    EXPECT_EQ(Complete(17), S_OK);
    EXPECT_THAT(Sets(), AllOf(SizeIs(6 * 10), Each("modem 1 to 0")));
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_EQ(Lines(), CompletionLines(false, true, true, kUndoes));
}

TEST_F(SinkTest, MarkIsLookedAtAfterTheEthernetTest) {
    // A switch begins or ends meanwhile.
    for (const bool mark : {true, false}) {
        WwanState::NetworkChangedForSetRadio = !mark;
        m_notebook.Before(Call::GetAdaptersInfo, 1, [mark] { WwanState::NetworkChangedForSetRadio = mark; });
        m_machine.log.Clear();
        Complete(17);
        EXPECT_EQ(Lines(), CompletionLines(!mark, false, false, mark ? kIgnores : kRemembersOn));
        EXPECT_EQ(m_machine.RememberedWwan(), mark ? L"" : L"True");
    }
}

TEST_F(SinkTest, WhenEthernetCannotBeToldACompletionOnlySignals) {
    m_machine.HideAdapters();
    const auto event = PublishEvent();
    EXPECT_EQ(Complete(17), S_OK);
    EXPECT_TRUE(IsSignalled(*event));
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                            Information(kComplete, L"NetworkChangedForSetRadio Status = 0"),
                            Information(kComplete, L"LAN-WWAN Auto Switching Status = 0"),
                            Error(kComplete, L"CheckEthernetConnectionStatus failed"), TraceOut(kComplete)));
}

TEST_F(SinkTest, StatusOfTheRequestIsLoggedAndIgnored) {
    EXPECT_EQ(Complete(0xFFFFFFFF, E_FAIL), S_OK);
    EXPECT_EQ(Lines().front(), TraceIn(kComplete, L"RequestID = -1, Status = 0x80004005"));
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
}

TEST_F(SinkTest, ExceptionIsLoggedAndTheLockLeft) {
    {
        const ScopedImport<&::SetEvent> throws{[](HANDLE) -> BOOL { throw DWORD{ERROR_CRC}; }};
        PublishEvent().reset();
        EXPECT_EQ(Complete(17), S_OK);
    }
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kComplete, L"RequestID = 17, Status = 0x0"),
                                     Error(kComplete, L"Exception in OnSetSoftwareRadioStateComplete()"),
                                     TraceOut(kComplete)));
    EXPECT_EQ(Complete(), S_OK);
}

TEST_F(SinkTest, CompletionOfASwitchOutOfTheSinkWaitsUntilThatSwitchHasTimedOut) {
    NLMUtils::lanWwanSwitchingEnabled = true;
    m_notebook.PlugCable();
    std::thread completion;
    std::atomic<bool> completed = false;
    m_notebook.Before(Call::MbnRadioSetSoftwareRadioState, 1, [&] {
        completion = std::thread([&] {
            Complete(2);
            completed = true;
        });
    });
    bool completedDuringTheWait = false;
    m_machine.clock.At(3000ms, [&] {
        Rig::Real<&::Sleep>(50);
        completedDuringTheWait = completed;
    });
    Complete(1);
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

TEST_F(SinkTest, CompletionsAreHandledOneAfterAnother) {
    // The first one is held up in the Ethernet test.
    std::thread second;
    m_notebook.At(Call::GetAdaptersInfo, 1, [&]() -> DWORD {
        second = std::thread([&] { Complete(2); });
        EXPECT_TRUE(m_machine.log.WaitFor(TraceIn(kComplete, L"RequestID = 2, Status = 0x0")));
        Rig::Real<&::Sleep>(50);
        EXPECT_EQ(m_machine.log.Count(Information(kComplete, L"NetworkChangedForSetRadio Status = 0")), 1);
        return ERROR_NO_DATA;
    });
    Complete(1);
    second.join();
    EXPECT_EQ(m_machine.log.Count(Information(kComplete, L"NetworkChangedForSetRadio Status = 0")), 2);
}

}  // namespace
}  // namespace RadioTests
