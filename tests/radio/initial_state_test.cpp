#include <gtest/gtest.h>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_state.h"

namespace RadioTests {
namespace {

/// What a process begins with. The first test of its program: each later one has a `Machine`, which sets
/// everything to what is expected here.
TEST(InitialState, NothingIsEnabledKnownOrBeingSwitched) {
    EXPECT_FALSE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_FALSE(NLMUtils::lanWwanSwitchingEnabled);
    EXPECT_FALSE(msm_Notification_flag);
    EXPECT_EQ(ServiceUtils::my_service_turnonoff_wifi, 0);
    EXPECT_FALSE(ServiceUtils::my_setwifitimeout);
    EXPECT_EQ(WwanState::interfaceManager.load(), nullptr);
    EXPECT_TRUE(WwanState::interfaceId.empty());
    EXPECT_FALSE(WwanState::devicePresent);
    EXPECT_EQ(WwanState::radioChangeEvent.load(), nullptr);
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
    EXPECT_EQ(WwanState::lastRadio.load(), nullptr);
    EXPECT_FALSE(WwanState::offWithoutEthernet);
    EXPECT_TRUE(WwanState::switchLock.try_lock());
    WwanState::switchLock.unlock();
}

}  // namespace
}  // namespace RadioTests
