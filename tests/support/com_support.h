#pragma once

#include <windows.h>
#include <objbase.h>

namespace Rig {

/// Enters COM on the calling thread for a scope: COINIT_MULTITHREADED or
/// COINIT_APARTMENTTHREADED. Fails the test when that is not possible.
class ComApartment {
  public:
    explicit ComApartment(DWORD model = COINIT_MULTITHREADED);
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment();

  private:
    bool m_entered;
};

}  // namespace Rig
