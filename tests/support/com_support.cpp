#include "tests/support/com_support.h"

#include <gtest/gtest.h>

#include <atomic>

namespace Rig {

ComApartment::ComApartment(DWORD model) : m_entered(SUCCEEDED(CoInitializeEx(nullptr, model))) {
    EXPECT_TRUE(m_entered) << "the thread cannot enter this COM apartment";
}

ComApartment::~ComApartment() {
    if (m_entered) {
        CoUninitialize();
    }
}

/// Deletes itself with its last reference, which may be COM's own.
class ScopedClassObject::Factory final : public IClassFactory {
  public:
    explicit Factory(Creator create) : m_create(std::move(create)) {}
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        if (interfaceId != __uuidof(IUnknown) && interfaceId != __uuidof(IClassFactory)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    ULONG WINAPI AddRef() override { return ++m_references; }
    ULONG WINAPI Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT WINAPI CreateInstance(IUnknown* outer, REFIID interfaceId, void** object) override {
        ++m_created;
        *object = nullptr;
        return outer != nullptr ? CLASS_E_NOAGGREGATION : m_create(interfaceId, object);
    }
    HRESULT WINAPI LockServer(BOOL /*lock*/) override { return S_OK; }

    [[nodiscard]] int Created() const { return m_created; }

  private:
    ~Factory() = default;

    Creator m_create;
    std::atomic<ULONG> m_references = 1;
    std::atomic<int> m_created = 0;
};

ScopedClassObject::ScopedClassObject(REFCLSID classId, Creator create)
    : m_factory(new Factory(std::move(create))) {
    const HRESULT result =
        CoRegisterClassObject(classId, m_factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_registration);
    EXPECT_EQ(result, S_OK) << "the class cannot be registered: is the thread in COM?";
}

ScopedClassObject::ScopedClassObject(REFCLSID classId, FakeObject& object)
    : ScopedClassObject(
          classId, [&object](REFIID interfaceId, void** out) { return object.HandOut(interfaceId, out); }) {}

ScopedClassObject::ScopedClassObject(REFCLSID classId, IUnknown* object)
    : ScopedClassObject(classId, [object](REFIID interfaceId, void** out) {
          return object->QueryInterface(interfaceId, out);
      }) {}

ScopedClassObject::ScopedClassObject(REFCLSID classId, HRESULT error)
    : ScopedClassObject(classId, [error](REFIID, void**) { return error; }) {}

ScopedClassObject::~ScopedClassObject() {
    if (m_registration != 0) {
        CoRevokeClassObject(m_registration);
    }
    m_factory->Release();
}

int ScopedClassObject::Created() const {
    return m_factory->Created();
}

}  // namespace Rig
