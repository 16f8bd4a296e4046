#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>

#include "logging/format.h"
#include "logging/listener.h"

namespace Orva::Shared {
namespace {

constexpr std::size_t kHeaderCharacters = 64;
constexpr std::size_t kLevelNameWidth = 11;
/// Room beside function name and message in the second half of a line.
constexpr std::size_t kLineSlackCharacters = 10;

constexpr unsigned kDecimal = 10;
constexpr unsigned kHexadecimal = 16;

std::wstring_view NameOfLevel(int level) noexcept {
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

/// The first half of a line, "%04d/%02d/%02d %02d:%02d:%02d.%03d|%08X|%-11s|". Put together by
/// hand: every line has one, and a format would take longer than all the rest of the line. The
/// longest that its fields can make is 63 characters.
class LineHeader {
  public:
    LineHeader(const SYSTEMTIME& time, DWORD threadId, std::wstring_view levelName) {
        Number<kDecimal>(time.wYear, 4, L'/');
        Number<kDecimal>(time.wMonth, 2, L'/');
        Number<kDecimal>(time.wDay, 2, L' ');
        Number<kDecimal>(time.wHour, 2, L':');
        Number<kDecimal>(time.wMinute, 2, L':');
        Number<kDecimal>(time.wSecond, 2, L'.');
        Number<kDecimal>(time.wMilliseconds, 3, L'|');
        Number<kHexadecimal>(threadId, 8, L'|');
        PaddedName(levelName);
        *m_end++ = L'|';
    }

    [[nodiscard]] std::wstring_view Text() const noexcept {
        return {m_text.data(), static_cast<std::size_t>(m_end - m_text.data())};
    }

  private:
    /// At least `width` digits, with leading zeros, and what follows them.
    template <unsigned Base>
    void Number(unsigned number, unsigned width, wchar_t after) noexcept {
        std::array<wchar_t, 8> digits{};
        wchar_t* digit = digits.data() + digits.size();
        for (unsigned written = 0; written < width || number != 0; ++written) {
            *--digit = L"0123456789ABCDEF"[number % Base];
            number /= Base;
        }
        m_end = std::copy(digit, digits.data() + digits.size(), m_end);
        *m_end++ = after;
    }

    void PaddedName(std::wstring_view name) noexcept {
        m_end = std::copy(name.begin(), name.end(), m_end);
        for (std::size_t i = name.size(); i < kLevelNameWidth; ++i) {
            *m_end++ = L' ';
        }
    }

    std::array<wchar_t, kHeaderCharacters> m_text{};
    wchar_t* m_end = m_text.data();
};

bool IsAscii(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char character) { return character >= 0; });
}

/// The second half of a line, "%S|%s". How other than ASCII characters are widened is the C
/// runtime's affair.
void AppendNameAndMessage(std::wstring& line, std::string_view name, std::wstring_view message) {
    if (IsAscii(name)) {
        const std::size_t headerSize = line.size();
        line.resize(headerSize + name.size());
        std::copy(name.begin(), name.end(), line.begin() + static_cast<std::ptrdiff_t>(headerSize));
        line += L'|';
        line += message;
        return;
    }
    const std::size_t characters = name.size() + message.size() + kLineSlackCharacters;
    std::wstring rest(characters, L'\0');
    FormatText(rest.data(), characters, L"%S|%s", name.data(), message.data());
    line.append(rest, 0, rest.find(L'\0'));
}

}  // namespace

CorvaLogListener::LogData::LogData(const char* functionName, const wchar_t* message, int level,
                                   const SYSTEMTIME& time, DWORD threadId)
    : m_functionName(functionName != nullptr ? functionName : ""),
      m_message(message != nullptr ? message : L""),
      m_level(level),
      m_time(time),
      m_threadId(threadId) {}

void CorvaLogListener::LogData::Assign(std::string_view functionName, std::wstring_view message, int level,
                                       const SYSTEMTIME& time, DWORD threadId) {
    m_functionName.Assign(functionName);
    m_message.Assign(message);
    m_level = level;
    m_time = time;
    m_threadId = threadId;
    m_levelName = {};
    m_line.clear();
}

std::wstring_view CorvaLogListener::LogData::GetLevelName() const noexcept {
    if (m_levelName.empty()) {
        m_levelName = NameOfLevel(m_level);
    }
    return m_levelName;
}

const std::wstring& CorvaLogListener::LogData::GetLogLine() const noexcept {
    if (m_line.empty()) {
        BuildLine();
    }
    return m_line;
}

void CorvaLogListener::LogData::BuildLine() const noexcept {
    const LineHeader header(m_time, m_threadId, GetLevelName());
    try {
        m_line = header.Text();
        m_line.reserve(m_line.size() + FunctionName().size() + Message().size() + kLineSlackCharacters);
        AppendNameAndMessage(m_line, FunctionName(), Message());
    } catch (const std::exception&) {
        // Short of memory the header alone still tells that something happened, and when.
    }
}

}  // namespace Orva::Shared
