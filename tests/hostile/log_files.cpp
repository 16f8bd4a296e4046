#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>

#include "logging/file_listener.h"
#include "logging/log_data.h"
#include "tests/hostile/kind.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/support/scoped_import.h"

namespace HostileBytes {
namespace {

using LoggingTests::AppData;
using Rig::ScopedImport;

constexpr wchar_t kExecutable[] = L"hostile_bytes";
/// Which only a text file knows: the end of what it reads.
constexpr char kControlZ = 0x1A;

std::string DrawContent(Random& random) {
    std::string sound = random.OneIn(4) ? "" : "\xEF\xBB\xBF";
    for (std::uint32_t lines = random.Below(random.OneIn(4) ? 40 : 4); lines != 0; --lines) {
        sound +=
            "2019/04/05 13:07:09.042|00001A2C|Information|A::B|\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80\r\n";
    }
    if (random.OneIn(8)) {
        // The same in another encoding, with its mark.
        std::string wide = "\xFF\xFE";
        for (const char letter : sound) {
            wide += {letter, '\0'};
        }
        sound = wide;
    }
    Bytes bytes(reinterpret_cast<const std::byte*>(sound.data()),
                reinterpret_cast<const std::byte*>(sound.data() + sound.size()));
    bytes = Damaged(random, std::move(bytes));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool EndsWithLine(std::string file, const std::string& line) {
    std::string wide;
    for (const char letter : line) {
        wide += {letter, '\0'};
    }
    return file.ends_with(line) || (file.starts_with("\xFF\xFE") && file.ends_with(wide));
}

/// Log files that are found on disk, by a log that is small enough to be rotated now and then.
class LogFiles final : public Kind {
  public:
    void Try(Random& random) override {
        Clear();
        m_kilobytes = random.OneIn(2) ? 1 : random.Number();
        std::map<std::wstring, std::string> found;
        for (std::uint32_t number = random.OneIn(8) ? random.Below(12) : 0; number != 0; --number) {
            found[m_appData.Log(static_cast<int>(number))] = "numbered " + std::to_string(number);
        }
        const std::string content = DrawContent(random);
        const bool exists = !random.OneIn(16);
        for (const auto& [path, text] : found) {
            LoggingTests::WriteBytes(path, text);
        }
        if (exists) {
            LoggingTests::WriteBytes(m_appData.Log(), content);
        }
        WriteLine(random);
        const std::string now = LoggingTests::ReadBytes(m_appData.Log());
        Require(EndsWithLine(now, "|A::B|the line\r\n"), "the line is not the last of the log");
        Require(!exists || IsKept(content, now), "what stood in the log is lost");
    }

  private:
    void Clear() const {
        for (const std::wstring& name : m_appData.Names()) {
            Rig::Real<&::DeleteFileW>(m_appData.File(name).c_str());
        }
    }

    static void WriteLine(Random& random) {
        Orva::Shared::CorvaLogListenerFile listener(false);
        for (std::uint32_t lines = random.Below(3); lines != 0; --lines) {
            listener.Log(LoggingTests::Entry(Damaged(random, L"a text \x20AC \xD83D\xDE00")));
        }
        listener.Log(LoggingTests::Entry(L"the line", Orva::Shared::Level::kInformation, "A::B"));
    }

    /// It stands at the log's beginning, or by itself in the newest numbered file (with lines behind it,
    /// where it was moved between two of them).
    [[nodiscard]] bool IsKept(std::string content, const std::string& now) const {
        if (content.ends_with(kControlZ)) {
            content.pop_back();
        }
        return now.starts_with(content) || (LoggingTests::Exists(m_appData.Log(1)) &&
                                            LoggingTests::ReadBytes(m_appData.Log(1)).starts_with(content));
    }

    LSTATUS Query(const std::wstring& name, BYTE* buffer) const {
        if (name != L"MaxLogSize") {
            return ERROR_FILE_NOT_FOUND;
        }
        std::copy_n(reinterpret_cast<const BYTE*>(&m_kilobytes), sizeof(m_kilobytes), buffer);
        return ERROR_SUCCESS;
    }

    DWORD m_kilobytes = 0;
    AppData m_appData{kExecutable};
    bool m_hasDirectory = (m_appData.MakeLogDirectory(), true);
    // A product with one policy.
    ScopedImport<&::GetFileVersionInfoSizeW> m_size{[](LPCWSTR, LPDWORD) -> DWORD { return 8; }};
    ScopedImport<&::GetFileVersionInfoW> m_read{[](LPCWSTR, DWORD, DWORD, void* block) {
        static_cast<wchar_t*>(block)[0] = L'P';
        return TRUE;
    }};
    ScopedImport<&::VerQueryValueW> m_find{[](LPCVOID block, LPCWSTR, void** found, UINT* length) {
        *found = const_cast<void*>(block);
        *length = 1;
        return TRUE;
    }};
    ScopedImport<&::RegOpenKeyExW> m_open{[](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) -> LSTATUS {
        *key = reinterpret_cast<HKEY>(std::uintptr_t{0x1000});
        return ERROR_SUCCESS;
    }};
    ScopedImport<&::RegQueryValueExW> m_query{
        [this](HKEY, LPCWSTR name, LPDWORD, LPDWORD, LPBYTE buffer, LPDWORD) { return Query(name, buffer); }};
    ScopedImport<&::RegCloseKey> m_close{[](HKEY) -> LSTATUS { return ERROR_SUCCESS; }};
};

}  // namespace

std::unique_ptr<Kind> MakeLogFiles() {
    // In memory, where there is such a folder.
    if (LoggingTests::Exists(L"Z:\\dev\\shm")) {
        SetEnvironmentVariableW(L"TMP", L"Z:\\dev\\shm");
    }
    return std::make_unique<LogFiles>();
}

}  // namespace HostileBytes
