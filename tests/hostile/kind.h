#pragma once

#include <windows.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "logging/listener.h"
#include "logging/logger.h"
#include "tests/hostile/random.h"

namespace HostileBytes {

/// What must not happen, and did.
class Violation : public std::runtime_error {
  public:
    using runtime_error::runtime_error;
};

inline void Require(bool holds, const char* otherwise) {
    if (!holds) {
        throw Violation(otherwise);
    }
}

/// The process's log, for a scope: every line is formatted, as for a file that takes them all.
class QuietLog {
  public:
    QuietLog();
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
    ~QuietLog();

    /// How many lines tell of an exception.
    [[nodiscard]] int Exceptions() const { return m_exceptions; }

  private:
    class Listener;

    int m_exceptions = 0;
    std::unique_ptr<Orva::Shared::CorvaLogger> m_logger;
};

/// A kind of input, with what stands in for Windows while it is tried.
class Kind {
  public:
    Kind() = default;
    Kind(const Kind&) = delete;
    Kind& operator=(const Kind&) = delete;
    virtual ~Kind() = default;

    /// Draws an input, hands it to the service and looks at what becomes of it. Throws `Violation`.
    virtual void Try(Random& random) = 0;
    [[nodiscard]] const QuietLog& Log() const { return m_log; }

  private:
    QuietLog m_log;
};

[[nodiscard]] std::unique_ptr<Kind> MakeRegistryValues();
[[nodiscard]] std::unique_ptr<Kind> MakeAdapterLists();
[[nodiscard]] std::unique_ptr<Kind> MakeVersionResources();
[[nodiscard]] std::unique_ptr<Kind> MakeLogFiles();
[[nodiscard]] std::unique_ptr<Kind> MakeWmiValues();
[[nodiscard]] std::unique_ptr<Kind> MakeNotifications();
[[nodiscard]] std::unique_ptr<Kind> MakeModemRecords();
[[nodiscard]] std::unique_ptr<Kind> MakeCommandLines();

}  // namespace HostileBytes
