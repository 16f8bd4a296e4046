#pragma once

#include <windows.h>
#include <shlobj.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/scoped_import.h"

namespace LoggingTests {

/// The application-data folder of the code under test, for a scope: a fresh, empty one. It is
/// deleted at the end with all that is in it.
class AppData {
  public:
    /// With the log of that executable.
    explicit AppData(std::wstring executable = L"logging_tests");
    AppData(const AppData&) = delete;
    AppData& operator=(const AppData&) = delete;
    ~AppData();

    [[nodiscard]] const std::wstring& Path() const { return m_path; }
    [[nodiscard]] std::wstring LogDirectory() const { return m_path + L"\\orvkLog"; }
    /// A file of the log's directory.
    [[nodiscard]] std::wstring File(const std::wstring& name) const { return LogDirectory() + L"\\" + name; }
    [[nodiscard]] std::wstring Log() const { return File(m_executable + L".log"); }
    /// A numbered one.
    [[nodiscard]] std::wstring Log(int number) const;

    /// Names in the log's directory, sorted.
    [[nodiscard]] std::vector<std::wstring> Names() const;
    /// Makes the log's directory before the code under test does.
    void MakeLogDirectory() const;

  private:
    std::wstring m_executable;
    std::wstring m_path;
    Rig::ScopedImport<&::SHGetFolderPathW> m_folder;
};

/// Bytes of a file. A missing file fails the test and has none. Locked parts of it do not matter.
[[nodiscard]] std::string ReadBytes(const std::wstring& path);
void WriteBytes(const std::wstring& path, std::string_view bytes);
[[nodiscard]] bool Exists(const std::wstring& path);

/// Sets when a file was last written, in minutes after some day in 2020.
void SetLastWrite(const std::wstring& path, int minutes);

/// The lines of a log file: after its byte-order mark, without their CR LF. A file without a mark,
/// or with a last line that has no end, fails the test.
[[nodiscard]] std::vector<std::string> ReadLines(const std::wstring& path);
/// The same, only what follows the function name's bar.
[[nodiscard]] std::vector<std::string> ReadMessages(const std::wstring& path);

/// The first line of a log: what every log file begins with.
constexpr std::string_view kLogLine = "2019/04/05 13:07:09.042|00001A2C|Information|A::B|old\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace LoggingTests
