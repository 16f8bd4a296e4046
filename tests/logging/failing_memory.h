#pragma once

#include <cstddef>

namespace LoggingTests {

/// Lets the C++ heap run out for a scope: blocks of `bytes` and more are refused to every thread.
class ScopedMemoryShortage {
  public:
    explicit ScopedMemoryShortage(std::size_t bytes);
    ScopedMemoryShortage(const ScopedMemoryShortage&) = delete;
    ScopedMemoryShortage& operator=(const ScopedMemoryShortage&) = delete;
    ~ScopedMemoryShortage();
};

/// How many blocks the C++ heap has given out so far.
[[nodiscard]] long long AllocationsSoFar();

}  // namespace LoggingTests
