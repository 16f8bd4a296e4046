#pragma once

#include <windows.h>

#include <gmock/gmock.h>

#include <io.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/simulated_notebook.h"
#include "tests/support/test_clock.h"
#include "tests/support/words.h"

namespace ServiceTests {

using namespace Rig::Words;
using Orva::Shared::Level::kVerbose;
using Rig::AtCall;
using Rig::Call;
using Rig::LogRecorder;
using Rig::SimulatedNotebook;
using Rig::TestClock;

constexpr wchar_t kService[] = L"LinkvaneService";

/// A test on a machine whose service manager has this service and those that it depends on, all running.
class ServiceTest : public testing::Test {
  protected:
    LogRecorder log;
    TestClock clock;
    SimulatedNotebook notebook{clock};
};

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

    /// What a reader of standard output has seen up to now, with Unix line ends: without anything
    /// that waits in the stream to be written. Only during a capture.
    [[nodiscard]] static std::string SoFar() {
        constexpr std::size_t kBytesAtOnce = 512;
        const int file = _fileno(stdout);
        _lseek(file, 0, SEEK_SET);
        std::array<char, kBytesAtOnce> bytes{};
        std::string text;
        for (int count = 0; (count = _read(file, bytes.data(), kBytesAtOnce)) > 0;) {
            text.append(bytes.data(), static_cast<std::size_t>(count));
        }
        _lseek(file, 0, SEEK_END);
        return text;
    }

    /// What was written, with Unix line ends. Ends the capture.
    [[nodiscard]] std::string Take() {
        m_taken = true;
        return testing::internal::GetCapturedStdout();
    }

  private:
    bool m_taken = false;
};

/// What a function writes to standard output.
template <class Function>
[[nodiscard]] std::string PrintedBy(Function function) {
    CapturedOutput output;
    function();
    return output.Take();
}

}  // namespace ServiceTests
