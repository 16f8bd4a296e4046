// Rules that make platform calls slow, failing or held, seen through one call.

#include <windows.h>
#include <wlanapi.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "notebook/controller/conversation.h"
#include "notebook/state/calls.h"
#include "tests/notebook/hardware.h"

namespace Notebook::Tests {

namespace {

class CallRuleTest : public NotebookTest {
  protected:
    static void Rule(const CallRule& rule) {
        LockedMachine machine;
        machine->rules[static_cast<std::size_t>(Call::WlanOpenHandle)] = rule;
    }
    static CallCount Counted() {
        return SharedState::Get().Raw().counts[static_cast<std::size_t>(Call::WlanOpenHandle)];
    }
    /// Opens a client and closes it again.
    static DWORD Open() {
        DWORD version = 0;
        HANDLE handle = nullptr;
        const DWORD result = NotebookWlanOpenHandle(2, nullptr, &version, &handle);
        if (result == ERROR_SUCCESS) {
            NotebookWlanCloseHandle(handle, nullptr);
        }
        return result;
    }
};

/// The rule that the words of a command make.
CallRule RuleOf(const std::string& what) {
    const Command& call = CallCommands().front();
    call.run(Arguments(call.name, call.usage, SplitWords("WlanOpenHandle " + what)));
    return SharedState::Get().Raw().rules[static_cast<std::size_t>(Call::WlanOpenHandle)];
}

TEST_F(CallRuleTest, CommandSaysHowOftenWithWhatAndAfterHowManyCalls) {
    CallRule rule = RuleOf("fail 3 times with 5 after 2 calls");
    EXPECT_EQ(RuleKind::Fail, rule.kind);
    EXPECT_EQ((std::array<std::uint32_t, 3>{3, 5, 2}), (std::array{rule.left, rule.error, rule.skip}));
    EXPECT_EQ(kForEver, RuleOf("fail always with 0x80070005").left);
    rule = RuleOf("fail once with 0x80070005 after 1 call");
    EXPECT_EQ((std::array<std::uint32_t, 3>{1, 0x80070005, 1}),
              (std::array{rule.left, rule.error, rule.skip}));
    rule = RuleOf("until-stopped after 4 calls");
    EXPECT_EQ(RuleKind::HoldUntilStopped, rule.kind);
    EXPECT_EQ((std::array<std::uint32_t, 2>{1, 4}), (std::array{rule.left, rule.skip}));
    EXPECT_EQ(2U, RuleOf("until-stopped 2 times").left);
}

TEST_F(CallRuleTest, CommandThatCouldBeReadAnotherWayIsRefused) {
    for (const char* const what :
         {"fail 3 5 after 2", "fail once 5", "fail 3 times 5", "fail once with 5 after 2", "until-stopped 3",
          "fail with 5", "fail", "until-stopped once more", "", "fail once with 5 after 1 calls",
          "fail once with 5 after 2 call", "slow", "slow down", "ok 5"}) {
        SCOPED_TRACE(what);
        EXPECT_THROW(RuleOf(what), CommandError);
    }
}

TEST_F(CallRuleTest, FailsAsOftenAndAsLateAsItShould) {
    const struct {
        const char* what;
        std::vector<DWORD> results;
    } rows[] = {
        {"fail once with 5", {5, 0, 0, 0}},
        {"fail 2 times with 5 after 1 call", {0, 5, 5, 0}},
        {"fail once with 5 after 2 calls", {0, 0, 5, 0}},
        {"fail always with 5", {5, 5, 5, 5}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        RuleOf(row.what);
        std::vector<DWORD> results;
        for (int i = 0; i < 4; ++i) {
            results.push_back(Open());
        }
        EXPECT_EQ(results, row.results);
    }
    EXPECT_EQ(16, Counted().calls);
    EXPECT_EQ(8, Counted().failed);
}

TEST_F(CallRuleTest, SlowCallTakesItsTimeAndSucceeds) {
    Rule({RuleKind::None, 0, 0, 0, 30});
    const Micros start = Now();
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Open());
    EXPECT_GE(Now() - start, 30 * kMicrosPerMilli);
}

TEST_F(CallRuleTest, HeldCallComesBackWhenTheServiceHasStoppedOrItsRuleIsGone) {
    void (*const releases[])() = {[] { Rule({}); }, [] { SharedState::Get().Raw().service.stopped = 1; }};
    const Activity& activity = SharedState::Get().Raw().activity;
    for (const auto release : releases) {
        SharedState::Get().Raw().service.stopped = 0;
        Rule({RuleKind::HoldUntilStopped, 0, 1, 0, 0});
        std::atomic<bool> back{false};
        std::thread caller([&] {
            Open();
            back = true;
        });
        EXPECT_TRUE(Eventually([&] { return activity.callsBegun - activity.callsEnded == 1; }));
        EXPECT_FALSE(back);
        release();
        caller.join();
        EXPECT_EQ(activity.callsBegun, activity.callsEnded);
    }
}

}  // namespace

}  // namespace Notebook::Tests
