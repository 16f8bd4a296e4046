#include "tests/logging/log_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <stdexcept>

#include "platform/handles.h"

namespace LoggingTests {

using Rig::Real;

namespace {

std::wstring MakeFreshDirectory() {
    std::array<wchar_t, MAX_PATH> folder{};
    std::array<wchar_t, MAX_PATH> path{};
    Real<&::GetTempPathW>(static_cast<DWORD>(folder.size()), folder.data());
    // Makes a file, so that the name is nobody else's; a directory then takes its place.
    Real<&::GetTempFileNameW>(folder.data(), L"log", 0, path.data());
    Real<&::DeleteFileW>(path.data());
    if (Real<&::CreateDirectoryW>(path.data(), nullptr) == FALSE) {
        throw std::runtime_error("no directory for the test");
    }
    return path.data();
}

void DeleteDirectory(const std::wstring& path) {
    WIN32_FIND_DATAW found{};
    {
        const HANDLE search = Real<&::FindFirstFileW>((path + L"\\*").c_str(), &found);
        if (search == INVALID_HANDLE_VALUE) {
            return;
        }
        do {
            const std::wstring name = found.cFileName;
            const std::wstring whole = path + L"\\" + name;
            if (name == L"." || name == L"..") {
                continue;
            }
            Real<&::SetFileAttributesW>(whole.c_str(), FILE_ATTRIBUTE_NORMAL);
            if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                DeleteDirectory(whole);
            } else {
                Real<&::DeleteFileW>(whole.c_str());
            }
        } while (Real<&::FindNextFileW>(search, &found) != FALSE);
        Real<&::FindClose>(search);
    }
    Real<&::RemoveDirectoryW>(path.c_str());
}

HANDLE Open(const std::wstring& path, DWORD access, DWORD disposition) {
    return Real<&::CreateFileW>(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, disposition, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

}  // namespace

AppData::AppData()
    : m_path(MakeFreshDirectory()), m_folder([this](HWND, int folder, HANDLE token, DWORD type, LPWSTR path) {
          m_askedFor = folder;
          m_token = token;
          m_type = type;
          std::wcsncpy(path, m_path.c_str(), MAX_PATH);
          return S_OK;
      }) {}

AppData::~AppData() {
    DeleteDirectory(m_path);
}

std::wstring AppData::Log(int number) const {
    std::array<wchar_t, 40> name{};
    _snwprintf(name.data(), name.size() - 1, L"logging_tests_%04d.log", number);
    return File(name.data());
}

std::vector<std::wstring> AppData::Names() const {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found{};
    const HANDLE search = Real<&::FindFirstFileW>(File(L"*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") {
            names.push_back(name);
        }
    } while (Real<&::FindNextFileW>(search, &found) != FALSE);
    Real<&::FindClose>(search);
    std::sort(names.begin(), names.end());
    return names;
}

void AppData::MakeLogDirectory() const {
    Real<&::CreateDirectoryW>(LogDirectory().c_str(), nullptr);
}

std::string ReadBytes(const std::wstring& path) {
    const HANDLE file = Open(path, GENERIC_READ, OPEN_EXISTING);
    EXPECT_NE(file, INVALID_HANDLE_VALUE) << "cannot read " << testing::PrintToString(path);
    std::string bytes;
    if (file != INVALID_HANDLE_VALUE) {
        bytes.resize(Real<&::GetFileSize>(file, nullptr));
        DWORD read = 0;
        Real<&::ReadFile>(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
        bytes.resize(read);
        Real<&::CloseHandle>(file);
    }
    return bytes;
}

void WriteBytes(const std::wstring& path, std::string_view bytes) {
    const HANDLE file = Open(path, GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << "cannot write " << testing::PrintToString(path);
    DWORD written = 0;
    Real<&::WriteFile>(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    Real<&::CloseHandle>(file);
}

bool Exists(const std::wstring& path) {
    return Real<&::GetFileAttributesW>(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void SetLastWrite(const std::wstring& path, int minutes) {
    SYSTEMTIME start{};
    start.wYear = 2020;
    start.wMonth = 2;
    start.wDay = 3;
    FILETIME time{};
    Real<&::SystemTimeToFileTime>(&start, &time);
    constexpr ULONGLONG kTicksPerMinute = 60ULL * 10'000'000ULL;
    const ULONGLONG ticks = ((static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime) +
                            static_cast<ULONGLONG>(minutes) * kTicksPerMinute;
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    time.dwLowDateTime = static_cast<DWORD>(ticks);
    const HANDLE file = Open(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << "cannot open " << testing::PrintToString(path);
    Real<&::SetFileTime>(file, nullptr, nullptr, &time);
    Real<&::CloseHandle>(file);
}

std::vector<std::string> ReadLines(const std::wstring& path) {
    std::string bytes = ReadBytes(path);
    EXPECT_EQ(bytes.substr(0, kByteOrderMark.size()), kByteOrderMark);
    bytes.erase(0, kByteOrderMark.size());
    std::vector<std::string> lines;
    while (!bytes.empty()) {
        const std::size_t end = bytes.find("\r\n");
        if (end == std::string::npos) {
            ADD_FAILURE() << "a line without an end: " << bytes;
            break;
        }
        lines.push_back(bytes.substr(0, end));
        bytes.erase(0, end + 2);
    }
    return lines;
}

std::vector<std::string> ReadMessages(const std::wstring& path) {
    std::vector<std::string> messages = ReadLines(path);
    for (std::string& message : messages) {
        // time | thread | level | function | message
        for (int bar = 0; bar < 4; ++bar) {
            const std::size_t found = message.find('|');
            if (found == std::string::npos) {
                ADD_FAILURE() << "not a line of a log: " << message;
                break;
            }
            message.erase(0, found + 1);
        }
    }
    return messages;
}

}  // namespace LoggingTests
