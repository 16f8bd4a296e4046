// What the log costs. Prints one table; ends with 0 when every ratio is within its bound.
//
// It writes to the log of its own name below the application-data folder, with the policies that
// hold for it, which are expected to be none.
#include <windows.h>
#include <shlobj.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "bench/spdlog_side.h"
#include "logging/file_listener.h"
#include "logging/log_data.h"
#include "logging/logger.h"
#include "platform/handles.h"

namespace Bench {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::CorvaLogListenerFile;
using Orva::Shared::GetLogger;
using Orva::Shared::LoggerHolder;

constexpr const char* kFunction = "Utils::IsServicePresent";
constexpr const wchar_t* kFormat =
    L"Service Name = %s, Running Status To be checked = %d, To Get version Info Status = %d";
constexpr int kRounds = 31;

// --- The log of this program ------------------------------------------------------------------

std::wstring LogPath() {
    std::array<wchar_t, MAX_PATH> folder{};
    SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder.data());
    return std::wstring(folder.data()) + L"\\orvkLog\\logging_bench.log";
}

void DeleteLog() {
    const std::wstring path = LogPath();
    DeleteFileW(path.c_str());
    const std::wstring base = path.substr(0, path.rfind(L'.'));
    for (wchar_t number = L'1'; number <= L'9'; ++number) {
        DeleteFileW((base + L"_000" + number + L".log").c_str());
    }
}

/// The mutex that guards the log, as another program would open it.
class LogMutex {
  public:
    LogMutex() {
        std::wstring name = LogPath();
        name.erase(0, name.find(L':') + 1);
        std::replace(name.begin(), name.end(), L'\\', L'.');
        m_mutex.Reset(CreateMutexW(nullptr, FALSE, (L"Global\\" + name).c_str()));
    }
    void Take() const { WaitForSingleObject(m_mutex.Get(), INFINITE); }
    void Release() const { ReleaseMutex(m_mutex.Get()); }

  private:
    Platform::UniqueHandle m_mutex;
};

std::unique_ptr<CorvaLogger> MakeFileLogger(bool queued) {
    CorvaLogListener* const listener = std::make_unique<CorvaLogListenerFile>(queued).release();
    return std::make_unique<CorvaLogger>(&listener, 1);
}

void WriteLines(CorvaLogger& logger, int count) {
    for (int line = 0; line < count; ++line) {
        logger.Write(Level::kInformation, kFunction, kFormat, L"WlanSvc", line, 1);
    }
}

/// Lines as the log writes them, each with its end.
std::vector<std::wstring> MakeLines(int count) {
    std::vector<std::wstring> lines;
    SYSTEMTIME now{};
    GetLocalTime(&now);
    for (int line = 0; line < count; ++line) {
        const std::wstring message = L"Service Name = WlanSvc, Running Status To be checked = " +
                                     std::to_wstring(line) + L", To Get version Info Status = 1";
        const CorvaLogListener::LogData entry(kFunction, message.c_str(), Level::kInformation, now,
                                              GetCurrentThreadId());
        lines.push_back(std::wstring(entry.GetLogLine()) + L"\n");
    }
    return lines;
}

// --- A call that is filtered out --------------------------------------------------------------

/// Takes entries from "Information" on, to nowhere.
class NullListener final : public CorvaLogListener {
  public:
    NullListener() : CorvaLogListener(PolicyLevels::kIgnore) { m_minLogLevel = Level::kInformation; }
    void Log(const LogData& /*entry*/) override {}
    [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }
};

std::unique_ptr<CorvaLogger> MakeNullLogger() {
    CorvaLogListener* const listener = std::make_unique<NullListener>().release();
    return std::make_unique<CorvaLogger>(&listener, 1);
}

template <class FindLogger>
void DisabledCalls(FindLogger findLogger, int count) {
    for (int i = 0; i < count; ++i) {
        findLogger().Write(Level::kTraceIn, kFunction,
                           L"Service Name = %s, Running Status To be checked = %d", L"WlanSvc", i);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

void CompareDisabledCalls(Table& table) {
    constexpr int kCalls = 1'000'000;
    const auto compare = [&](const char* what, const auto& ours, const auto& others) {
        const auto perCall = [](const auto& calls) { return [&] { return Time(calls) / kCalls; }; };
        table.Add(what, Compare(kRounds, perCall(ours), perCall(others)), 1.0);
    };
    const std::unique_ptr<CorvaLogger> logger = MakeNullLogger();
    const auto atHand = [&]() -> CorvaLogger& { return *logger; };
    compare(
        "disabled call of a logger at hand", [&] { DisabledCalls(atHand, kCalls); },
        [] { SpdlogDisabledCalls(kCalls); });
    LoggerHolder() = MakeNullLogger();
    compare(
        "disabled call of the process's logger", [] { DisabledCalls(&GetLogger, kCalls); },
        [] { SpdlogDisabledCallsOfDefaultLogger(kCalls); });
}

// --- A queued call, as its caller sees it -----------------------------------------------------

/// Lets so many threads write their lines at once; the mean of their times, in nanoseconds a line. Each
/// writes one before, which starts this log's writer: `event_bench` has what that costs.
double TimeOnThreads(int count, int lines, const std::function<void(int)>& write) {
    std::atomic<int> ready = 0;
    std::atomic<double> sum = 0;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < count; ++thread) {
            threads.emplace_back([&] {
                ++ready;
                while (ready < count) {
                    std::this_thread::yield();
                }
                write(1);
                sum += Time([&] { write(lines / count); });
            });
        }
    }
    return sum / lines;
}

void CompareQueuedCalls(Table& table, const std::string& what, int threads, int lines, int rounds) {
    DeleteLog();
    const LogMutex mutex;
    const std::unique_ptr<CorvaLogger> ours = MakeFileLogger(true);
    SpdlogAsync others("logging_bench_spdlog.log");
    const auto oursRound = [&] {
        const double time = TimeOnThreads(threads, lines, [&](int count) { WriteLines(*ours, count); });
        // A writer that was just started gets the mutex first.
        Sleep(20);
        mutex.Take();
        mutex.Release();
        return time;
    };
    const auto othersRound = [&] {
        const double time = TimeOnThreads(threads, lines, [&](int count) { others.WriteLines(count); });
        others.WaitUntilWritten();
        return time;
    };
    table.Add(what, Compare(rounds, oursRound, othersRound), 1.0);
}

// --- Writing ----------------------------------------------------------------------------------

FILE* OpenAsTheLogDoes(const std::wstring& path) {
    return _wfopen(path.c_str(), L"a+,ccs=UTF-8");
}

void CompareDraining(Table& table) {
    // Together less than the log's limit, so that no file is rotated.
    constexpr int kLines = 10'000;
    const LogMutex mutex;
    const std::vector<std::wstring> lines = MakeLines(kLines);
    const auto drain = [&] {
        DeleteLog();
        const std::unique_ptr<CorvaLogger> logger = MakeFileLogger(true);
        mutex.Take();
        WriteLines(*logger, kLines);
        // The writer waits for the mutex by then, and is the next to get it.
        Sleep(20);
        return Time([&] {
                   mutex.Release();
                   mutex.Take();
                   mutex.Release();
               }) /
               kLines;
    };
    const auto bareLoop = [&] {
        const std::wstring path = LogPath() + L".bare";
        DeleteFileW(path.c_str());
        return Time([&] {
                   FILE* const stream = OpenAsTheLogDoes(path);
                   for (const std::wstring& line : lines) {
                       std::fwrite(line.data(), sizeof(wchar_t), line.size(), stream);
                   }
                   std::fclose(stream);
               }) /
               kLines;
    };
    table.Add("draining a line (beside a bare fwrite loop)", Compare(kRounds, drain, bareLoop), 1.25);
}

void CompareSynchronousLines(Table& table) {
    constexpr int kLines = 200;
    DeleteLog();
    const std::unique_ptr<CorvaLogger> logger = MakeFileLogger(false);
    const LogMutex mutex;
    const std::vector<std::wstring> lines = MakeLines(kLines);
    const std::wstring path = LogPath();
    const auto bare = [&] {
        for (const std::wstring& line : lines) {
            mutex.Take();
            FILE* const stream = OpenAsTheLogDoes(path);
            std::fwrite(line.data(), sizeof(wchar_t), line.size(), stream);
            std::fflush(stream);
            std::fclose(stream);
            mutex.Release();
        }
    };
    table.Add("a synchronous line (beside the same calls made bare)",
              Compare(
                  kRounds, [&] { return Time([&] { WriteLines(*logger, kLines); }) / kLines; },
                  [&] { return Time(bare) / kLines; }),
              1.15);
}

bool Run() {
    Table table("The log, by call or by line", "this log", "beside it");
    CompareDisabledCalls(table);
    // In one thread the two are close to each other, and a busy machine is slow for seconds.
    CompareQueuedCalls(table, "queued call, 1 thread, bursts of 8,000 (spdlog async)", 1, 8'000, 301);
    CompareQueuedCalls(table, "queued call, 4 threads, bursts of 8,000 (spdlog async)", 4, 8'000, kRounds);
    CompareQueuedCalls(table, "queued call, 1 thread, 200,000 at once (spdlog async)", 1, 200'000, 5);
    CompareQueuedCalls(table, "queued call, 4 threads, 200,000 at once (spdlog async)", 4, 200'000, 5);
    CompareDraining(table);
    CompareSynchronousLines(table);
    DeleteLog();
    return table.AllWithin();
}

}  // namespace
}  // namespace Bench

int wmain() {
    return Bench::Run() ? EXIT_SUCCESS : EXIT_FAILURE;
}
