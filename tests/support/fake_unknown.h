#pragma once

#include <windows.h>
#include <unknwn.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>

namespace Rig {

/// Base of a fake COM object with one interface. The test owns the object, no release deletes it. It fails
/// the test when a reference is taken or given back while the code under test holds none, and when references
/// are left at its end:
///
///     class FakeRadio : public FakeUnknown<IMbnRadio> { ... };
///     FakeRadio radio;                 // lives in the test
///     radio.HandOut(out);              // the code under test has a reference now
///
/// Declare fakes before what uses them, so that they go last. Any thread may call.
template <class Interface>
class FakeUnknown : public Interface {
  public:
    FakeUnknown(const FakeUnknown&) = delete;
    FakeUnknown& operator=(const FakeUnknown&) = delete;

    [[nodiscard]] const std::string& Name() const { return m_name; }
    /// How many references the code under test holds now.
    [[nodiscard]] long References() const { return m_references; }

    /// Gives the code under test a reference.
    template <class Out>
    void HandOut(Out** out) {
        ++m_references;
        *out = this;
    }

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        const bool isKnown = interfaceId == __uuidof(IUnknown) || interfaceId == __uuidof(Interface);
        *object = isKnown ? this : nullptr;
        if (isKnown) {
            AddRef();
        }
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    ULONG WINAPI AddRef() override { return Change(+1); }
    ULONG WINAPI Release() override { return Change(-1); }

  protected:
    explicit FakeUnknown(std::string name) : m_name(std::move(name)) {}
    virtual ~FakeUnknown() { EXPECT_EQ(m_references, 0) << m_name << " was not released by all who held it"; }

  private:
    ULONG Change(long change) {
        const long before = m_references.fetch_add(change);
        EXPECT_GT(before, 0) << m_name << " is called by code that holds no reference";
        return static_cast<ULONG>(before + change);
    }

    const std::string m_name;
    std::atomic<long> m_references = 0;
};

}  // namespace Rig
