#pragma once

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <utility>
#include <vector>

#include "logging/critical_section.h"
#include "logging/log_data.h"
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

    /// Takes a copy of the entry and sees to it that a writer is at work. Any thread. Throws
    /// std::bad_alloc when there is no room for the copy.
    void Append(const CorvaLogListener::LogData& entry);

    /// Gives the writer some time (1.2 s at most) to write what is queued; what is left then is
    /// lost. Nothing is appended afterwards, and a second call does nothing.
    void TearDown();

  private:
    /// Copies of entries, first in, first out, with the memory of their texts. Once written, a batch serves
    /// again: with memory that is new each time, queued calls miss their bounds in `logging_bench`.
    class Batch {
      public:
        Batch() { m_entries.reserve(kMostEntries); }

        [[nodiscard]] bool IsFull() const noexcept { return m_entries.size() == kMostEntries; }
        [[nodiscard]] bool IsWritten() const noexcept { return m_written == m_entries.size(); }
        void PushBack(const CorvaLogListener::LogData& entry) { m_entries.emplace_back(entry, &m_texts); }
        [[nodiscard]] const CorvaLogListener::LogData& First() const { return m_entries[m_written]; }
        void RemoveFirst() noexcept { ++m_written; }
        void Clear() noexcept {
            m_entries.clear();
            m_texts.release();
            m_written = 0;
        }

      private:
        static constexpr std::size_t kMostEntries = 128;
        /// What the texts of so many ordinary entries need; longer ones take the heap's memory.
        static constexpr std::size_t kTextBytes = std::size_t{32} * 1024;

        std::byte m_room[kTextBytes];
        std::pmr::monotonic_buffer_resource m_texts{m_room, sizeof(m_room)};
        std::vector<CorvaLogListener::LogData> m_entries;
        std::size_t m_written = 0;
    };

    void StartWriter();
    static unsigned __stdcall WriterThread(void* queue);
    void Drain();
    [[nodiscard]] bool TakeEntries();
    void WriteTaken(LogFile& file);
    [[nodiscard]] DWORD WaitForWriter(std::unique_lock<CriticalSection>& lock);

    std::list<Batch> m_queued;
    std::list<Batch> m_spare;  ///< empty
    std::shared_ptr<LogFile> m_file;
    bool m_writerIsActive = false;
    Platform::UniqueHandle m_writer;
    CriticalSection m_lock;  ///< guards all of the above but the file

    /// What the writer took out of the queue and has not written yet; its own.
    std::list<Batch> m_taken;
    /// Set until all that the writer took stands in the file: a process that ends in between would
    /// lose its last lines.
    std::atomic<bool> m_writerHasEntries = false;
    std::atomic<bool> m_isTornDown = false;
};

}  // namespace Orva::Shared
