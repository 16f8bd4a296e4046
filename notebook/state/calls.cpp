#include "notebook/state/calls.h"

#include <array>
#include <cstring>

namespace Notebook {

namespace {

#define NOTEBOOK_CALL(id, name) name,
constexpr std::array<std::string_view, kCallCount> kNames = {NOTEBOOK_COMMAND_CALLS(NOTEBOOK_CALL)
                                                                 NOTEBOOK_UNIT_CALLS(NOTEBOOK_CALL)};
#undef NOTEBOOK_CALL

bool SameText(std::string_view left, std::string_view right) {
    return left.size() == right.size() && _strnicmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view Method(std::string_view name) {
    const std::size_t colons = name.find("::");
    return colons == std::string_view::npos ? name : name.substr(colons + 2);
}

}  // namespace

std::string_view CallName(Call call) {
    return kNames.at(static_cast<std::size_t>(call));
}

std::optional<Call> CallFromName(std::string_view name) {
    std::optional<Call> found;
    for (std::size_t i = 0; i < kCommandCallCount; ++i) {
        if (SameText(kNames[i], name)) {
            return static_cast<Call>(i);
        }
        if (SameText(Method(kNames[i]), name)) {
            if (found) {
                return std::nullopt;
            }
            found = static_cast<Call>(i);
        }
    }
    return found;
}

}  // namespace Notebook
