#include "logging/level.h"

#include <cwchar>

namespace Orva::Shared {
namespace {

struct NamedLevel {
    const wchar_t* name;
    int level;
};

constexpr NamedLevel kLevels[] = {
    {L"TraceIn", Level::kTraceIn}, {L"TraceOut", Level::kTraceOut},
    {L"Verbose", Level::kVerbose}, {L"Information", Level::kInformation},
    {L"Warning", Level::kWarning}, {L"Error", Level::kError},
    {L"Diag", Level::kDiag},       {L"Never", Level::kNever},
};

}  // namespace

int LevelFromName(const wchar_t* name) noexcept {
    if (name != nullptr) {
        for (const NamedLevel& known : kLevels) {
            if (_wcsicmp(name, known.name) == 0) {
                return known.level;
            }
        }
    }
    return Level::kNever;
}

}  // namespace Orva::Shared
