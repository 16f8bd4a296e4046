#include "logging/file_listener.h"

#include <optional>

#include "logging/policy.h"

namespace Orva::Shared {

CorvaLogListenerFile::CorvaLogListenerFile(bool queuedWrites) : m_queuedWrites(queuedWrites) {
    const std::optional<ModuleNames> names = GetModuleNames();
    if (!names) {
        return;
    }
    PolicyKeys keys;
    OpenPolicyKeys(keys);
    m_file = std::make_shared<LogFile>(names->baseName + L".log", keys);
    if (m_file->Path().empty()) {
        return;
    }
    const OpenedLogFile file(*m_file);
    if (!file) {
        // Without a queue every entry tries anew, on its own thread.
        return;
    }
    if (!file->CheckLogHeader()) {
        file->RotateLogFile(LogFile::Rotation::kForced);
    }
    m_queuedWrites = ReadQueuedWrites(keys, m_queuedWrites);
    if (m_queuedWrites) {
        m_queue = std::make_shared<WriteQueue>(m_file);
    }
}

CorvaLogListenerFile::~CorvaLogListenerFile() {
    DrainQueue();
    // The mutex is closed with the file: now, unless a writer that came too late still needs both.
}

void CorvaLogListenerFile::DrainQueue() {
    if (m_queue != nullptr) {
        m_queue->TearDown();
    }
}

void CorvaLogListenerFile::Log(const LogData& entry) {
    if (m_queue != nullptr) {
        m_queue->Append(entry);
    } else if (m_file != nullptr && !m_file->Path().empty()) {
        const OpenedLogFile file(*m_file);
        if (file) {
            file->WriteEntry(entry);
        }
    }
}

int CorvaLogListenerFile::GetType() const {
    return m_queuedWrites ? ListenerType::kQueuedFile : ListenerType::kFile;
}

}  // namespace Orva::Shared
