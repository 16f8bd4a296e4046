#include "radio/wwan_state.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include "platform/mbn_api.h"

namespace RadioTests {
namespace {

/// Says on the standard error stream that its last reference was given back. It outlives the process's
/// own objects, as what belongs to another process does.
template <class Interface>
class Telling : public Interface {
  public:
    explicit Telling(const char* name) : m_name(name) {}

    HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG WINAPI AddRef() override { return ++m_references; }
    ULONG WINAPI Release() override {
        if (--m_references == 0) {
            std::fprintf(stderr, "%s released;", m_name);
        }
        return m_references;
    }

  private:
    const char* m_name;
    ULONG m_references = 0;
};

class Manager final : public Telling<IMbnInterfaceManager> {
    using Telling::Telling;
    HRESULT WINAPI GetInterface(LPCWSTR, IMbnInterface**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetInterfaces(SAFEARRAY**) override { return E_NOTIMPL; }
};

class Radio final : public Telling<IMbnRadio> {
    using Telling::Telling;
    HRESULT WINAPI get_SoftwareRadioState(MBN_RADIO*) override { return E_NOTIMPL; }
    HRESULT WINAPI get_HardwareRadioState(MBN_RADIO*) override { return E_NOTIMPL; }
    HRESULT WINAPI SetSoftwareRadioState(MBN_RADIO, ULONG*) override { return E_NOTIMPL; }
};

/// What a service leaves behind that was stopped after a switch.
[[noreturn]] void PublishAndExit() {
    WwanState::interfaceManager = WwanState::Share<IMbnInterfaceManager>(new Manager("manager"));
    WwanState::lastRadio.store(WwanState::Share<IMbnRadio>(new Radio("radio")));
    std::fprintf(stderr, "exit;");
    std::exit(0);
}

TEST(WwanStateDeathTest, ManagerAndLastRadioAreReleasedWhenTheProcessExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(PublishAndExit(), testing::ExitedWithCode(0), "exit;radio released;manager released;");
}

}  // namespace
}  // namespace RadioTests
