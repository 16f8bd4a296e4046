#pragma once

#include <memory>

#include "logging/listener.h"
#include "logging/log_file.h"
#include "logging/write_queue.h"

namespace Orva::Shared {

/// Writes entries to the executable's log file, on the calling thread or through a queue. Where
/// the file cannot be had nothing is written and nothing is reported.
class CorvaLogListenerFile final : public CorvaLogListener {
  public:
    /// Whether writes are queued is settled by policy, or else by the argument. A file that does
    /// not begin like a log is moved aside.
    explicit CorvaLogListenerFile(bool queuedWrites);
    CorvaLogListenerFile(const CorvaLogListenerFile&) = delete;
    CorvaLogListenerFile& operator=(const CorvaLogListenerFile&) = delete;
    /// No thread may be inside `Log`.
    ~CorvaLogListenerFile() override;

    /// Queues or writes the entry. Writing waits for the file's mutex without limit.
    void Log(const LogData& entry) override;

    [[nodiscard]] int GetType() const override;

    /// Gives queued entries, and those that others queue while their writer works, up to 1.2 s to be
    /// written. What is queued when that writer has ended is lost. The destructor does the same.
    void DrainQueue();

  private:
    bool m_queuedWrites;
    /// Both are shared with the queue's writer, which may come to its end after this listener.
    std::shared_ptr<LogFile> m_file;      ///< null when the executable has no name
    std::shared_ptr<WriteQueue> m_queue;  ///< null when writes are not queued
};

}  // namespace Orva::Shared
