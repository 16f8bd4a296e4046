#include "logging/write_queue.h"

#include <process.h>

#include <cstdint>
#include <exception>

namespace Orva::Shared {
namespace {

constexpr int kMostTearDownRounds = 2;
constexpr DWORD kTearDownPauseMilliseconds = 100;
constexpr DWORD kTearDownWaitMilliseconds = 500;

}  // namespace

void WriteQueue::Append(const CorvaLogListener::LogData& entry) {
    const CriticalSectionLock lock(m_lock);
    m_entries.push_back(entry);
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
    if (!file) {
        // What is queued waits for the next append, which starts another writer.
        const CriticalSectionLock lock(m_lock);
        m_writerIsActive = false;
        return;
    }
    Entries taken;
    while (TakeFirst(taken)) {
        try {
            file->WriteEntry(taken.front());
        } catch (const std::exception&) {
            // Short of memory for one line; the next ones may fit.
        }
        taken.clear();
    }
}

/// Moves the first entry over to `taken`. False, with the writer marked as ended, when there is
/// none: whoever appends next starts another one.
bool WriteQueue::TakeFirst(Entries& taken) {
    const CriticalSectionLock lock(m_lock);
    if (m_entries.empty()) {
        m_writerIsActive = false;
        return false;
    }
    taken.splice(taken.begin(), m_entries, m_entries.begin());
    return true;
}

void WriteQueue::TearDown() {
    CriticalSectionLock lock(m_lock);
    if (m_writerIsActive) {
        for (int round = 0; round < kMostTearDownRounds && !m_entries.empty() && m_writer; ++round) {
            Sleep(kTearDownPauseMilliseconds);
            const HANDLE writer = m_writer.Get();
            DWORD result = WAIT_FAILED;
            lock.Outside([&] { result = WaitForSingleObject(writer, kTearDownWaitMilliseconds); });
            if (result != WAIT_TIMEOUT || !m_writerIsActive) {
                break;
            }
        }
    }
    m_entries.clear();
    m_writer.Reset();
}

}  // namespace Orva::Shared
