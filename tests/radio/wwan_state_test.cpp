#include "radio/wwan_state.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <deque>

#include "tests/radio/fake_modem.h"

namespace RadioTests {
namespace {

/// Says on the standard error stream that its last reference was given back.
template <class Fake>
class Telling : public Fake {
  public:
    using Fake::Fake;

    ULONG WINAPI Release() override {
        const ULONG left = Fake::Release();
        if (left == 0) {
            std::fprintf(stderr, "%s released;", Fake::Name().c_str());
        }
        return left;
    }
};

/// What a service leaves behind that was stopped after a switch. The fakes outlive the process's
/// own objects, as what belongs to another process does.
[[noreturn]] void PublishAndExit() {
    auto& modems = *new std::deque<FakeInterface>();
    auto& manager = *new Telling<FakeManager>(modems);
    auto& radio = *new Telling<FakeRadio>(MBN_RADIO_ON);
    Publish(manager);
    IMbnRadio* completed = nullptr;
    radio.HandOut(&completed);
    WwanState::lastRadio.store(WwanState::Share(completed));
    completed->Release();
    std::fprintf(stderr, "exit;");
    std::exit(0);
}

TEST(WwanStateDeathTest, ManagerAndLastRadioAreReleasedWhenTheProcessExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(PublishAndExit(), testing::ExitedWithCode(0), "exit;radio released;manager released;");
}

}  // namespace
}  // namespace RadioTests
