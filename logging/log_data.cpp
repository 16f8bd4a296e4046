#include <cstdio>
#include <cwchar>
#include <new>
#include <vector>

#include "logging/format.h"
#include "logging/listener.h"

namespace Orva::Shared {
namespace {

constexpr std::size_t kHeaderCharacters = 64;
/// Room beside function name and message in the second half of a line.
constexpr std::size_t kLineSlackCharacters = 10;

const wchar_t* NameOfLevel(int level) noexcept {
    switch (level) {
        case Level::kTraceIn:
            return L"TraceIn";
        case Level::kTraceOut:
            return L"TraceOut";
        case Level::kVerbose:
            return L"Verbose";
        case Level::kInformation:
            return L"Information";
        case Level::kWarning:
            return L"Warning";
        case Level::kError:
            return L"Error";
        case Level::kDiag:
            return L"Diag";
        default:
            return L"Undefined";
    }
}

}  // namespace

CorvaLogListener::LogData::LogData(const char* functionName, const wchar_t* message, int level,
                                   const SYSTEMTIME& time, DWORD threadId)
    : m_functionName(functionName != nullptr ? functionName : ""),
      m_message(message != nullptr ? message : L""),
      m_level(level),
      m_time(time),
      m_threadId(threadId) {}

const std::wstring& CorvaLogListener::LogData::GetLevelName() const {
    if (m_levelName.empty()) {
        m_levelName = NameOfLevel(m_level);
    }
    return m_levelName;
}

const std::wstring& CorvaLogListener::LogData::GetLogLine() const {
    if (!m_line.empty()) {
        return m_line;
    }
    wchar_t header[kHeaderCharacters] = {};
    FormatText(header, kHeaderCharacters, L"%04d/%02d/%02d %02d:%02d:%02d.%03d|%08X|%-11s|", m_time.wYear,
               m_time.wMonth, m_time.wDay, m_time.wHour, m_time.wMinute, m_time.wSecond, m_time.wMilliseconds,
               static_cast<unsigned>(m_threadId), GetLevelName().c_str());
    m_line = header;

    const std::size_t characters = m_functionName.size() + m_message.size() + kLineSlackCharacters;
    try {
        std::vector<wchar_t> rest(characters);
        FormatText(rest.data(), characters, L"%S|%s", m_functionName.c_str(), m_message.c_str());
        m_line += rest.data();
    } catch (const std::bad_alloc&) {
        // Short of memory the header alone still tells that something happened, and when.
    }
    return m_line;
}

}  // namespace Orva::Shared
