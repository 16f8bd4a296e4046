#include "logging/event_listener.h"

#include <optional>
#include <string>

#include "logging/policy.h"

namespace Orva::Shared {
namespace {

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
    const std::optional<ModuleNames> names = GetModuleNames();
    const std::wstring source = names ? names->baseName : std::wstring();
    m_source.Reset(RegisterEventSourceW(nullptr, source.c_str()));
}

void CorvaLogListenerEvent::Log(const LogData& entry) {
    if (entry.GetLevel() < MinLogLevel() || entry.GetLevel() > Level::kError) {
        return;
    }
    const wchar_t* text = entry.GetLogLine().c_str();
    ReportEventW(m_source.Get(), EventType(entry.GetLevel()), 0, static_cast<DWORD>(entry.GetLevel()),
                 nullptr, 1, 0, &text, nullptr);
}

}  // namespace Orva::Shared
