#include <array>
#include <cstddef>

#include "logging/console_listener.h"
#include "logging/debug_listener.h"
#include "logging/event_listener.h"
#include "logging/file_listener.h"
#include "logging/last_error_keeper.h"
#include "logging/logger.h"
#include "logging/policy.h"

namespace Orva::Shared {
namespace {

/// The listeners on their way to the logger, which then owns them.
class ListenerArray {
  public:
    void Add(std::unique_ptr<CorvaLogListener> listener) { m_owners[m_count++] = std::move(listener); }

    [[nodiscard]] std::unique_ptr<CorvaLogger> MakeLogger() {
        std::array<CorvaLogListener*, CorvaLogger::kMostListeners> listeners{};
        for (std::size_t i = 0; i < m_count; ++i) {
            listeners[i] = m_owners[i].get();
        }
        auto logger = std::make_unique<CorvaLogger>(listeners.data(), static_cast<int>(m_count));
        for (std::unique_ptr<CorvaLogListener>& owner : m_owners) {
            static_cast<void>(owner.release());
        }
        return logger;
    }

  private:
    std::array<std::unique_ptr<CorvaLogListener>, CorvaLogger::kMostListeners> m_owners;
    std::size_t m_count = 0;
};

}  // namespace

std::unique_ptr<CorvaLogger> CreateLogger() {
    // Whoever writes the first line finds his last error as it was.
    const LastErrorKeeper keeper;
    PolicyKeys keys;
    OpenPolicyKeys(keys);
    const int selection = ReadOutputSelection(keys);
    // Entries reach the listeners in this order.
    ListenerArray listeners;
    if ((selection & ListenerType::kEvent) != 0) {
        listeners.Add(std::make_unique<CorvaLogListenerEvent>());
    }
    if ((selection & ListenerType::kFile) != 0) {
        listeners.Add(std::make_unique<CorvaLogListenerFile>(false));
    }
    if ((selection & ListenerType::kQueuedFile) != 0) {
        listeners.Add(std::make_unique<CorvaLogListenerFile>(true));
    }
    if ((selection & ListenerType::kDebug) != 0) {
        listeners.Add(std::make_unique<CorvaLogListenerDebug>());
    }
    if ((selection & ListenerType::kConsole) != 0) {
        listeners.Add(std::make_unique<CorvaLogListenerConsole>());
    }
    return listeners.MakeLogger();
}

}  // namespace Orva::Shared
