#include "logging/log_file.h"

#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "logging/log_rotation.h"

namespace Orva::Shared {
namespace {

constexpr wchar_t kLogDirectory[] = L"\\orvkLog";
constexpr wchar_t kMutexPrefix[] = L"Global\\";
constexpr wchar_t kOpenMode[] = L"a+,ccs=UTF-8";

/// About so many lines make a kilobyte, so the size is looked at when it may have grown too far.
constexpr std::uint32_t kWritesPerKilobyte = 10;
constexpr std::uint64_t kBytesPerKilobyte = 1024;
/// A counter in range after each check, so that checks come regularly.
constexpr std::int32_t kCounterDivisor = 2;

/// How a line begins: its time, with any characters for the digits, and what divides it from the thread.
constexpr std::wstring_view kHeader = L"0000/00/00 00:00:00.000|";

/// The mutex's name says which file it guards, for every process of the machine: the path without
/// its drive, with dots for the backslashes that a name may not have.
std::wstring MutexName(std::wstring path) {
    const std::size_t colon = path.find(L':');
    if (colon != std::wstring::npos && colon > 0) {
        path.erase(0, colon + 1);
    }
    std::replace(path.begin(), path.end(), L'\\', L'.');
    return kMutexPrefix + path;
}

/// Makes the log's directory and says where in it the file is; nothing when there is no place.
std::wstring MakePath(const std::wstring& fileName) {
    std::array<wchar_t, MAX_PATH> folder{};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT,
                                folder.data()))) {
        return {};
    }
    const std::wstring directory = CutPath(folder.data() + std::wstring(kLogDirectory));
    if (CreateDirectoryW(directory.c_str(), nullptr) == FALSE && GetLastError() != ERROR_ALREADY_EXISTS) {
        return {};
    }
    return CutPath(directory + L"\\" + fileName);
}

/// A number that has run over wraps.
std::int32_t OneMore(std::int32_t counter) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(counter) + 1);
}

}  // namespace

LogFile::LogFile(const std::wstring& fileName, const PolicyKeys& keys)
    : m_maxLogSize(ReadMaxLogSize(keys)),
      // One above the limit: the first write looks at the size.
      m_writeCounter(OneMore(WritesPerCheck())),
      m_path(MakePath(fileName)),
      m_mutex(CreateMutexW(nullptr, FALSE, MutexName(m_path.empty() ? fileName : m_path).c_str())) {}

bool LogFile::LockAndOpen() {
    if (!m_mutex || !Acquire()) {
        return false;
    }
    if (!Open()) {
        ReleaseMutex(m_mutex.Get());
        return false;
    }
    return true;
}

bool LogFile::Acquire() const {
    DWORD result = WaitForSingleObject(m_mutex.Get(), INFINITE);
    if (result == WAIT_ABANDONED) {
        // The former holder died. The abandoned wait has already given the mutex; this one takes it a
        // second time, while a write releases it once. So the thread keeps the mutex until it ends, and
        // all others wait so long. The writer of a queue ends with the queue: the next one finds the mutex
        // abandoned again.
        result = WaitForSingleObject(m_mutex.Get(), INFINITE);
    }
    return result == WAIT_OBJECT_0;
}

bool LogFile::Open() {
    m_stream.reset();
    m_stream.reset(_wfopen(m_path.c_str(), kOpenMode));
    return m_stream != nullptr;
}

void LogFile::CloseAndUnlock() {
    if (m_stream == nullptr || !m_mutex) {
        return;
    }
    Flush();
    m_stream.reset();
    ReleaseMutex(m_mutex.Get());
}

void LogFile::Flush() {
    if (m_stream != nullptr) {
        static_cast<void>(std::fflush(m_stream.get()));
    }
}

bool LogFile::CheckLogHeader() {
    std::array<wchar_t, kHeader.size()> header{};
    if (std::fread(header.data(), sizeof(wchar_t), header.size(), m_stream.get()) == 0) {
        return std::feof(m_stream.get()) != 0;
    }
    return std::equal(kHeader.begin(), kHeader.end(), header.begin(),
                      [](wchar_t expected, wchar_t found) { return expected == L'0' || expected == found; });
}

bool LogFile::RotateLogFile(Rotation rotation) {
    WIN32_FILE_ATTRIBUTE_DATA attributes{};
    if (GetFileAttributesExW(m_path.c_str(), GetFileExInfoStandard, &attributes) == FALSE) {
        return false;
    }
    const bool isLarge =
        attributes.nFileSizeHigh != 0 || attributes.nFileSizeLow > m_maxLogSize * kBytesPerKilobyte;
    if (rotation != Rotation::kForced && (m_maxLogSize < 1 || !isLarge)) {
        return false;
    }
    const std::wstring newest = ShiftNumberedFiles(m_path);
    const bool wasOpen = m_stream != nullptr;
    m_stream.reset();
    MoveFileW(m_path.c_str(), newest.c_str());
    if (wasOpen) {
        static_cast<void>(Open());
    }
    return false;
}

std::int32_t LogFile::WritesPerCheck() const noexcept {
    // A signed number, as the counter is: of an enormous limit the sign may be anything.
    return static_cast<std::int32_t>(m_maxLogSize * kWritesPerKilobyte);
}

void LogFile::WriteEntry(const CorvaLogListener::LogData& entry) {
    if (m_stream == nullptr) {
        return;
    }
    const std::int32_t before = m_writeCounter;
    m_writeCounter = OneMore(before);
    if (before > WritesPerCheck() && !RotateLogFile(Rotation::kWhenLarge)) {
        // Halved, never set to zero, even when the file was rotated: checks come after every
        // half of those writes.
        m_writeCounter /= kCounterDivisor;
    }
    if (m_stream == nullptr) {
        return;
    }
    const std::wstring_view line = entry.GetLogLine();
    static_cast<void>(std::fwrite(line.data(), sizeof(wchar_t), line.size(), m_stream.get()));
    static_cast<void>(std::fputwc(L'\n', m_stream.get()));
}

}  // namespace Orva::Shared
