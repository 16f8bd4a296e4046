#pragma once

#include <windows.h>

#include <chrono>
#include <string>

#include "logging/listener.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {

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

}  // namespace LoggingTests
