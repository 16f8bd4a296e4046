#include "logging/log_file.h"

#include <gmock/gmock.h>

#include <string>
#include <thread>

#include "tests/logging/held_mutex.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/policy_keys.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

using Orva::Shared::LogFile;
using Orva::Shared::OpenPolicyKeys;
using Orva::Shared::PolicyKeys;
using Rig::RegistryNumber;
using testing::ElementsAre;

class LogFileTest : public testing::Test {
  protected:
    void Locate() {
        PolicyKeys keys;
        OpenPolicyKeys(keys);
        EXPECT_TRUE(m_file.Locate(L"logging_tests.log", keys));
    }

    [[nodiscard]] bool MutexIsFree() const { return LoggingTests::MutexIsFree(m_appData.Log()); }

    Policies m_policies;
    AppData m_appData;
    LogFile m_file;
};

TEST_F(LogFileTest, LimitIsReadOnce) {
    m_policies.OfExecutable(L"MaxLogSize", RegistryNumber(2));
    Locate();
    m_policies.OfExecutable(L"MaxLogSize", RegistryNumber(1000));
    Locate();
    WriteBytes(m_appData.Log(), std::string(2 * 1024 + 1, 'x'));
    m_file.RotateLogFile(LogFile::Rotation::kWhenLarge);
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests_0001.log"));
}

TEST_F(LogFileTest, OpeningTwiceClosesTheFirstStreamAndTakesTheMutexASecondTime) {
    SKIP_UNLESS_IMPORTED(fclose);
    Locate();
    // A thread of its own: what it holds at its end is free for others.
    std::thread([this] {
        const CountedCalls<&::fclose> closes;
        EXPECT_TRUE(m_file.LockAndOpen());
        m_file.WriteEntry(Entry(L"one"));
        EXPECT_TRUE(m_file.LockAndOpen());
        EXPECT_EQ(closes.Calls(), 1);
        m_file.WriteEntry(Entry(L"two"));
        m_file.CloseAndUnlock();
        EXPECT_EQ(closes.Calls(), 2);
        EXPECT_FALSE(MutexIsFree()) << "taken twice, given back once";
        m_file.CloseAndUnlock();
        EXPECT_FALSE(MutexIsFree()) << "nothing is open, so nothing is given back";
    }).join();
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one", "two"));
}

}  // namespace
}  // namespace LoggingTests
