#include "platform/pause.h"

#include <gmock/gmock.h>

#include "tests/support/test_clock.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(PauseTest, ThreadSleepsForThatLong) {
    const Rig::TestClock clock;
    Platform::Pause(400ms);
    Platform::Pause(2s);
    EXPECT_THAT(clock.Sleeps(), ElementsAre(400, 2000));
}

}  // namespace
