#include "doctor/analysis/lane.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace Doctor {
namespace {

/// The lane from 0 to 100 as text: `0 unknown, 10 on, ...`.
std::string TextOf(const Lane& lane) {
    std::string text;
    for (const Interval& interval : lane.Between(0, 100)) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", interval.from, StateName(interval.state));
    }
    return text;
}

class ALane : public ::testing::Test {
  protected:
    void Set(Time time, State state) { m_lane.Set(time, state, Who::kUser, "", std::nullopt); }
    void Find(Time time, State state) { m_lane.Find(time, state, Who::kUnknown, "", std::nullopt); }

    Lane m_lane{"wifi", "Wi-Fi"};
};

TEST_F(ALane, IsUnknownUntilItIsSeen) {
    EXPECT_EQ(TextOf(m_lane), "0 unknown");
    Find(10, State::kOn);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on");
}

TEST_F(ALane, ChangesWhenAChangeIsSeen) {
    Find(10, State::kOn);
    Set(30, State::kOff);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on, 30 off");
}

TEST_F(ALane, IsUnknownBetweenTwoLooksThatDiffer) {
    Find(10, State::kOn);
    Find(20, State::kOn);
    Find(50, State::kOff);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on, 20 unknown, 50 off");
}

TEST_F(ALane, StaysKnownOverADoubtThatALookDispels) {
    Find(10, State::kOn);
    m_lane.Doubt(30, "it slept");
    Find(60, State::kOn);
    Set(80, State::kOff);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on, 80 off");
}

TEST_F(ALane, IsUnknownFromADoubtOnWhenItThenDiffers) {
    Find(10, State::kOn);
    m_lane.Doubt(30, "it slept");
    Set(60, State::kOff);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on, 30 unknown, 60 off");
    EXPECT_EQ(m_lane.Between(30, 60).front().why, "it slept");
}

TEST_F(ALane, DoesNotTakeBackWhatWasSeenLater) {
    Find(10, State::kOn);
    Set(40, State::kOff);
    Set(20, State::kOn);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on");
}

TEST_F(ALane, IsUnknownAfterItIsForgotten) {
    Find(10, State::kOn);
    m_lane.Forget(20, "the service stopped", std::nullopt);
    Find(70, State::kOn);
    EXPECT_EQ(TextOf(m_lane), "0 unknown, 10 on, 20 unknown, 70 on");
}

}  // namespace
}  // namespace Doctor
