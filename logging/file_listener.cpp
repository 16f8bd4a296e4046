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
    if (m_queue != nullptr) {
        m_queue->TearDown();
    }
    // The mutex is closed with the file: now, unless a thread that came too late still needs both.
}

void CorvaLogListenerFile::Log(const LogData& entry) {
    if (*m_file->Path() == L'\0') {
        return;
    }
    // Queue and file are held, because the listener may be deleted while this thread waits for its turn.
    const std::shared_ptr<WriteQueue> queue = m_queue;
    if (queue != nullptr && m_queuedWrites) {
        queue->Append(entry);
        return;
    }
    const std::shared_ptr<LogFile> held = m_file;
    const OpenedLogFile file(*held);
    if (file) {
        file->WriteEntry(entry);
    }
}

int CorvaLogListenerFile::GetType() const {
    return m_queuedWrites ? ListenerType::kQueuedFile : ListenerType::kFile;
}

}  // namespace Orva::Shared
