#include "logging/log_file.h"

#include <shlobj.h>

#include <algorithm>
#include <cstddef>

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

/// A line's time and what divides it from the thread: "2019/04/05 13:07:09.042|".
constexpr std::size_t kHeaderCharacters = 24;
struct HeaderMark {
    std::size_t position;
    wchar_t character;
};
constexpr HeaderMark kHeaderMarks[] = {{4, L'/'},  {7, L'/'},  {10, L' '}, {13, L':'},
                                       {16, L':'}, {19, L'.'}, {23, L'|'}};

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

}  // namespace

bool LogFile::Locate(const std::wstring& fileName, const PolicyKeys& keys) {
    m_path.front() = L'\0';
    if (m_maxLogSize == kNotReadYet) {
        m_maxLogSize = ReadMaxLogSize(keys);
    }
    // One above the limit: the first write looks at the size.
    m_writeCounter = static_cast<std::int32_t>(static_cast<std::uint32_t>(WritesPerCheck()) + 1);
    const bool hasPlace = BuildPath(fileName);
    MakeMutex(fileName);
    return hasPlace;
}

bool LogFile::BuildPath(const std::wstring& fileName) {
    LogPath folder{};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT,
                                folder.data()))) {
        return false;
    }
    const LogPath directory = MakeLogPath(L"%s%s", folder.data(), kLogDirectory);
    if (CreateDirectoryW(directory.data(), nullptr) == FALSE && GetLastError() != ERROR_ALREADY_EXISTS) {
        return false;
    }
    m_path = MakeLogPath(L"%s\\%s", directory.data(), fileName.c_str());
    return true;
}

void LogFile::MakeMutex(const std::wstring& fileName) {
    const std::wstring name = MutexName(m_path.front() != L'\0' ? m_path.data() : fileName);
    m_mutex.Reset(CreateMutexW(nullptr, FALSE, name.c_str()));
}

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
    m_stream.reset(_wfopen(m_path.data(), kOpenMode));
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
    std::array<wchar_t, kHeaderCharacters> header{};
    if (std::fread(header.data(), sizeof(wchar_t), header.size(), m_stream.get()) == 0) {
        return std::feof(m_stream.get()) != 0;
    }
    return std::all_of(std::begin(kHeaderMarks), std::end(kHeaderMarks),
                       [&](const HeaderMark& mark) { return header[mark.position] == mark.character; });
}

bool LogFile::RotateLogFile(Rotation rotation) {
    WIN32_FILE_ATTRIBUTE_DATA attributes{};
    if (GetFileAttributesExW(m_path.data(), GetFileExInfoStandard, &attributes) == FALSE) {
        return false;
    }
    if (rotation != Rotation::kForced && !IsTooLarge(attributes)) {
        return false;
    }
    const RotatedFileNames names(m_path.data());
    ShiftNumberedFiles(names);
    const bool wasOpen = m_stream != nullptr;
    m_stream.reset();
    MoveFileW(m_path.data(), names.Numbered(kNewestNumber).data());
    if (wasOpen) {
        static_cast<void>(Open());
    }
    return false;
}

bool LogFile::IsTooLarge(const WIN32_FILE_ATTRIBUTE_DATA& attributes) const noexcept {
    return m_maxLogSize >= 1 &&
           (attributes.nFileSizeHigh != 0 || attributes.nFileSizeLow > m_maxLogSize * kBytesPerKilobyte);
}

std::int32_t LogFile::WritesPerCheck() const noexcept {
    // A signed number, as the counter is: of an enormous limit the sign may be anything.
    return static_cast<std::int32_t>(m_maxLogSize * kWritesPerKilobyte);
}

void LogFile::CheckSize() {
    const std::int32_t before = m_writeCounter;
    // Counted without a sign, which may run over.
    m_writeCounter = static_cast<std::int32_t>(static_cast<std::uint32_t>(before) + 1);
    if (before > WritesPerCheck()) {
        if (!RotateLogFile(Rotation::kWhenLarge)) {
            // Halved, never set to zero, even when the file was rotated: looks come after every
            // half of those writes.
            m_writeCounter /= kCounterDivisor;
        }
    }
}

void LogFile::WriteEntry(const CorvaLogListener::LogData& entry) {
    if (m_stream == nullptr) {
        return;
    }
    CheckSize();
    if (m_stream == nullptr) {
        return;
    }
    const std::wstring& line = entry.GetLogLine();
    static_cast<void>(std::fwrite(line.data(), sizeof(wchar_t), line.size(), m_stream.get()));
    static_cast<void>(std::fputwc(L'\n', m_stream.get()));
}

}  // namespace Orva::Shared
