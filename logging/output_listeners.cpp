#include "logging/output_listeners.h"

#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "logging/format.h"
#include "logging/log_data.h"
#include "logging/policy.h"

namespace Orva::Shared {
namespace {

constexpr wchar_t kFunctionAndMessage[] = L"%S : %s\r\n";
/// Room beside function name and message: what divides them, the line's end, the text's end.
constexpr std::size_t kSlackCharacters = 10;

WORD EventType(int level) noexcept {
    switch (level) {
        case Level::kWarning:
            return EVENTLOG_WARNING_TYPE;
        case Level::kError:
            return EVENTLOG_ERROR_TYPE;
        default:
            return EVENTLOG_INFORMATION_TYPE;
    }
}

}  // namespace

CorvaLogListenerEvent::CorvaLogListenerEvent() {
    const std::wstring source = GetModuleNames().value_or(ModuleNames{}).baseName;
    m_source.Reset(RegisterEventSourceW(nullptr, source.c_str()));
}

void CorvaLogListenerEvent::Log(const LogData& entry) {
    if (entry.GetLevel() < MinLogLevel() || entry.GetLevel() > Level::kError) {
        return;
    }
    const wchar_t* text = entry.GetLogLine().data();
    ReportEventW(m_source.Get(), EventType(entry.GetLevel()), 0, static_cast<DWORD>(entry.GetLevel()),
                 nullptr, 1, 0, &text, nullptr);
}

void CorvaLogListenerDebug::Log(const LogData& entry) {
    try {
        std::vector<wchar_t> text(entry.FunctionName().size() + entry.Message().size() + kSlackCharacters);
        FormatText(text.data(), text.size(), kFunctionAndMessage, entry.FunctionName().data(),
                   entry.Message().data());
        OutputDebugStringW(text.data());
    } catch (const std::bad_alloc&) {
        // Short of memory nothing is shown; the program goes on.
    }
}

void CorvaLogListenerConsole::Log(const LogData& entry) {
    PrintText(kFunctionAndMessage, entry.FunctionName().data(), entry.Message().data());
}

}  // namespace Orva::Shared
