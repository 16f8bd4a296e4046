#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "service/command_line.h"
#include "tests/hostile/guarded_room.h"
#include "tests/hostile/kind.h"
#include "tests/service/fake_com.h"
#include "tests/support/scoped_import.h"

namespace HostileBytes {
namespace {

using Rig::ScopedImport;

constexpr const wchar_t* kWords[] = {L"-install", L"/install", L"-remove",  L"/Remove",
                                     L"-INSTALL", L"install",  L"--remove", L"-",
                                     L"",         L"/?",       L" -remove"};

int servicesRun = 0;

/// Whether a word is a switch of that name, in any case.
bool IsSwitch(const std::wstring& word, const std::wstring& name) {
    const auto isSame = [](wchar_t letter, wchar_t lower) {
        return letter == lower || (letter >= L'A' && letter <= L'Z' && letter - L'A' + L'a' == lower);
    };
    return !word.empty() && (word.front() == L'-' || word.front() == L'/') &&
           std::equal(word.begin() + 1, word.end(), name.begin(), name.end(), isSame);
}

/// Command lines, each word of which ends where nothing can be read any more.
class CommandLines final : public Kind {
  public:
    void Try(Random& random) override {
        std::vector<std::wstring> words;
        std::vector<wchar_t*> pointers;
        for (std::size_t i = random.Below(std::size(m_rooms) + 1); i != 0; --i) {
            words.emplace_back(Damaged(random, random.Of(kWords)).c_str());
            pointers.push_back(
                static_cast<wchar_t*>(m_rooms[words.size() - 1].Place(BytesOfText(words.back()), 2)));
        }
        pointers.push_back(nullptr);
        m_installs = m_removals = m_prints = servicesRun = 0;
        m_com.calls.clear();
        const int status =
            RunCommandLine(static_cast<int>(words.size()), pointers.data(), [] { ++servicesRun; });

        const std::wstring first = words.size() > 1 ? words[1] : L"";
        const bool isSwitch = !first.empty() && (first.front() == L'-' || first.front() == L'/');
        Require(status == 0, "the exit code is not 0");
        Require(m_installs == (IsSwitch(first, L"install") ? 1 : 0), "installed without being asked, or not");
        Require(m_removals == (IsSwitch(first, L"remove") ? 1 : 0), "removed without being asked, or not");
        Require(servicesRun == (isSwitch ? 0 : 1), "the service runs at a switch, or not without one");
    }

  private:
    GuardedRoom m_rooms[4];
    int m_installs = 0;
    int m_removals = 0;
    int m_prints = 0;
    ServiceTests::FakeCom m_com;
    ScopedImport<&::fputws> m_print{[this](const wchar_t*, FILE*) { return ++m_prints; }};
    /// The first step of either, which both take differently; none goes further.
    ScopedImport<&::OpenSCManagerW> m_manager{[this](LPCWSTR, LPCWSTR, DWORD access) -> SC_HANDLE {
        ++((access & SC_MANAGER_CREATE_SERVICE) != 0 ? m_installs : m_removals);
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }};
    // The process's identity does not matter here, and is slow to read.
    Rig::ScopedResult<&::OpenThreadToken> m_threadToken{FALSE, ERROR_ACCESS_DENIED};
    Rig::ScopedResult<&::OpenProcessToken> m_processToken{FALSE, ERROR_ACCESS_DENIED};
};

}  // namespace

std::unique_ptr<Kind> MakeCommandLines() {
    return std::make_unique<CommandLines>();
}

}  // namespace HostileBytes
