#include "logging/write_queue.h"

#include <process.h>

#include <algorithm>
#include <new>
#include <utility>

namespace Orva::Shared {
namespace {

constexpr int kMostTearDownRounds = 2;
constexpr DWORD kTearDownPauseMilliseconds = 100;
constexpr DWORD kTearDownWaitMilliseconds = 500;
/// What a burst of some eight thousand entries needs: 3.3 MB.
constexpr std::size_t kMostSpareBatches = 64;

}  // namespace

void WriteQueue::Append(const CorvaLogListener::LogData& entry) {
    const std::lock_guard lock(m_lock);
    if (m_isTornDown) {
        return;
    }
    if (m_queued.empty() || m_queued.back().IsFull()) {
        if (m_spare.empty()) {
            m_queued.emplace_back();
        } else {
            m_queued.splice(m_queued.end(), m_spare, m_spare.begin());
        }
    }
    m_queued.back().PushBack(entry);
    if (!m_writerIsActive) {
        m_writer.Reset();
        StartWriter();
    }
}

void WriteQueue::StartWriter() {
    auto self = std::make_unique<std::shared_ptr<WriteQueue>>(shared_from_this());
    m_writer.Reset(reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, &WriteQueue::WriterThread, self.get(), 0, nullptr)));
    m_writerIsActive = static_cast<bool>(m_writer);
    if (m_writerIsActive) {
        // The thread owns it now.
        static_cast<void>(self.release());
    }
}

unsigned __stdcall WriteQueue::WriterThread(void* queue) {
    const std::unique_ptr<std::shared_ptr<WriteQueue>> self(static_cast<std::shared_ptr<WriteQueue>*>(queue));
    (*self)->Drain();
    return 0;
}

void WriteQueue::Drain() {
    const OpenedLogFile file(*m_file);
    try {
        if (file) {
            while (TakeEntries()) {
                WriteTaken(*file);
            }
            return;
        }
    } catch (const std::bad_alloc&) {
        file->Flush();
    }
    // Without the file, or short of memory, what is queued waits for the next append, which starts another
    // writer.
    const std::lock_guard lock(m_lock);
    m_writerIsActive = false;
}

void WriteQueue::WriteTaken(LogFile& file) {
    for (Batch& batch : m_taken) {
        for (; !batch.IsWritten() && !m_isTornDown; batch.RemoveFirst()) {
            // The line of a copy needs no memory of the queue's, and an ordinary one none of the heap's.
            EntryMemory memory;
            file.WriteEntry({batch.First(), &memory.resource});
        }
        batch.Clear();
    }
    file.Flush();
    m_writerHasEntries = false;
}

/// Takes what is queued, all at once, so that writer and callers seldom meet at the lock; first comes what
/// a writer short of memory left. False, with the writer marked as ended, when there is nothing: whoever
/// appends next starts another one.
bool WriteQueue::TakeEntries() {
    const std::lock_guard lock(m_lock);
    if (!m_writerHasEntries) {
        m_spare.splice(m_spare.end(), m_taken);
        m_spare.resize(std::min(m_spare.size(), kMostSpareBatches));
        m_taken.swap(m_queued);
    }
    if (m_taken.empty() || m_isTornDown) {
        m_writerIsActive = false;
        return false;
    }
    m_writerHasEntries = true;
    return true;
}

void WriteQueue::TearDown() {
    std::unique_lock lock(m_lock);
    if (m_isTornDown) {
        return;
    }
    const auto entriesRemain = [this] { return !m_queued.empty() || m_writerHasEntries; };
    if (m_writerIsActive) {
        for (int round = 0; round < kMostTearDownRounds && entriesRemain() && m_writer; ++round) {
            Sleep(kTearDownPauseMilliseconds);
            if (WaitForWriter(lock) != WAIT_TIMEOUT || !m_writerIsActive) {
                break;
            }
        }
    }
    m_isTornDown = true;
    m_queued.clear();
    m_writer.Reset();
}

/// Waits outside of the lock. The handle is taken out meanwhile: an append that finds this writer ended
/// closes the handle that it finds, and starts another one.
DWORD WriteQueue::WaitForWriter(std::unique_lock<CriticalSection>& lock) {
    Platform::UniqueHandle writer = std::move(m_writer);
    lock.unlock();
    const DWORD result = WaitForSingleObject(writer.Get(), kTearDownWaitMilliseconds);
    lock.lock();
    if (!m_writer) {
        m_writer = std::move(writer);
    }
    return result;
}

}  // namespace Orva::Shared
