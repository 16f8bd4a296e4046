#pragma once

#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

namespace Rig {

/// Enters COM on the calling thread for a scope: COINIT_MULTITHREADED or
/// COINIT_APARTMENTTHREADED. Fails the test when that is not possible.
class ComApartment {
  public:
    explicit ComApartment(DWORD model = COINIT_MULTITHREADED)
        : m_entered(SUCCEEDED(CoInitializeEx(nullptr, model))) {
        EXPECT_TRUE(m_entered) << "the thread cannot enter this COM apartment";
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment() {
        if (m_entered) {
            CoUninitialize();
        }
    }

  private:
    bool m_entered;
};

}  // namespace Rig
