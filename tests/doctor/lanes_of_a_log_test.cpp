// What the lanes say of a day, where that is less simple than the last line about it.
#include <gtest/gtest.h>

#include "tests/doctor/written_log.h"

namespace Doctor {
namespace {

constexpr std::uint32_t kModemThread = 0x40;
constexpr std::uint32_t kControlThread = 0x50;
constexpr Time kHour = 3600000;

State At(const Lane& lane, Time time) {
    return lane.Between(time, time + 1).front().state;
}

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

TEST(Radios, AreAfterARestartAsBeforeUntilTheServiceLooks) {
    WrittenLog log;
    log.Started().Later(kHour);
    Stops(log).Later(2000);
    log.On(0x11, "CMainService::OnStart").Information("Linkvane Service (1.0.0.1) in OnStart").Later(kHour);
    const Machine machine =
        Analysed(log.In("CMainService::ServiceWorkerThread").TraceIn("ServiceWorkerThread - Entry").Text());
    EXPECT_EQ(At(machine.history.wifi, log.Now() - kHour / 2), State::kOn);
}

TEST(Radios, AreNotKnownAfterALongerStop) {
    WrittenLog log;
    log.Started().Later(kHour);
    Stops(log).Later(20000);
    log.On(0x11, "CMainService::OnStart").Information("Linkvane Service (1.0.0.1) in OnStart").Later(kHour);
    const Machine machine =
        Analysed(log.In("CMainService::ServiceWorkerThread").TraceIn("ServiceWorkerThread - Entry").Text());
    EXPECT_EQ(At(machine.history.wifi, log.Now() - kHour / 2), State::kUnknown);
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
    EXPECT_EQ(machine.history.cable.Now(), State::kOut);
}

}  // namespace
}  // namespace Doctor
