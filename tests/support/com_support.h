#pragma once

#include <windows.h>
#include <objbase.h>

#include <functional>
#include <memory>

#include "tests/support/fake_unknown.h"

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

/// Makes `CoCreateInstance` of a class give the test's own object, for a scope. It counts for the
/// apartment of the thread that makes it (the multithreaded one: for all its threads).
///
///     const ComApartment com;
///     FakeManager manager;
///     const ScopedClassObject managerClass{CLSID_NetworkListManager, manager};
///     const ScopedClassObject missing{CLSID_WbemLocator, E_ACCESSDENIED};
class ScopedClassObject {
  public:
    /// Makes an object, with a reference, for an interface.
    using Creator = std::function<HRESULT(REFIID, void**)>;

    ScopedClassObject(REFCLSID classId, Creator create);
    /// Every instance is this one fake.
    ScopedClassObject(REFCLSID classId, FakeObject& object);
    /// Every instance is this one object; the test keeps its own reference to it.
    ScopedClassObject(REFCLSID classId, IUnknown* object);
    /// No instance can be made.
    ScopedClassObject(REFCLSID classId, HRESULT error);
    ScopedClassObject(const ScopedClassObject&) = delete;
    ScopedClassObject& operator=(const ScopedClassObject&) = delete;
    ~ScopedClassObject();

    /// How often an instance was asked for.
    [[nodiscard]] int Created() const;

  private:
    class Factory;

    Factory* m_factory;
    DWORD m_registration = 0;
};

}  // namespace Rig
