#include "logging/write_queue.h"

#include <process.h>

#include <new>
#include <utility>

namespace Orva::Shared {
namespace {

constexpr int kMostTearDownRounds = 2;
constexpr DWORD kTearDownPauseMilliseconds = 100;
constexpr DWORD kTearDownWaitMilliseconds = 500;

}  // namespace

void WriteQueue::Append(const CorvaLogListener::LogData& entry) {
    const CriticalSectionLock lock(m_lock);
    if (m_isTornDown) {
        return;
    }
    m_entries.Append(entry);
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
    if (file && WriteAll(*file)) {
        return;
    }
    // What is queued waits for the next append, which starts another writer.
    const CriticalSectionLock lock(m_lock);
    m_writerIsActive = false;
}

/// Writes until the queue is empty. False when memory ran short.
bool WriteQueue::WriteAll(LogFile& file) {
    try {
        CorvaLogListener::LogData entry(nullptr, nullptr, Level::kNever, SYSTEMTIME{}, 0);
        while (TakeEntries()) {
            while (!m_taken.IsEmpty() && !m_isTornDown) {
                m_taken.TakeFirst(entry);
                file.WriteEntry(entry);
            }
            file.Flush();
            m_writerHasEntries = false;
        }
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Takes what is queued, all at once, so that writer and callers seldom meet at the lock; first comes what
/// a writer short of memory left. False, with the writer marked as ended, when there is nothing: whoever
/// appends next starts another one.
bool WriteQueue::TakeEntries() {
    const CriticalSectionLock lock(m_lock);
    if (m_taken.IsEmpty()) {
        std::swap(m_taken, m_entries);
    }
    if (m_taken.IsEmpty() || m_isTornDown) {
        m_writerIsActive = false;
        return false;
    }
    m_writerHasEntries = true;
    return true;
}

void WriteQueue::TearDown() {
    const CriticalSectionLock lock(m_lock);
    if (m_isTornDown) {
        return;
    }
    if (m_writerIsActive) {
        for (int round = 0; round < kMostTearDownRounds && EntriesRemain() && m_writer; ++round) {
            Sleep(kTearDownPauseMilliseconds);
            if (WaitForWriter() != WAIT_TIMEOUT || !m_writerIsActive) {
                break;
            }
        }
    }
    m_isTornDown = true;
    m_entries.Clear();
    m_writer.Reset();
}

/// Waits outside of the lock, which the caller holds. The handle is taken out meanwhile: an append that
/// finds this writer ended closes the handle that it finds, and starts another one.
DWORD WriteQueue::WaitForWriter() {
    Platform::UniqueHandle writer = std::move(m_writer);
    DWORD result = WAIT_FAILED;
    {
        const CriticalSectionGap gap(m_lock);
        result = WaitForSingleObject(writer.Get(), kTearDownWaitMilliseconds);
    }
    if (!m_writer) {
        m_writer = std::move(writer);
    }
    return result;
}

}  // namespace Orva::Shared
