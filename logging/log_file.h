#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "logging/log_data.h"
#include "logging/policy.h"
#include "platform/handles.h"

namespace Orva::Shared {

/// The log file of this executable: `orvkLog\<base name>.log` in the application-data folder,
/// UTF-8 with a byte-order mark, one entry a line, kept small by rotation into numbered files.
/// Several threads and processes write to it in turn: whoever holds the file's named mutex has it
/// open. Any thread may call `LockAndOpen`; what writes, reads or moves the file is then for the
/// thread that got it (see `OpenedLogFile`).
class LogFile {
  public:
    enum class Rotation : bool {
        kWhenLarge,  ///< only when the file is larger than its limit
        kForced,
    };

    /// Reads the size limit and finds out where the file is and what its mutex is called; makes
    /// the log's directory.
    LogFile(const std::wstring& fileName, const PolicyKeys& keys);

    /// Empty when there is no place for the file: nothing is written then.
    [[nodiscard]] const std::wstring& Path() const noexcept { return m_path; }

    /// Waits for the mutex without limit and opens the file. False when either cannot be had. A mutex
    /// that was had is then released once, and so is free again unless the wait was an abandoned one.
    [[nodiscard]] bool LockAndOpen();

    /// Flushes and closes the file and releases the mutex. Does nothing, and keeps the mutex, when
    /// the file is not open.
    void CloseAndUnlock();

    /// Whether the open file is empty or begins with what looks like a line of a log.
    [[nodiscard]] bool CheckLogHeader();

    /// Moves the file aside as number 1 and every numbered file one number up. Never says that it
    /// did: the result is always false.
    bool RotateLogFile(Rotation rotation);

    /// Appends one line, after a look at the file's size every so often. Writes nothing when the
    /// file is not open.
    void WriteEntry(const CorvaLogListener::LogData& entry);

    /// Hands what was written to the system. Does nothing when the file is not open.
    void Flush();

  private:
    struct StreamCloser {
        void operator()(std::FILE* stream) const noexcept { static_cast<void>(std::fclose(stream)); }
    };
    using UniqueStream = std::unique_ptr<std::FILE, StreamCloser>;

    [[nodiscard]] bool Acquire() const;
    [[nodiscard]] bool Open();
    [[nodiscard]] std::int32_t WritesPerCheck() const noexcept;

    std::uint32_t m_maxLogSize;   ///< in kilobytes
    std::int32_t m_writeCounter;  ///< writes since a size check, more or less
    std::wstring m_path;
    UniqueStream m_stream;  ///< open only while the mutex is held
    Platform::UniqueHandle m_mutex;
};

/// The log file, locked and open for a scope.
class OpenedLogFile {
  public:
    explicit OpenedLogFile(LogFile& file) : m_file(file), m_isOpen(file.LockAndOpen()) {}
    OpenedLogFile(const OpenedLogFile&) = delete;
    OpenedLogFile& operator=(const OpenedLogFile&) = delete;
    ~OpenedLogFile() {
        if (m_isOpen) {
            m_file.CloseAndUnlock();
        }
    }

    explicit operator bool() const noexcept { return m_isOpen; }
    LogFile& operator*() const noexcept { return m_file; }
    LogFile* operator->() const noexcept { return &m_file; }

  private:
    LogFile& m_file;
    bool m_isOpen;
};

}  // namespace Orva::Shared
