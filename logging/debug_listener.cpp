#include "logging/debug_listener.h"

#include <cstddef>
#include <new>
#include <vector>

#include "logging/format.h"

namespace Orva::Shared {
namespace {

/// Room beside function name and message: what divides them, the line's end, the text's end.
constexpr std::size_t kSlackCharacters = 10;

}  // namespace

void CorvaLogListenerDebug::Log(const LogData& entry) {
    try {
        std::vector<wchar_t> text(entry.FunctionName().size() + entry.Message().size() + kSlackCharacters);
        FormatText(text.data(), text.size(), L"%S : %s\r\n", entry.FunctionName().data(),
                   entry.Message().data());
        OutputDebugStringW(text.data());
    } catch (const std::bad_alloc&) {
        // Short of memory nothing is shown; the program goes on.
    }
}

}  // namespace Orva::Shared
