#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace RandomEvents {

/// The threads on which Windows calls the service, and the two of the pool. Network events come on either of
/// two. `kClock` is none: where it stands for a turn, time went on.
enum class Who : std::uint8_t {
    kControl,
    kWlan,
    kModem,
    kNetwork,
    kNetwork2,
    kWorker,
    kWatcher,
    kCount,
    kClock
};

constexpr std::size_t kThreads = static_cast<std::size_t>(Who::kCount);

const char* NameOf(Who who);

/// Those who do the work on a stage.
class Threads {
  public:
    using Job = std::function<void()>;
    using Milliseconds = std::chrono::milliseconds;

    Threads() = default;
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;
    /// Only when all have come to rest.
    virtual ~Threads() = default;

    /// A job for a thread, which does its jobs in order; those of the network go to either. A worker's or
    /// a watcher's thread ends with its job.
    virtual void Post(Who who, Job job) = 0;
    /// Something that happens when the time comes, on whatever thread; it must not wait.
    virtual void After(Milliseconds time, Job what) = 0;

    /// Until nobody has anything to do and nothing is due. False when somebody waits for ever, or never comes
    /// to rest: then `Stuck` tells who, and nothing more can be done with this process. What can be drawn is
    /// drawn by the seed.
    virtual bool Settle(std::uint64_t seed, bool isFine) = 0;
    [[nodiscard]] const std::string& Stuck() const { return m_stuck; }

    /// Whether a thread is neither idle nor gone, at rest. (The watcher is at work until it has seen the
    /// stop.)
    [[nodiscard]] virtual bool IsAtWork(Who who) const = 0;

    /// A place where the calling thread may lose its turn.
    virtual void Point() = 0;
    /// Something that somebody may wait for was signalled past the import table.
    virtual void Signalled() {}

  protected:
    std::string m_stuck;
};

}  // namespace RandomEvents
