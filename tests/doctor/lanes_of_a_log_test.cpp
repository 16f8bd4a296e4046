// What the lanes say of a day, where that is less simple than the last line about it.
#include <gtest/gtest.h>

#include <string>

#include "tests/doctor/written_log.h"

namespace Doctor {
namespace {

constexpr std::uint32_t kModemThread = 0x40;
constexpr std::uint32_t kControlThread = 0x50;
constexpr Time kHour = 3600000;

State At(const Lane& lane, Time time) {
    return lane.Between(time, time + 1).front().state;
}

std::string WhyAt(const Lane& lane, Time time) {
    return lane.Between(time, time + 1).front().why;
}

constexpr const char kDuringASleep[] =
    "changed during a sleep, or as it woke; the log does not tell when the sleep began";

/// A log with a modem that the service knows, without and with airplane mode.
WrittenLog WithModem(bool on) {
    WrittenLog log;
    log.Started()
        .On(0x20, "ServiceUtils::EnumerateWwanInterfaces")
        .Information("WWAN Interface = {3B0DE300}");
    log.In("ServiceUtils::CheckWwanStatus")
        .Information(on ? "Current WWAN status : ON" : "Current WWAN status : OFF");
    return log;
}

WrittenLog& AirplaneMode(WrittenLog& log) {
    log.On(0x60, "CMainService::AirplaneModeWatcher");
    log.Information("AirplaneModeWatcher - Registry Change Event Triggered");
    log.In("ServiceUtils::CheckAirplaneMode").TraceOut("Airplane Mode Status: 1 ");
    return log;
}

/// The modem tells that its radio has changed.
WrittenLog& ModemChanges(WrittenLog& log) {
    return log.On(kModemThread, "CMbnSinks::OnRadioStateChange").TraceIn().TraceOut();
}

WrittenLog& CompletionBegins(WrittenLog& log) {
    log.On(kModemThread, "CMbnSinks::OnSetSoftwareRadioStateComplete")
        .TraceIn("RequestID = 101, Status = 0x0");
    return log.Information("NetworkChangedForSetRadio Status = 0");
}

/// The end of a request that the service does not look at, because airplane mode is on.
WrittenLog& CompletionIgnored(WrittenLog& log) {
    return CompletionBegins(log).Information("Not Processing OnSetSoftwareRadioStateComplete").TraceOut();
}

WrittenLog& CompletionRead(WrittenLog& log, bool on) {
    CompletionBegins(log).In("ServiceUtils::CheckWwanStatus");
    log.Information(on ? "Current WWAN status : ON" : "Current WWAN status : OFF");
    return log.In("CMbnSinks::OnSetSoftwareRadioStateComplete")
        .Information(on ? "WWAN Status = 1" : "WWAN Status = 0")
        .TraceOut();
}

WrittenLog& Stops(WrittenLog& log) {
    return log.On(0x10, "CMainService::OnStop").Information("Linkvane Service in OnStop");
}

WrittenLog& Wakes(WrittenLog& log) {
    log.On(kControlThread, "CServiceBase::OnContinue").TraceIn();
    return log.TraceOut();
}

/// A resume that looks whether a cable is in.
WrittenLog& WakesAndLooks(WrittenLog& log, bool cable) {
    log.On(kControlThread, "CServiceBase::OnContinue").TraceIn();
    log.LooksAtAdaptersBy("NLMUtils::SystemResumeHandler", cable)
        .Information(cable ? "Ethernet Status = 1" : "Ethernet Status = 0");
    return log.In("CServiceBase::OnContinue").TraceOut();
}

/// A cable whose adapter gets no address for as long as the service waits.
WrittenLog& CableInWithoutAddress(WrittenLog& log) {
    const std::string operation = "NLMEventHandler::NetworkConnectionConnectivityChanged";
    log.On(0x30, operation).TraceIn("NLM_CONNECTIVITY = 3");
    log.Information("------------------start----------------------")
        .Information("Connection ID : {C0AA3C70-5E1F-4B2C-9AD3-C0DE00000001}")
        .Information("Connectivity state : 3 ")
        .Information("Ethernet state : 1 ");
    for (int attempt = 0; attempt < 8; ++attempt) {
        log.LooksAtAdaptersBy(operation, false)
            .Warning("CheckEthernetConnectionStatus failed in try " + std::to_string(attempt))
            .Later(1000);
    }
    return log.EventEnds();
}

TEST(Modem, IsFollowedInAirplaneModeByItsEventsAlone) {
    WrittenLog log = WithModem(false);
    AirplaneMode(log).Later(kHour);
    CompletionIgnored(ModemChanges(log)).Later(kHour);
    const Machine machine = Analysed(CompletionIgnored(log).Text());
    EXPECT_EQ(At(machine.history.wwan, log.Now() - kHour / 2), State::kOn);
    EXPECT_EQ(At(machine.history.wwan, log.Now() - kHour * 3 / 2), State::kOff);
    EXPECT_EQ(machine.history.wwan.Now(), State::kOn) << "an end of a request that changed nothing";
}

TEST(Modem, IsNotFollowedTwiceForAChangeThatALookHasShown) {
    WrittenLog log = WithModem(true);
    AirplaneMode(log).Later(kHour);
    // Another thread sees it first.
    log.On(0x20, "ServiceUtils::CheckWwanStatus").Information("Current WWAN status : OFF");
    const Machine machine = Analysed(CompletionIgnored(ModemChanges(log)).Text());
    EXPECT_EQ(machine.history.wwan.Now(), State::kOff);
}

TEST(Modem, ThatChangesBackWhileItsFirstChangeIsLookedAtIsAsBefore) {
    WrittenLog log = WithModem(false);
    log.Later(kHour);
    // On, and off again before the service looks: the second event waits behind the first.
    ModemChanges(log);
    CompletionRead(log, false);
    AirplaneMode(log);
    const Machine machine = Analysed(CompletionIgnored(ModemChanges(log)).Text());
    EXPECT_EQ(machine.history.wwan.Now(), State::kOff);
}

TEST(Radios, AreAfterARestartAsBeforeUntilTheServiceLooksUnlessItTookLong) {
    for (const auto& [milliseconds, expected] :
         {std::pair(2000, State::kOn), std::pair(20000, State::kUnknown)}) {
        WrittenLog log;
        log.Started().Later(kHour);
        Stops(log).Later(milliseconds);
        log.On(0x11, "CMainService::OnStart")
            .Information("Linkvane Service (1.0.0.1) in OnStart")
            .Later(kHour);
        const Machine machine = Analysed(
            log.In("CMainService::ServiceWorkerThread").TraceIn("ServiceWorkerThread - Entry").Text());
        EXPECT_EQ(At(machine.history.wifi, log.Now() - kHour / 2), expected) << milliseconds;
    }
}

TEST(Cables, OfAnAdapterThatTurnsUpLateWereOutInEveryRunThatListedThem) {
    WrittenLog log;
    const Time begin = log.Now();
    for (int run = 0; run < 2; ++run) {
        log.Started()
            .On(0x20, "CMainService::ServiceWorkerThread")
            .Information("Network Alive : Return  = 0, Status : 0");
        log.Later(kHour);
        Stops(log).Later(60000);
    }
    log.Started().CableIn().EventEnds();
    const Machine machine = Analysed(log.Text());
    ASSERT_EQ(machine.history.cables.size(), 1U);
    const Lane& lane = machine.history.cables.begin()->second;
    EXPECT_EQ(At(lane, begin + kHour / 2), State::kOut);
    EXPECT_EQ(At(lane, begin + kHour + 30000), State::kUnknown) << "between the runs";
    EXPECT_EQ(At(lane, begin + kHour * 3 / 2), State::kOut);
    EXPECT_EQ(lane.Now(), State::kIn);
}

TEST(Cables, ThatTurnUpAfterASleepMayHaveMovedInIt) {
    WrittenLog log;
    log.Started()
        .On(0x20, "CMainService::ServiceWorkerThread")
        .Information("Network Alive : Return  = 0, Status : 0");
    const Time before = log.Now();
    log.Later(8 * kHour);
    Wakes(log).CableIn().EventEnds();
    const Machine machine = Analysed(log.Text());
    const Lane& lane = machine.history.cables.begin()->second;
    EXPECT_EQ(At(lane, before + kHour), State::kUnknown);
    EXPECT_EQ(lane.Now(), State::kIn);
    EXPECT_EQ(At(machine.history.sleep, before + kHour), State::kSlept);
    EXPECT_EQ(machine.history.sleep.Now(), State::kAwake);
}

TEST(Cables, AreInSinceTheirEventWhenTheLastOneIsLongOver) {
    WrittenLog log;
    log.Started().CableIn().Later(3000).EventEnds().CableOut().EventEnds().Later(kHour);
    const Time before = log.Now();
    const Machine machine = Analysed(log.CableIn().EventEnds().Text());
    EXPECT_EQ(At(machine.history.cable, before - kHour / 2), State::kOut);
    EXPECT_EQ(At(machine.history.cable, before - 1000), State::kOut);
}

TEST(Cables, WhoseEventWaitedBehindAnotherMayHaveMovedMeanwhile) {
    WrittenLog log;
    log.Started().CableIn();
    const Time busy = log.Now();
    log.Later(3000).EventEnds();
    const Machine machine = Analysed(log.CableOut().EventEnds().Text());
    EXPECT_EQ(At(machine.history.cable, busy + 1000), State::kUnknown);
    EXPECT_EQ(WhyAt(machine.history.cable, busy + 1000),
              "changed while the service was busy with something else");
    EXPECT_EQ(machine.history.cable.Now(), State::kOut);
}

TEST(Cables, PulledInASleepAreInUntilItMayHaveBegunAndOutFromTheResumesLookOn) {
    WrittenLog log;
    log.Started().CableIn().EventEnds();
    const Time before = log.Now();
    log.Later(8 * kHour);
    const Machine machine = Analysed(WakesAndLooks(log, false).Text());
    for (const Lane* lane : {&machine.history.cable, &machine.history.cables.begin()->second}) {
        EXPECT_EQ(At(*lane, before - 30), State::kIn);
        EXPECT_EQ(At(*lane, before + kHour), State::kUnknown);
        EXPECT_EQ(WhyAt(*lane, before + kHour), kDuringASleep);
        EXPECT_EQ(lane->Now(), State::kOut);
    }
}

TEST(Cables, ThatTheResumeFindsAsBeforeWereSoThroughTheSleep) {
    WrittenLog log;
    log.Started().CableIn().EventEnds();
    const Time before = log.Now();
    log.Later(8 * kHour);
    const Machine machine = Analysed(WakesAndLooks(log, true).Text());
    EXPECT_EQ(At(machine.history.cable, before + kHour), State::kIn);
    EXPECT_EQ(machine.history.cable.Now(), State::kIn);
}

TEST(Cables, ThatGoOutWithoutEverHavingHadAnAddressAreOutFromTheirEventOn) {
    WrittenLog log;
    log.Started();
    const Time plugged = log.Now();
    CableInWithoutAddress(log).Later(kHour);
    // A look by the way does not see an adapter that has no address.
    log.On(0x60, "CMainService::AirplaneModeWatcher")
        .LooksAtAdaptersBy("CMainService::AirplaneModeWatcher", false)
        .Information("Airplane mode is OFF");
    const Time pulled = log.Later(kHour).Now();
    const Machine machine = Analysed(log.CableOut().EventEnds().Text());
    for (const Lane* lane : {&machine.history.cable, &machine.history.cables.begin()->second}) {
        EXPECT_EQ(At(*lane, plugged + kHour / 2), State::kNoAddress);
        EXPECT_EQ(At(*lane, pulled - 1), State::kNoAddress);
        EXPECT_EQ(At(*lane, pulled), State::kOut);
        EXPECT_EQ(lane->Now(), State::kOut);
    }
}

}  // namespace
}  // namespace Doctor
