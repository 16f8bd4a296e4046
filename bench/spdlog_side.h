#pragma once

#include <memory>
#include <string>

/// The other side of the comparison, kept apart because its headers take long to compile.
namespace Bench {

/// An asynchronous spdlog logger: one writer thread, a queue of 8192 places that makes callers
/// wait when it is full, a file that rotates at two megabytes, and lines like ours.
class SpdlogAsync {
  public:
    explicit SpdlogAsync(const std::string& path);
    SpdlogAsync(const SpdlogAsync&) = delete;
    SpdlogAsync& operator=(const SpdlogAsync&) = delete;
    ~SpdlogAsync();

    /// Writes `count` lines.
    void WriteLines(int count);
    /// Waits until they are in the file.
    void WaitUntilWritten();

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// `count` calls of a logger at hand that takes "info" and above, at "trace".
void SpdlogDisabledCalls(int count);
/// The same through spdlog's own process-wide logger.
void SpdlogDisabledCallsOfDefaultLogger(int count);

}  // namespace Bench
