#include "tests/logging/log_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cwchar>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/handles.h"

namespace LoggingTests {

using Rig::Real;

namespace {

/// The path of a directory that nobody else has.
std::wstring MakeFreshDirectory() {
    static int count = 0;
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() /
        (L"log" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++count));
    std::filesystem::remove_all(path);
    std::filesystem::create_directory(path);
    return path.wstring();
}

/// Whoever else has it open. INVALID_HANDLE_VALUE fails the test.
HANDLE Open(const std::wstring& path, DWORD access, DWORD disposition) {
    const HANDLE file =
        Real<&::CreateFileW>(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, disposition, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE) << "cannot open " << testing::PrintToString(path);
    return file;
}

}  // namespace

AppData::AppData(std::wstring executable)
    : m_executable(std::move(executable)),
      m_path(MakeFreshDirectory()),
      m_folder([this](HWND, int folder, HANDLE token, DWORD type, LPWSTR path) {
          EXPECT_EQ(folder, 0x801A);
          EXPECT_EQ(token, nullptr);
          EXPECT_EQ(type, 0U);
          std::wcsncpy(path, m_path.c_str(), MAX_PATH);
          return S_OK;
      }) {}

AppData::~AppData() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::wstring AppData::Log(int number) const {
    std::array<wchar_t, 40> name{};
    _snwprintf(name.data(), name.size() - 1, L"%ls_%04d.log", m_executable.c_str(), number);
    return File(name.data());
}

std::vector<std::wstring> AppData::Names() const {
    std::vector<std::wstring> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(LogDirectory(), ignored)) {
        names.push_back(entry.path().filename().wstring());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void AppData::MakeLogDirectory() const {
    Real<&::CreateDirectoryW>(LogDirectory().c_str(), nullptr);
}

std::string ReadBytes(const std::wstring& path) {
    const HANDLE file = Open(path, GENERIC_READ, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) {
        return {};
    }
    std::string bytes(Real<&::GetFileSize>(file, nullptr), '\0');
    DWORD read = 0;
    Real<&::ReadFile>(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    bytes.resize(read);
    Real<&::CloseHandle>(file);
    return bytes;
}

void WriteBytes(const std::wstring& path, std::string_view bytes) {
    const HANDLE file = Open(path, GENERIC_WRITE, CREATE_ALWAYS);
    DWORD written = 0;
    Real<&::WriteFile>(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    Real<&::CloseHandle>(file);
}

bool Exists(const std::wstring& path) {
    return Real<&::GetFileAttributesW>(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void SetLastWrite(const std::wstring& path, int minutes) {
    constexpr std::int64_t kStart = 132'251'616'000'000'000;
    constexpr std::int64_t kTicksPerMinute = 600'000'000;
    const auto time = std::bit_cast<FILETIME>(kStart + minutes * kTicksPerMinute);
    const HANDLE file = Open(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
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
