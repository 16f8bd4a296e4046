#include <iterator>
#include <utility>

#include "logging/file_listener.h"
#include "logging/logger.h"
#include "logging/output_listeners.h"
#include "logging/policy.h"
#include "platform/handles.h"

namespace Orva::Shared {
namespace {

using Owner = std::unique_ptr<CorvaLogListener>;

/// The outputs, in the order in which entries reach them.
constexpr std::pair<int, Owner (*)()> kOutputs[] = {
    {ListenerType::kEvent, [] { return Owner(new CorvaLogListenerEvent()); }},
    {ListenerType::kFile, [] { return Owner(new CorvaLogListenerFile(false)); }},
    {ListenerType::kQueuedFile, [] { return Owner(new CorvaLogListenerFile(true)); }},
    {ListenerType::kDebug, [] { return Owner(new CorvaLogListenerDebug()); }},
    {ListenerType::kConsole, [] { return Owner(new CorvaLogListenerConsole()); }},
};

}  // namespace

std::unique_ptr<CorvaLogger> CreateLogger() {
    // Whoever writes the first line finds his last error as it was.
    const Platform::LastErrorKeeper keeper;
    PolicyKeys keys;
    OpenPolicyKeys(keys);
    const int selection = ReadOutputSelection(keys);
    Owner owners[std::size(kOutputs)];
    CorvaLogListener* listeners[std::size(kOutputs)]{};
    int count = 0;
    for (const auto& [bit, make] : kOutputs) {
        if ((selection & bit) != 0) {
            owners[count] = make();
            listeners[count] = owners[count].get();
            ++count;
        }
    }
    auto logger = std::make_unique<CorvaLogger>(listeners, count);
    for (Owner& owner : owners) {
        static_cast<void>(owner.release());
    }
    return logger;
}

}  // namespace Orva::Shared
