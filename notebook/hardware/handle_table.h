#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <utility>

#include "notebook/hardware/deliveries.h"

namespace Notebook {

/// Handles that were given out, each with what stands behind it. Any thread may call.
template <class Handle, class Value>
class HandleTable {
  public:
    explicit HandleTable(ULONG_PTR first) : m_next(first) {}

    /// A new handle, which no system knows.
    Handle Open(Value value) {
        const ExclusiveLock lock(m_lock);
        const auto handle = reinterpret_cast<Handle>(m_next);
        m_next += 4;
        m_open[handle] = std::move(value);
        return handle;
    }
    /// A handle that came from elsewhere.
    void Add(Handle handle, Value value) {
        const ExclusiveLock lock(m_lock);
        m_open[handle] = std::move(value);
    }
    bool Close(Handle handle) {
        const ExclusiveLock lock(m_lock);
        return m_open.erase(handle) != 0;
    }
    std::optional<Value> Find(Handle handle) {
        const ExclusiveLock lock(m_lock);
        const auto found = m_open.find(handle);
        return found == m_open.end() ? std::nullopt : std::optional(found->second);
    }
    void CloseAll() {
        const ExclusiveLock lock(m_lock);
        m_open.clear();
    }
    std::size_t Count() {
        const ExclusiveLock lock(m_lock);
        return m_open.size();
    }

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    ULONG_PTR m_next;
    std::map<Handle, Value> m_open;
};

}  // namespace Notebook
