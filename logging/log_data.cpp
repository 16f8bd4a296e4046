#include "logging/log_data.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>

namespace Orva::Shared {
namespace {

// Lines are put together by hand: with a format, "%04d/%02d/%02d %02d:%02d:%02d.%03d|%08X|%-11s|%S|%s",
// draining one misses its bound in `logging_bench`.

constexpr std::size_t kHeaderCharacters = 64;
constexpr std::size_t kLevelNameWidth = 11;
constexpr unsigned kDecimal = 10;
constexpr unsigned kHexadecimal = 16;

/// Appends at least `width` digits, with leading zeros, and what follows them.
template <unsigned Base>
void AppendNumber(std::pmr::wstring& line, unsigned number, std::size_t width, wchar_t after) {
    wchar_t digits[kHeaderCharacters];
    wchar_t* const end = std::end(digits);
    wchar_t* digit = end;
    *--digit = after;
    for (std::size_t written = 0; written < width || number != 0; ++written) {
        *--digit = L"0123456789ABCDEF"[number % Base];
        number /= Base;
    }
    line.append(digit, end);
}

void AppendHeader(std::pmr::wstring& line, const SYSTEMTIME& time, DWORD threadId,
                  std::wstring_view levelName) {
    AppendNumber<kDecimal>(line, time.wYear, 4, L'/');
    AppendNumber<kDecimal>(line, time.wMonth, 2, L'/');
    AppendNumber<kDecimal>(line, time.wDay, 2, L' ');
    AppendNumber<kDecimal>(line, time.wHour, 2, L':');
    AppendNumber<kDecimal>(line, time.wMinute, 2, L':');
    AppendNumber<kDecimal>(line, time.wSecond, 2, L'.');
    AppendNumber<kDecimal>(line, time.wMilliseconds, 3, L'|');
    AppendNumber<kHexadecimal>(line, threadId, 8, L'|');
    line += levelName;
    line.append(kLevelNameWidth - std::min(levelName.size(), kLevelNameWidth), L' ');
    line += L'|';
}

/// As the C runtime's "%S" has it in its own locale, "C": each byte is a character.
void AppendName(std::pmr::wstring& line, std::string_view name) {
    const std::size_t end = line.size();
    line.resize(end + name.size());
    std::transform(name.begin(), name.end(), line.data() + end,
                   [](char character) { return static_cast<unsigned char>(character); });
}

}  // namespace

CorvaLogListener::LogData::LogData(const char* functionName, const wchar_t* message, int level,
                                   const SYSTEMTIME& time, DWORD threadId, const allocator_type& memory)
    : m_functionName(functionName != nullptr ? functionName : "", memory),
      m_message(message != nullptr ? message : L"", memory),
      m_level(level),
      m_time(time),
      m_threadId(threadId),
      m_line(memory) {}

CorvaLogListener::LogData::LogData(const LogData& other, const allocator_type& memory)
    : m_functionName(other.m_functionName, memory),
      m_message(other.m_message, memory),
      m_level(other.m_level),
      m_time(other.m_time),
      m_threadId(other.m_threadId),
      m_line(other.m_line, memory) {}

std::wstring_view CorvaLogListener::LogData::GetLogLine() const noexcept {
    if (!m_line.empty()) {
        return m_line;
    }
    try {
        m_line.reserve(kHeaderCharacters);
        AppendHeader(m_line, m_time, m_threadId, GetLevelName());
        m_line.reserve(m_line.size() + FunctionName().size() + 1 + Message().size());
        AppendName(m_line, FunctionName());
        m_line += L'|';
        m_line += Message();
    } catch (const std::exception&) {
        // Short of memory the header alone still tells that something happened, and when.
    }
    return m_line;
}

}  // namespace Orva::Shared
