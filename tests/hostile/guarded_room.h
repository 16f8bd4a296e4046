#pragma once

#include <cstddef>

#include "tests/hostile/random.h"

namespace HostileBytes {

/// Room for one block at a time, which ends where memory that cannot be read begins. A look behind the block
/// ends the process, but for what its alignment leaves: there and in a block that is gone stands rubbish.
class GuardedRoom {
  public:
    static constexpr std::size_t kBytes = std::size_t{64} * 1024;

    GuardedRoom();
    GuardedRoom(const GuardedRoom&) = delete;
    GuardedRoom& operator=(const GuardedRoom&) = delete;
    ~GuardedRoom();

    /// A block of rubbish in place of the one before; null when it does not fit.
    [[nodiscard]] void* Take(std::size_t bytes, std::size_t alignment = alignof(void*));
    /// A block with this in it.
    [[nodiscard]] void* Place(const Bytes& bytes, std::size_t alignment = alignof(void*));
    /// The block is gone.
    void GiveBack();
    /// Where nothing can be read.
    [[nodiscard]] void* End() const { return m_end; }

  private:
    std::byte* m_end;
    std::byte* m_block;
};

/// While it lives, each block that `new` gives to this program ends at such a place.
class GuardedNew {
  public:
    GuardedNew();
    GuardedNew(const GuardedNew&) = delete;
    GuardedNew& operator=(const GuardedNew&) = delete;
    ~GuardedNew();
};

}  // namespace HostileBytes
