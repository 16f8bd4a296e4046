#include "tests/doctor/damaged_logs.h"

#include <gtest/gtest.h>

#include "tests/doctor/written_log.h"

namespace Doctor {
namespace {

TEST(DamagedLogs, GetAVerdictAndWholeReports) {
    constexpr std::uint64_t kLogs = 2000;
    const ScratchFolder folder;
    const std::string whole = WholeLog();
    ASSERT_FALSE(whole.empty());
    for (std::uint64_t number = 0; number < kLogs; ++number) {
        ASSERT_EQ(TryDamagedLog(folder.Path().string(), whole, number), "") << "log " << number;
    }
}

}  // namespace
}  // namespace Doctor
