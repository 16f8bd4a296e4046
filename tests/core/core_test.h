#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/main_service.h"
#include "tests/radio/machine.h"
#include "tests/support/com_support.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/words.h"

namespace CoreTests {

using ::Notebook::kForEver;
using RadioTests::Refusing;
using Rig::Call;
using namespace Rig::Words;

/// What waits for a service of Windows.
constexpr char kWait[] = "Utils::WaitforServiceToStartRunning";

/// What a radio was switched to, as "off" or "on", in order.
using Switches = std::vector<std::string>;

/// The system thread pool, for a scope: keeps what is queued until the test runs it.
class Pool {
  public:
    struct Item {
        LPTHREAD_START_ROUTINE callback;
        void* context;
        ULONG flags;
    };

    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    /// Fails the test when an item was neither run nor dropped.
    ~Pool();

    /// Last error of queuing; zero lets it succeed.
    DWORD error = NO_ERROR;
    std::vector<Item> items;
    /// Called when an item is queued.
    std::function<void()> atQueue;

    /// Runs the oldest item on this thread and returns the callback's result.
    DWORD RunNext();
    void RunAll();
    /// Forgets all items; their records are lost.
    void Drop() { items.clear(); }

  private:
    ScopedImport<&::QueueUserWorkItem> m_queue{
        [this](LPTHREAD_START_ROUTINE callback, PVOID context, ULONG flags) {
            Rig::SimulatedNotebook::Note("QueueUserWorkItem");
            if (atQueue) {
                atQueue();
            }
            SetLastError(error);
            if (error == NO_ERROR) {
                items.push_back({callback, context, flags});
            }
            return error == NO_ERROR ? TRUE : FALSE;
        }};
};

/// The visits of the code under test to COM's multithreaded apartment, for a scope.
class ComVisits {
  public:
    /// Answers the entry in place of COM.
    std::optional<HRESULT> entryResult;
    std::function<void()> atEntry;
    std::function<void()> atExit;
    std::atomic<int> entries = 0;  ///< that succeeded
    std::atomic<int> exits = 0;

  private:
    ScopedImport<&::CoInitializeEx> m_enter{
        [](LPVOID, DWORD model) { return model == COINIT_MULTITHREADED; },
        [this](LPVOID reserved, DWORD model) {
            Rig::SimulatedNotebook::Note("CoInitializeEx");
            if (atEntry) {
                atEntry();
            }
            const HRESULT result = entryResult ? *entryResult : m_enter.Original(reserved, model);
            entries += SUCCEEDED(result) ? 1 : 0;
            return result;
        }};
    ScopedImport<&::CoUninitialize> m_leave{[this] {
        Rig::SimulatedNotebook::Note("CoUninitialize");
        ++exits;
        if (atExit) {
            atExit();
        }
        // What a test made up is not COM's to leave.
        if (!entryResult) {
            m_leave.Original();
        }
    }};
};

/// The service object with its inside open.
class OpenService : public CMainService {
  public:
    using CMainService::m_state;
    using CMainService::OnContinue;
    using CMainService::Shutdown;
    using CMainService::Start;
    using CMainService::Stop;
};

/// Stops it as the control thread of a running service would: the one visit to COM more that
/// it leaves is the thread's own.
void Stop(OpenService& service);

enum class Cable { kOut, kIn, kUnreadable };

/// A test on a notebook with a WLAN adapter of one PHY and one modem, both on, no cable, airplane mode off,
/// and firmware that has no settings. The modem follows at once and never confirms. The process is in the
/// multithreaded apartment, as it is while the service runs.
class CoreTest : public testing::Test {
  protected:
    CoreTest();
    ~CoreTest() override;

    static void EnableWlanSwitching(bool enables = true);
    static void EnableWwanSwitching(bool enables = true);
    static void EnableSwitching(bool wlan = true, bool wwan = true);
    /// What the start-up worker leaves behind for the WWAN radio.
    void MakeModemKnown() const;
    void RemoveModem() const { notebook.Modem().present = 0; }
    void Set(Cable cable);
    /// Puts both radios into a state, without a word.
    void SetRadios(bool on) const { SetRadios(on, on); }
    void SetRadios(bool wlan, bool wwan) const;
    /// Radios that stay on: a PHY that refuses, and a modem that says yes and does not follow.
    void MakeRadiosStubborn() const;

    /// The lines of one operation, without its trace lines.
    [[nodiscard]] std::vector<LogLine> LinesOf(const char* function) const;
    [[nodiscard]] Switches WlanSwitches() const;
    [[nodiscard]] Switches WwanSwitches() const;
    /// Each switch was made once: what it fails to do is somebody else's to repeat.
    void ExpectNoSwitchIsRepeated() const;
    /// A radio operation was called once, to switch like this.
    void ExpectSwitchCall(const char* function, bool on, bool respectsAirplaneMode) const;
    [[nodiscard]] bool ModemIsOn() const { return notebook.Modem().software != 0; }

    RadioTests::Machine machine{{.phys = 1, .modems = 1}};
    Rig::SimulatedNotebook& notebook = machine.notebook;
    Rig::LogRecorder& log = machine.log;
    Rig::ComApartment apartment;
    Pool pool;
};

}  // namespace CoreTests
