#pragma once

#include <gtest/gtest.h>

#include "tests/support/scoped_import.h"

namespace Rig {

/// Whether a function of the C runtime cannot be replaced, because the runtime is linked into the test
/// executable. Only Microsoft's compiler is told to do that: with others it is a mistake of the test.
template <auto Function>
[[nodiscard]] bool IsLinkedIn() {
#if defined(_MSC_VER)
    return !IsImported<Function>();
#else
    return false;
#endif
}

}  // namespace Rig

/// For a test that replaces a function of the C runtime: skips it where the runtime is linked in. A test
/// that replaces HeapAlloc or HeapFree asks for `malloc`, which then takes its memory from them, for the rig
/// as well. A macro, because a test is skipped by returning from it.
#define SKIP_UNLESS_IMPORTED(function)                                            \
    if (Rig::IsLinkedIn<&::function>()) {                                         \
        GTEST_SKIP() << "The C runtime is linked in: no import of " << #function; \
    }                                                                             \
    static_assert(true)
