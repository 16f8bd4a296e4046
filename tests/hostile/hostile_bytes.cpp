#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "logging/log_data.h"
#include "tests/hostile/kind.h"
#include "tests/support/long_run.h"
#include "tests/support/scoped_import.h"

namespace HostileBytes {

class QuietLog::Listener final : public Orva::Shared::CorvaLogListener {
  public:
    explicit Listener(int& exceptions) : CorvaLogListener(PolicyLevels::kIgnore), m_exceptions(exceptions) {}
    void Log(const LogData& entry) override {
        m_exceptions += entry.Message().starts_with(L"Exception in ") ? 1 : 0;
    }
    [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }

  private:
    int& m_exceptions;
};

QuietLog::QuietLog() {
    Orva::Shared::CorvaLogListener* const listener = new Listener(m_exceptions);
    m_logger = std::make_unique<Orva::Shared::CorvaLogger>(&listener, 1);
    Orva::Shared::LoggerHolder().swap(m_logger);
}

QuietLog::~QuietLog() {
    Orva::Shared::LoggerHolder().swap(m_logger);
}

namespace {

struct NamedKind {
    const char* name;
    std::unique_ptr<Kind> (*make)();
};

constexpr NamedKind kKinds[] = {
    {"registry", &MakeRegistryValues},
    {"adapters", &MakeAdapterLists},
    {"version", &MakeVersionResources},
    {"log", &MakeLogFiles},
    {"wmi", &MakeWmiValues},
    {"notification", &MakeNotifications},
    {"modem", &MakeModemRecords},
    {"command-line", &MakeCommandLines},
};

struct Options {
    std::uint64_t inputs = 10'000;
    std::uint64_t seed = 0;
    std::uint64_t from = 0;
    std::vector<std::string> kinds;  ///< none: all
};

/// Which input is being tried, for whoever tells of its end.
const char* kindInHand = "";
std::uint64_t seedInHand = 0;
std::atomic<std::uint64_t> numberInHand = 0;

void Tell(const char* what) {
    std::printf("%s\nthe same input alone: --seed %llu --from %llu --inputs 1 %s\n", what, seedInHand,
                numberInHand.load(), kindInHand);
}

[[noreturn]] void GiveUp(const char* what) {
    Tell(what);
    TerminateProcess(GetCurrentProcess(), 3);
    std::abort();
}

LONG WINAPI TellOfCrash(EXCEPTION_POINTERS* pointers) {
    char text[96];
    std::snprintf(text, sizeof(text), "crashed: 0x%08lx at %p (the executable is at %p)",
                  pointers->ExceptionRecord->ExceptionCode, pointers->ExceptionRecord->ExceptionAddress,
                  static_cast<void*>(GetModuleHandleW(nullptr)));
    GiveUp(text);
}

/// Ends the process when one input takes too long.
void WatchForLoops() {
    constexpr int kTimeoutSeconds = 20;
    std::uint64_t seen = 0;
    const char* kind = nullptr;
    for (int seconds = 0;; ++seconds) {
        Rig::Real<&::Sleep>(1000);
        if (seen != numberInHand || kind != kindInHand) {
            seen = numberInHand;
            kind = kindInHand;
            seconds = 0;
        } else if (seconds >= kTimeoutSeconds) {
            GiveUp("never comes to an end");
        }
    }
}

void TryOne(Kind& kind) {
    Random random(seedInHand, numberInHand);
    const int exceptions = kind.Log().Exceptions();
    kind.Try(random);
    Require(kind.Log().Exceptions() == exceptions, "an exception was thrown and logged");
    Require(!testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed(), "a stand-in was misused");
}

bool TryKind(const NamedKind& named, const Options& options) {
    kindInHand = named.name;
    numberInHand = options.from;
    const auto start = std::chrono::steady_clock::now();
    try {
        const std::unique_ptr<Kind> kind = named.make();
        for (; numberInHand < options.from + options.inputs; ++numberInHand) {
            TryOne(*kind);
        }
    } catch (const std::exception& error) {
        Tell(error.what());
        return false;
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::printf("%-12s %llu inputs in %.1f s, %.0f a second\n", named.name, options.inputs, seconds.count(),
                static_cast<double>(options.inputs) / seconds.count());
    return true;
}

Options ReadOptions(int count, wchar_t** words) {
    Options options;
    options.seed = LongRun::FreshSeed();
    LongRun::ReadOptions(count, words,
                         {{"--inputs", LongRun::Into(options.inputs)},
                          {"--seed", LongRun::Into(options.seed)},
                          {"--from", LongRun::Into(options.from)}},
                         [&](const std::string& word) {
                             options.kinds.push_back(word);
                             return std::ranges::any_of(
                                 kKinds, [&](const NamedKind& kind) { return kind.name == word; });
                         });
    return options;
}

int Run(int count, wchar_t** words) {
    const Options options = ReadOptions(count, words);
    seedInHand = options.seed;
    std::printf("--seed %llu\n", options.seed);
    SetUnhandledExceptionFilter(&TellOfCrash);
    std::set_terminate([] { GiveUp("an exception that nobody catches"); });
    std::thread(&WatchForLoops).detach();
    bool passed = true;
    for (const NamedKind& kind : kKinds) {
        if (options.kinds.empty() || std::ranges::count(options.kinds, kind.name) != 0) {
            passed = TryKind(kind, options) && passed;
        }
    }
    return passed ? 0 : 1;
}

}  // namespace
}  // namespace HostileBytes

/// Hands damaged inputs to the service (docs/notebook.md).
int wmain(int argc, wchar_t** argv) {
    const int status = LongRun::RunProgram(argc, argv, &HostileBytes::Run);
    // Past what the watching thread may still look at.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    return status;
}
