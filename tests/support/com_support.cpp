#include "tests/support/com_support.h"

#include <gtest/gtest.h>

namespace Rig {

ComApartment::ComApartment(DWORD model) : m_entered(SUCCEEDED(CoInitializeEx(nullptr, model))) {
    EXPECT_TRUE(m_entered) << "the thread cannot enter this COM apartment";
}

ComApartment::~ComApartment() {
    if (m_entered) {
        CoUninitialize();
    }
}

}  // namespace Rig
