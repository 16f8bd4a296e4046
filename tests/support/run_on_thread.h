#pragma once

#include <chrono>
#include <functional>

namespace Rig {

/// How a thread stands to COM.
enum class Apartment {
    kNone,            ///< not entered
    kMultithreaded,   ///< entered once, multithreaded
    kSingleThreaded,  ///< entered once, single-threaded
    /// Entered once more than is left at the end, multithreaded: for code that leaves COM once
    /// more than it entered.
    kMultithreadedTwice,
};

/// How long `RunOnThread` waits, in real time.
constexpr std::chrono::seconds kRunOnThreadTimeout{20};

/// Runs `what` on a thread of its own and waits for its end. What it throws is thrown here.
///
///     RunOnThread([&] { service.OnStop(); }, Apartment::kMultithreadedTwice);
///
/// When the thread does not come to its end in time, the test fails and an exception leaves the
/// test; the thread is left behind.
void RunOnThread(std::function<void()> what, Apartment apartment = Apartment::kMultithreaded,
                 std::chrono::milliseconds timeout = kRunOnThreadTimeout);

}  // namespace Rig
