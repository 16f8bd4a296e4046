#pragma once

#include <windows.h>

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "logging/log_data.h"
#include "logging/logger.h"
#include "tests/support/words.h"

namespace LoggingTests {

using namespace Rig::Words;

/// 2019/04/05 13:07:09.042, a Friday.
constexpr SYSTEMTIME kSomeTime{2019, 4, 5, 5, 13, 7, 9, 42};
constexpr DWORD kSomeThread = 0x1A2C;

/// An entry of that time and thread.
inline Orva::Shared::CorvaLogListener::LogData Entry(
    const std::wstring& message, int level = Orva::Shared::Level::kInformation,
    const std::string& functionName = "CMainService::OnStart") {
    return {functionName.c_str(), message.c_str(), level, kSomeTime, kSomeThread};
}

/// Waits in real time until something holds. False when it does not in 30 s.
template <class Condition>
[[nodiscard]] bool Eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        Rig::Real<&::Sleep>(1);
    }
    return true;
}

/// Lets four threads log so many lines each at once, "<thread> <line>".
inline void LogOnManyThreads(Orva::Shared::CorvaLogger& logger, int lines) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&logger, lines, thread] {
            for (int line = 0; line < lines; ++line) {
                logger.Write(Orva::Shared::Level::kError, "A::B", L"%d %d", thread, line);
            }
        });
    }
}

/// Every line of those stands there whole, those of each thread in their order.
inline void ExpectLinesOfManyThreads(const std::vector<std::string>& messages, int lines) {
    std::vector<int> next(4);
    for (const std::string& message : messages) {
        const int thread = std::stoi(message);
        EXPECT_EQ(message,
                  std::to_string(thread) + " " + std::to_string(next.at(static_cast<std::size_t>(thread))++));
    }
    EXPECT_THAT(next, testing::Each(lines));
}

}  // namespace LoggingTests
