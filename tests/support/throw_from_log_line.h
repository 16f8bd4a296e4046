#pragma once

#include "tests/support/at_each_log_line.h"

namespace Rig {

/// Throws out of the writing of one line of the log, for a scope: the n-th from now on, counted
/// from 1. For one thread.
///
///     const ThrowFromLogLine throwing{3, std::runtime_error("no more log")};
class ThrowFromLogLine {
  public:
    template <class Exception>
    ThrowFromLogLine(int nth, Exception exception)
        : m_lines([linesLeft = nth, exception](const auto& /*entry*/) mutable {
              if (--linesLeft == 0) {
                  throw exception;
              }
          }) {}

  private:
    AtEachLogLine m_lines;
};

}  // namespace Rig
