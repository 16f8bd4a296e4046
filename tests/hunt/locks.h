#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "logging/log_data.h"

/// The service's locks while it runs on real threads: who holds which, in which order they are taken, and
/// that they are held where they must be. At each of them, and wherever else `Pause` is called, threads lose
/// their turn at random.
namespace RandomEvents::Locks {

/// Replaces what the locks are made of, for a scope; one at a time. Where the linker does not put
/// `pthread_mutex_lock` through here (see CMakeLists.txt), the mutexes of the standard library are not
/// seen.
class Watch {
  public:
    explicit Watch(std::uint64_t seed);
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch();

    /// At each line of the log, before and after the log's file gets it. `isQueued`: not at once.
    void Begin(const Orva::Shared::CorvaLogListener::LogData& line);
    void End(const Orva::Shared::CorvaLogListener::LogData& line, bool isQueued);
    /// At each request of the service to a modem.
    void AtModem();
    /// Has the log end, whose lines were queued or not.
    static void EndLog(bool wasQueued);

    /// What went against the rules so far, a line each; empty: nothing.
    [[nodiscard]] static std::string Problems();
    /// Which lock was taken while which was held, and how often.
    [[nodiscard]] static std::string Order();

  private:
    void ReplaceLocks();

    std::vector<std::shared_ptr<void>> m_imports;
};

/// Whether the calling thread is about to take one of them: what it calls now is the language's doing.
[[nodiscard]] bool IsTakingLock();
/// The calling thread loses its turn now and then, or sleeps for a moment.
void Pause();

/// What the calling thread does, to be asked for by others: stands as long as the process.
class Thread;
[[nodiscard]] const Thread& ThisThread();
/// The operations that it is in, what it holds, and what it waits for. Only of a thread that hangs.
[[nodiscard]] std::string Tell(const Thread& thread);

}  // namespace RandomEvents::Locks
