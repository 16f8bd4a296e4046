#include "logging/log_scope.h"

#include <cstdarg>
#include <cstring>
#include <new>

#include "logging/format.h"
#include "platform/handles.h"

using Orva::Shared::GetLogger;
using Orva::Shared::LogScopeTimer;

LogScope::~LogScope() {
    try {
        if (m_writesExitLine) {
            Write(Orva::Shared::Level::kTraceOut, m_hasExitText ? L"%s" : nullptr, m_exitText);
        }
        if (m_timer != nullptr) {
            m_timer->End();
        }
    } catch (...) {
        // An operation must not fail because its exit could not be logged.
    }
}

void LogScope::LogException() const {
    const char* const colon = std::strrchr(m_functionName, ':');
    Error(L"Exception in %S()", colon != nullptr ? colon + 1 : m_functionName);
}

void LogScope::StartTimer() {
    if (GetLogger().TimingEnabled()) {
        // Without memory the operation runs untimed.
        m_timer.reset(new (std::nothrow) LogScopeTimer(GetLogger(), m_functionName));
    }
}

void LogScope::FormatExitLine(const wchar_t* format, ...) {
    const Platform::LastErrorKeeper keeper;
    m_exitText[0] = L'\0';
    va_list arguments;
    va_start(arguments, format);
    Orva::Shared::FormatTextList(m_exitText, Orva::Shared::kMessageCharacters, format, arguments);
    va_end(arguments);
    m_hasExitText = true;
    m_writesExitLine = true;
}
