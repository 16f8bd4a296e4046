#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "logging/log_data.h"
#include "logging/logger.h"

namespace Rig {

/// Does something at each line of the log before it goes on to the log as it was (a `LogRecorder`,
/// say), for a scope. The action may throw: then the line is not written. A way to have something
/// happen in the middle of an operation that calls nothing else.
///
///     const AtEachLogLine lines{[&](const auto& entry) { levels.push_back(entry.GetLevel()); }};
class AtEachLogLine {
  public:
    using Action = std::function<void(const Orva::Shared::CorvaLogListener::LogData&)>;

    explicit AtEachLogLine(Action action) : m_outer(std::move(Orva::Shared::LoggerHolder())) {
        Orva::Shared::CorvaLogListener* const listener = new Listener(*m_outer, std::move(action));
        Orva::Shared::LoggerHolder() = std::make_unique<Orva::Shared::CorvaLogger>(&listener, 1);
    }
    AtEachLogLine(const AtEachLogLine&) = delete;
    AtEachLogLine& operator=(const AtEachLogLine&) = delete;
    ~AtEachLogLine() { Orva::Shared::LoggerHolder() = std::move(m_outer); }

  private:
    class Listener final : public Orva::Shared::CorvaLogListener {
      public:
        Listener(Orva::Shared::CorvaLogger& outer, Action action)
            : CorvaLogListener(PolicyLevels::kIgnore), m_outer(outer), m_action(std::move(action)) {}

        void Log(const LogData& entry) override {
            m_action(entry);
            const std::string function(entry.FunctionName());
            const std::wstring message(entry.Message());
            m_outer.Write(entry.GetLevel(), function.c_str(), L"%s", message.c_str());
        }
        [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }

      private:
        Orva::Shared::CorvaLogger& m_outer;
        Action m_action;
    };

    std::unique_ptr<Orva::Shared::CorvaLogger> m_outer;
};

}  // namespace Rig
