#include "logging/file_listener.h"

#include <optional>

namespace Orva::Shared {
CorvaLogListenerFile::CorvaLogListenerFile(bool queuedWrites)
    : m_queuedWrites(queuedWrites), m_file(std::make_shared<LogFile>()) {
    const std::optional<ModuleNames> names = GetModuleNames();
    if (!names) {
        return;
    }
    PolicyKeys keys;
    OpenPolicyKeys(keys);
    Initialize(names->baseName + L".log", keys);
}

void CorvaLogListenerFile::Initialize(const std::wstring& fileName, const PolicyKeys& keys) {
    if (!m_file->Locate(fileName, keys)) {
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
    if (*m_file->Path() == L'\0') {
        return;
    }
    if (m_queue != nullptr && m_queuedWrites) {
        m_queue->Append(entry);
        return;
    }
    const OpenedLogFile file(*m_file);
    if (file) {
        file->WriteEntry(entry);
    }
}

int CorvaLogListenerFile::GetType() const {
    return m_queuedWrites ? ListenerType::kQueuedFile : ListenerType::kFile;
}

}  // namespace Orva::Shared
