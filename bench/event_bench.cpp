// What the service adds to a cable event. Prints one table; ends with 0 when every bound is kept.
//
// Devices that answer at once stand in for the machine's; the log is the default one, below the
// application-data folder under this program's own name.
#include <windows.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>

#include "bench/devices.h"
#include "bench/measure.h"
#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "platform/handles.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"

namespace Bench {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kNanosecondsPerMicrosecond = 1e3;
constexpr double kMostAddedNanoseconds = 1e6;
constexpr double kMostRatio = 2.0;

/// The service's event sink, subscribed to nothing: the events are called.
class Service {
  public:
    void PlugIn() {
        Devices::PlugIn();
        m_events->NetworkConnectionConnectivityChanged(Devices::ConnectionId(),
                                                       NLM_CONNECTIVITY_IPV4_INTERNET);
    }
    void PullOut() {
        Devices::PullOut();
        m_events->NetworkConnectionConnectivityChanged(Devices::ConnectionId(),
                                                       NLM_CONNECTIVITY_DISCONNECTED);
    }

  private:
    // Like the service's own it lives as long as the process.
    NLMEventHandler* m_events = new NLMEventHandler(&Devices::Manager(), new WiredConnections);
};

/// Nanoseconds from the start of `plug` to its last switch of a PHY.
template <class Plug>
double TimeOfPlug(const Plug& plug) {
    Devices::SetWifi(true);
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    LARGE_INTEGER start{};
    QueryPerformanceCounter(&start);
    plug();
    return static_cast<double>(Devices::LastSwitch() - start.QuadPart) * kNanosecondsPerSecond /
           static_cast<double>(frequency.QuadPart);
}

/// Lets the writer of the log come to rest, as it does between a user's plugs.
void WaitForTheLog() {
    const Platform::UniqueHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    constexpr DWORD kRest = 10;
    WaitForSingleObject(never.Get(), kRest);
}

bool ComparePlugs(Service& service) {
    constexpr int kRounds = 301;
    const auto recordPlug = [&] {
        Devices::SetWifi(true);
        return Devices::Record([&] { service.PlugIn(); });
    };
    // The first one makes what is made once.
    static_cast<void>(recordPlug());
    WaitForTheLog();
    const Devices::Steps afterARest = recordPlug();
    const Devices::Steps withWriterAtWork = recordPlug();
    const Devices::Steps withoutLog = Devices::WithoutLog(afterARest);
    const auto plug = [&] { return TimeOfPlug([&] { service.PlugIn(); }); };
    const auto replay = [](const Devices::Steps& steps) {
        return TimeOfPlug([&] { Devices::Replay(steps); });
    };

    Table table("From the network event to the last switch of a PHY", "service", "bare calls");
    const Comparison rested = Compare(
        kRounds,
        [&] {
            WaitForTheLog();
            return plug();
        },
        [&] {
            WaitForTheLog();
            return replay(afterARest);
        });
    table.Add("plug after a rest: its first line starts the log's writer", rested, kMostRatio);
    table.Add("plug while the log's writer is at work",
              Compare(kRounds, plug, [&] { return replay(withWriterAtWork); }), kMostRatio);
    const double devices =
        Compare(
            kRounds, [&] { return replay(withoutLog); }, [&] { return replay(withoutLog); })
            .ours;
    const double added = rested.ours - devices;
    std::printf("    %zu calls, %zu of them not the log's, which take %.1f microseconds\n", afterARest.size(),
                withoutLog.size(), devices / kNanosecondsPerMicrosecond);
    std::printf("    added to those after a rest: %.1f microseconds (at most 1000)\n",
                added / kNanosecondsPerMicrosecond);
    return table.AllWithin() && added < kMostAddedNanoseconds;
}

// --- Endurance --------------------------------------------------------------------------------

struct Resources {
    DWORD handles = 0;
    DWORD threads = 0;
    double megabytes = 0;
};

DWORD CountThreads() {
    const Platform::UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    DWORD count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL found = Thread32First(snapshot.Get(), &entry); found != FALSE;
         found = Thread32Next(snapshot.Get(), &entry)) {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    return count;
}

/// By asking for each: not every system answers how many there are.
DWORD CountHandles() {
    constexpr ULONG_PTR kStep = 4;
    constexpr ULONG_PTR kEnd = 0x10000;
    DWORD count = 0;
    for (ULONG_PTR value = kStep; value < kEnd; value += kStep) {
        DWORD flags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE ? 1 : 0;
    }
    return count;
}

Resources ReadResources() {
    // The log's writer has ended by then.
    for (int i = 0; i < 50; ++i) {
        WaitForTheLog();
    }
    Resources resources;
    resources.handles = CountHandles();
    resources.threads = CountThreads();
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    constexpr double kBytesPerMegabyte = 1024.0 * 1024.0;
    resources.megabytes = static_cast<double>(counters.PagefileUsage) / kBytesPerMegabyte;
    return resources;
}

void Print(const char* when, const Resources& resources) {
    std::printf("    %-26s %8lu %8lu %10.2f\n", when, resources.handles, resources.threads,
                resources.megabytes);
    std::fflush(stdout);
}

bool PlayPairs(Service& service, int pairs) {
    for (int pair = 0; pair < pairs; ++pair) {
        service.PlugIn();
        const bool wentOff = !Devices::IsWifiOn();
        service.PullOut();
        if (!wentOff || !Devices::IsWifiOn()) {
            std::printf("    pair %d: Wi-Fi did not follow\n", pair);
            return false;
        }
    }
    return true;
}

bool ShowEndurance(Service& service) {
    constexpr int kFew = 10;
    constexpr int kMany = 10'000;
    std::printf("\nThe process at rest, after pairs of plug and unplug\n\n    %-26s %8s %8s %10s\n", "",
                "handles", "threads", "megabytes");
    Devices::SetWifi(true);
    bool followed = PlayPairs(service, kFew);
    const Resources few = ReadResources();
    Print("10 pairs", few);
    followed = PlayPairs(service, kMany / 2 - kFew) && followed;
    const Resources half = ReadResources();
    Print("5,000 pairs", half);
    followed = PlayPairs(service, kMany / 2) && followed;
    const Resources many = ReadResources();
    Print("10,000 pairs", many);
    const bool isFlat = many.handles == few.handles && many.threads == few.threads;
    std::printf("    handles and threads %s\n", isFlat ? "equal" : "DIFFER");
    return followed && isFlat;
}

bool Run() {
    Devices::Install();
    NLMUtils::lanWlanSwitchingEnabled = true;
    HKEY key = nullptr;
    // Windows always has it; a test bed need not.
    RegCreateKeyW(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, &key);
    RegCloseKey(key);
    Service service;
    const bool fast = ComparePlugs(service);
    const bool flat = ShowEndurance(service);
    return fast && flat;
}

}  // namespace
}  // namespace Bench

int wmain() {
    return Bench::Run() ? EXIT_SUCCESS : EXIT_FAILURE;
}
