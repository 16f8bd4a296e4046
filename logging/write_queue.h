#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "logging/critical_section.h"
#include "logging/entry_queue.h"
#include "logging/log_file.h"
#include "platform/handles.h"

namespace Orva::Shared {

/// Entries on their way to the log file. Whoever logs only appends; a writer thread, started when
/// there is none, takes the file, writes until the queue is empty, and ends. Made with
/// `std::make_shared`, because a writer that comes too late for `TearDown` still needs its queue,
/// and the queue its file.
class WriteQueue : public std::enable_shared_from_this<WriteQueue> {
  public:
    explicit WriteQueue(std::shared_ptr<LogFile> file) : m_file(std::move(file)) {}
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;
    ~WriteQueue() = default;

    /// Takes a copy of the entry and sees to it that a writer is at work. Any thread. Throws
    /// std::bad_alloc when there is no room for the copy.
    void Append(const CorvaLogListener::LogData& entry);

    /// Gives the writer some time (1.2 s at most) to write what is queued; what is left then is
    /// lost. Nothing is appended afterwards, and a second call does nothing.
    void TearDown();

  private:
    void StartWriter();
    static unsigned __stdcall WriterThread(void* queue);
    void Drain();
    [[nodiscard]] bool WriteAll(LogFile& file);
    [[nodiscard]] bool TakeEntries();
    [[nodiscard]] bool EntriesRemain() const noexcept { return !m_entries.IsEmpty() || m_writerHasEntries; }
    [[nodiscard]] DWORD WaitForWriter();

    EntryQueue m_entries;
    std::shared_ptr<LogFile> m_file;
    bool m_writerIsActive = false;
    Platform::UniqueHandle m_writer;
    CriticalSection m_lock;  ///< guards all of the above but the file

    /// What the writer took out of the queue and has not written yet; its own.
    EntryQueue m_taken;
    /// Set until all that the writer took stands in the file: a process that ends in between would
    /// lose its last lines.
    std::atomic<bool> m_writerHasEntries = false;
    std::atomic<bool> m_isTornDown = false;
};

}  // namespace Orva::Shared
