#include "logging/logger.h"

#include <algorithm>
#include <cstdarg>

#include "logging/format.h"
#include "logging/last_error_keeper.h"

namespace Orva::Shared {
namespace {

bool IsFileListener(const CorvaLogListener& listener) {
    const int type = listener.GetType();
    return type == ListenerType::kQueuedFile || type == ListenerType::kFile;
}

}  // namespace

CorvaLogger::CorvaLogger(CorvaLogListener* const* listeners, int count) {
    for (int i = 0; i < count; ++i) {
        CorvaLogListener* const listener = listeners[i];
        if (listener == nullptr) {
            continue;
        }
        if (m_listenerCount == kMostListeners) {
            delete listener;
            continue;
        }
        m_listeners[static_cast<std::size_t>(m_listenerCount++)] = listener;
        m_minLevel = std::min(m_minLevel, listener->MinLogLevel());
        m_maxLevel = std::max(m_maxLevel, listener->MaxLogLevel());
        if (IsFileListener(*listener)) {
            m_primaryFileListener = listener;
        }
    }
    m_timingEnabled = m_primaryFileListener != nullptr &&
                      m_primaryFileListener->MaxLogLevel() >= Level::kDiag &&
                      m_primaryFileListener->MinLogLevel() <= Level::kDiag;
    m_messageCharacters = std::min(m_messageCharacters, kMostMessageCharacters);
}

CorvaLogger::~CorvaLogger() {
    for (int i = 0; i < m_listenerCount; ++i) {
        CorvaLogListener*& listener = m_listeners[static_cast<std::size_t>(i)];
        try {
            delete listener;
        } catch (...) {
            // Whatever an output cannot finish, the others are still to be ended.
        }
        listener = nullptr;
    }
}

void CorvaLogger::WriteFormatted(int level, const char* functionName, const wchar_t* format, ...) {
    const LastErrorKeeper keeper;
    wchar_t message[kMessageCharacters] = {};
    if (format != nullptr && *format != L'\0') {
        va_list arguments;
        va_start(arguments, format);
        FormatTextList(message, m_messageCharacters, format, arguments);
        va_end(arguments);
    }
    Dispatch(level, functionName, message);
}

void CorvaLogger::Dispatch(int level, const char* functionName, const wchar_t* message) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    const CorvaLogListener::LogData entry(functionName, message, level, now, GetCurrentThreadId());
    for (int i = 0; i < m_listenerCount; ++i) {
        CorvaLogListener* const listener = m_listeners[static_cast<std::size_t>(i)];
        if (level >= listener->MinLogLevel() && level <= listener->MaxLogLevel()) {
            listener->Log(entry);
        }
    }
}

std::unique_ptr<CorvaLogger>& LoggerHolder() {
    static std::unique_ptr<CorvaLogger> holder = CreateLogger();
    return holder;
}

CorvaLogger& GetLogger() {
    std::unique_ptr<CorvaLogger>& holder = LoggerHolder();
    if (holder == nullptr) {
        holder = CreateLogger();
    }
    return *holder;
}

}  // namespace Orva::Shared
