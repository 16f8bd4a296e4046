#include "logging/log_scope.h"

#include <cstdarg>

#include "logging/format.h"
#include "logging/last_error_keeper.h"

using Orva::Shared::GetLogger;
using Orva::Shared::LogScopeTimer;

LogScope::~LogScope() {
    try {
        if (m_writesExitLine) {
            Write(Orva::Shared::Level::kTraceOut, m_exitLine.empty() ? nullptr : L"%s", m_exitLine.c_str());
        }
        if (m_timer != nullptr) {
            m_timer->End();
        }
    } catch (...) {
        // An operation must not fail because its exit could not be logged.
    }
}

void LogScope::StartTimer() {
    if (GetLogger().TimingEnabled()) {
        m_timer = std::make_unique<LogScopeTimer>(GetLogger(), m_functionName);
    }
}

void LogScope::FormatExitLine(const wchar_t* format, ...) {
    const Orva::Shared::LastErrorKeeper keeper;
    wchar_t text[Orva::Shared::kMessageCharacters] = {};
    va_list arguments;
    va_start(arguments, format);
    Orva::Shared::FormatTextList(text, Orva::Shared::kMessageCharacters, format, arguments);
    va_end(arguments);
    m_exitLine = text;
}
