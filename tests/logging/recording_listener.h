#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "logging/log_data.h"
#include "logging/logger.h"

namespace LoggingTests {

/// What a listener is to be.
struct ListenerSettings {
    int minLevel = Orva::Shared::Level::kTraceIn;
    int maxLevel = Orva::Shared::Level::kError;
    int type = Orva::Shared::ListenerType::kDebug;
};

/// Hands every entry to the test.
class RecordingListener final : public Orva::Shared::CorvaLogListener {
  public:
    using Sink = std::function<void(const LogData&)>;

    explicit RecordingListener(
        const ListenerSettings& settings, Sink sink = [](const LogData&) {},
        std::function<void()> onDestruction = [] {})
        : CorvaLogListener(PolicyLevels::kIgnore),
          m_type(settings.type),
          m_sink(std::move(sink)),
          m_onDestruction(std::move(onDestruction)) {
        m_minLogLevel = settings.minLevel;
        m_maxLogLevel = settings.maxLevel;
    }
    ~RecordingListener() noexcept(false) override { m_onDestruction(); }

    void Log(const LogData& entry) override { m_sink(entry); }
    [[nodiscard]] int GetType() const override { return m_type; }

  private:
    int m_type;
    Sink m_sink;
    std::function<void()> m_onDestruction;
};

/// A logger of these listeners, which takes them over.
inline std::unique_ptr<Orva::Shared::CorvaLogger> MakeLogger(
    std::vector<Orva::Shared::CorvaLogListener*> listeners) {
    return std::make_unique<Orva::Shared::CorvaLogger>(listeners.data(), static_cast<int>(listeners.size()));
}

/// A logger whose listeners note the messages that they get as "<listener's place>:<message>".
class RecordingLogger {
  public:
    explicit RecordingLogger(const std::vector<ListenerSettings>& settings = {{}}) {
        std::vector<Orva::Shared::CorvaLogListener*> listeners;
        for (const ListenerSettings& one : settings) {
            const auto place = std::to_wstring(listeners.size());
            listeners.push_back(new RecordingListener(
                one, [this, place](const Orva::Shared::CorvaLogListener::LogData& entry) {
                    m_messages.push_back(place + L":" + std::wstring(entry.Message()));
                }));
        }
        m_logger = MakeLogger(listeners);
    }

    Orva::Shared::CorvaLogger* operator->() const { return m_logger.get(); }
    Orva::Shared::CorvaLogger& operator*() const { return *m_logger; }
    [[nodiscard]] const std::vector<std::wstring>& Messages() const { return m_messages; }

  private:
    std::vector<std::wstring> m_messages;
    std::unique_ptr<Orva::Shared::CorvaLogger> m_logger;
};

}  // namespace LoggingTests
