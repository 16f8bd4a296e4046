#pragma once

#include <memory>
#include <string>
#include <utility>

#include "logging/logger.h"

namespace Rig {

/// Throws out of the writing of one line of the log, for a scope: the n-th from now on, counted
/// from 1. The other lines go to the log as it was (a `LogRecorder`, say). A way to have an
/// exception in the middle of an operation that calls nothing else. For one thread.
///
///     const ThrowFromLogLine throwing{3, std::runtime_error("no more log")};
class ThrowFromLogLine {
  public:
    template <class Exception>
    ThrowFromLogLine(int nth, Exception exception) {
        using Orva::Shared::LoggerHolder;
        m_outer = std::move(LoggerHolder());
        Orva::Shared::CorvaLogListener* const listener =
            new Listener<Exception>(*m_outer, nth, std::move(exception));
        LoggerHolder() = std::make_unique<Orva::Shared::CorvaLogger>(&listener, 1);
    }
    ThrowFromLogLine(const ThrowFromLogLine&) = delete;
    ThrowFromLogLine& operator=(const ThrowFromLogLine&) = delete;
    ~ThrowFromLogLine() { Orva::Shared::LoggerHolder() = std::move(m_outer); }

  private:
    template <class Exception>
    class Listener final : public Orva::Shared::CorvaLogListener {
      public:
        Listener(Orva::Shared::CorvaLogger& outer, int nth, Exception exception)
            : CorvaLogListener(PolicyLevels::kIgnore),
              m_outer(outer),
              m_linesLeft(nth),
              m_exception(std::move(exception)) {}

        void Log(const LogData& entry) override {
            if (--m_linesLeft == 0) {
                throw m_exception;
            }
            const std::string function(entry.FunctionName());
            const std::wstring message(entry.Message());
            m_outer.Write(entry.GetLevel(), function.c_str(), L"%s", message.c_str());
        }
        [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }

      private:
        Orva::Shared::CorvaLogger& m_outer;
        int m_linesLeft;
        Exception m_exception;
    };

    std::unique_ptr<Orva::Shared::CorvaLogger> m_outer;
};

}  // namespace Rig
