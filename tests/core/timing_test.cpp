#include <set>

#include "core/airplane_mode_watcher.h"
#include "core/power_status_restore.h"
#include "core/start_up_worker.h"
#include "platform/wlan_notifications.h"
#include "tests/core/core_test.h"

namespace CoreTests {
namespace {

using Orva::Shared::Level::kDiag;
using Orva::Shared::Level::kTraceIn;
using Orva::Shared::Level::kTraceOut;
using Rig::Line;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::Lines::Error;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::StartsWith;

constexpr char kWorker[] = "CMainService::ServiceWorkerThread";
constexpr wchar_t kEntry[] = L"ServiceWorkerThread - Entry";
constexpr wchar_t kExit[] = L"ServiceWorkerThread - Exit";

auto ElapsedTimeOf(const std::string& function) {
    return Line(kDiag, function, StartsWith(L"Elapsed time = "));
}

/// Every operation of the core, where operations are timed. All of it on one thread, so that the log has
/// each operation's lines where they were written.
class CoreTimingTest : public CoreTest {
  protected:
    void Announce(std::uint32_t source, std::uint32_t code) const {
        notebook.Act(&::Notebook::AnnounceWlan, 0U, source, code);
        notebook.Deliver();
    }

    /// The life of a service, from its construction to its destruction.
    void LiveOnce() {
        OpenService service;
        service.OnStart(0, nullptr);
        pool.RunNext();
        pool.Drop();
        Announce(WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available);
        Announce(WLAN_NOTIFICATION_SOURCE_MSM, Platform::kWlanNotificationMsmRadioStateChange);
        EnableWlanSwitching();
        service.OnContinue();
        service.OnShutdown();
        AirplaneModeWatcher(service.m_state);
    }

    LogRecorder timed{LogRecorder::Timing::kOn};
};

TEST_F(CoreTimingTest, EveryExitLineIsFollowedByTheElapsedTimeOfItsOperation) {
    Rig::RunOnThread([this] { LiveOnce(); }, Rig::Apartment::kMultithreadedTwice);
    const std::vector<LogLine> lines = timed.Lines();
    std::set<std::string> operations;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].level == kTraceOut) {
            operations.insert(lines[i].function);
            ASSERT_LT(i + 1, lines.size()) << lines[i].function;
            EXPECT_THAT(lines[i + 1], ElapsedTimeOf(lines[i].function)) << "line " << i;
        }
    }
    EXPECT_THAT(
        operations,
        IsSupersetOf({"CMainService::CMainService", "CMainService::~CMainService", "CMainService::OnStart",
                      "CMainService::OnStop", "CMainService::OnShutdown", kWorker,
                      "CMainService::ListenForWlanEvents", "CMainService::ListenForWwanEvents",
                      "CMainService::RegisterWlanNotification", "CMainService::WlanNotificationCallback",
                      "CMainService::HandleWlanNotificationAcmNetworkAvailable",
                      "CMainService::HandleWlanNotificationMsmRadioStateChange",
                      "CMainService::AirplaneModeWatcher", "CMainService::UpdateWlanPowerStatus",
                      "CMainService::UpdateWwanPowerStatus", "CServiceBase::OnContinue",
                      "NLMUtils::SystemResumeHandler"}));
    // Nothing is timed that did not begin, and whatever began was timed.
    EXPECT_EQ(timed.At(kDiag).size(), timed.At(kTraceIn).size());
    // The worker writes its exit line itself, once.
    const std::vector<LogLine> worker = timed.Of(kWorker);
    EXPECT_EQ(worker.front(), TraceIn(kWorker, kEntry));
    EXPECT_THAT(worker.back(), ElapsedTimeOf(kWorker));
    EXPECT_EQ(timed.Count(TraceOut(kWorker, kExit)), 1);
    EXPECT_THAT(timed.At(kTraceOut), testing::Contains(Line(kTraceOut, kWorker, testing::_)).Times(1));
}

TEST_F(CoreTimingTest, WorkerThatGivesUpIsTimedWithoutAnExitLine) {
    ComVisits com;
    com.entryResult = E_OUTOFMEMORY;
    ServiceState service;
    ServiceWorkerThread(service);
    EXPECT_THAT(timed.Of(kWorker), ElementsAre(TraceIn(kWorker, kEntry),
                                               Error(kWorker, L"CoInitialize failed with error: 0x8007000E"),
                                               ElapsedTimeOf(kWorker)));
}

}  // namespace
}  // namespace CoreTests
