#pragma once

#include <gtest/gtest.h>

#include <string>

namespace ServiceTests {

/// Keeps what is written to standard output, for a scope. One at a time.
class CapturedOutput {
  public:
    CapturedOutput() { testing::internal::CaptureStdout(); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    ~CapturedOutput() {
        if (!m_taken) {
            testing::internal::GetCapturedStdout();
        }
    }

    /// What was written, with Unix line ends. Ends the capture.
    [[nodiscard]] std::string Take() {
        m_taken = true;
        return testing::internal::GetCapturedStdout();
    }

  private:
    bool m_taken = false;
};

}  // namespace ServiceTests
