#include "logging/level.h"

#include <cwchar>
#include <iterator>

namespace Orva::Shared {
namespace {

/// The names in the order of their numbers.
constexpr const wchar_t* kNames[] = {L"TraceIn", L"TraceOut", L"Verbose", L"Information",
                                     L"Warning", L"Error",    L"Diag"};
static_assert(std::size(kNames) == Level::kDiag + 1);

}  // namespace

int LevelFromName(const wchar_t* name) noexcept {
    for (int level = Level::kTraceIn; name != nullptr && level <= Level::kDiag; ++level) {
        if (_wcsicmp(name, kNames[level]) == 0) {
            return level;
        }
    }
    // "Never" itself, too.
    return Level::kNever;
}

const wchar_t* NameOfLevel(int level) noexcept {
    return level >= Level::kTraceIn && level <= Level::kDiag ? kNames[level] : L"Undefined";
}

}  // namespace Orva::Shared
