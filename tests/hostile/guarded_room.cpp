#include "tests/hostile/guarded_room.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

#include "notebook/hardware/guarded_memory.h"

namespace HostileBytes {

namespace {

constexpr int kRubbish = 0xA5;

/// Rooms for what `new` gives; one that is taken is marked.
class Pool {
  public:
    void* Take(std::size_t bytes) {
        for (Place& place : m_places) {
            if (!place.isTaken.exchange(true)) {
                return place.room.Take(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
            }
        }
        return nullptr;
    }

    /// False when it is none of these.
    bool GiveBack(void* block) noexcept {
        for (Place& place : m_places) {
            const auto* const end = static_cast<std::byte*>(place.room.End());
            if (std::less<>()(block, end) && !std::less<>()(block, end - GuardedRoom::kBytes)) {
                place.room.GiveBack();
                place.isTaken = false;
                return true;
            }
        }
        return false;
    }

  private:
    struct Place {
        GuardedRoom room;
        std::atomic<bool> isTaken = false;
    };
    std::array<Place, 24> m_places;
};

thread_local bool newIsGuarded = false;
/// Never destroyed.
std::atomic<Pool*> pool = nullptr;

}  // namespace

GuardedRoom::GuardedRoom()
    : m_end(static_cast<std::byte*>(Notebook::AllocateGuarded(kBytes, 1)) + kBytes), m_block(m_end) {}

GuardedRoom::~GuardedRoom() {
    Notebook::FreeGuarded(m_end - kBytes);
}

void* GuardedRoom::Take(std::size_t bytes, std::size_t alignment) {
    GiveBack();
    const std::size_t taken = (bytes + alignment - 1) / alignment * alignment;
    if (bytes > kBytes || taken > kBytes) {
        return nullptr;
    }
    m_block = m_end - taken;
    std::memset(m_block, kRubbish, taken);
    return m_block;
}

void* GuardedRoom::Place(const Bytes& bytes, std::size_t alignment) {
    void* const block = Take(bytes.size(), alignment);
    Copy(block, bytes.data(), bytes.size());
    return block;
}

void GuardedRoom::GiveBack() {
    std::memset(m_block, kRubbish, static_cast<std::size_t>(m_end - m_block));
    m_block = m_end;
}

GuardedNew::GuardedNew() {
    if (pool == nullptr) {
        pool = new Pool;
    }
    newIsGuarded = true;
}

GuardedNew::~GuardedNew() {
    newIsGuarded = false;
}

namespace {

void* Allocate(std::size_t bytes) {
    if (newIsGuarded) {
        if (void* const block = pool.load()->Take(bytes)) {
            return block;
        }
    }
    void* const block = std::malloc(bytes != 0 ? bytes : 1);
    return block != nullptr ? block : throw std::bad_alloc();
}

void Free(void* block) noexcept {
    Pool* const rooms = pool;
    if (block != nullptr && (rooms == nullptr || !rooms->GiveBack(block))) {
        std::free(block);
    }
}

}  // namespace

}  // namespace HostileBytes

void* operator new(std::size_t bytes) {
    return HostileBytes::Allocate(bytes);
}

void operator delete(void* block) noexcept {
    HostileBytes::Free(block);
}

void operator delete(void* block, std::size_t /*bytes*/) noexcept {
    HostileBytes::Free(block);
}
