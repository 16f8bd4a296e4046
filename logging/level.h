#pragma once

namespace Orva::Shared {

/// Levels of log entries, from the chattiest to the gravest. Numbers, not an enumeration,
/// because policy and listeners compare ranges of them.
namespace Level {
constexpr int kTraceIn = 0;      ///< entry into an operation
constexpr int kTraceOut = 1;     ///< exit from an operation
constexpr int kVerbose = 2;      ///< detail
constexpr int kInformation = 3;  ///< normal events and decisions
constexpr int kWarning = 4;      ///< unexpected but handled
constexpr int kError = 5;        ///< failures, caught exceptions
constexpr int kDiag = 6;         ///< elapsed times of operations
constexpr int kNever = 99;       ///< no entry uses it; unknown level names read as it
}  // namespace Level

/// The number of a level name, compared without regard to case. A null, empty or unknown name
/// gives `Level::kNever`.
[[nodiscard]] int LevelFromName(const wchar_t* name) noexcept;

/// "TraceIn" to "Diag" as lines show them; "Undefined" for every other number, `Level::kNever` too.
[[nodiscard]] const wchar_t* NameOfLevel(int level) noexcept;

}  // namespace Orva::Shared
