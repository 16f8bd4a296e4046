// A log that is read must not stop the service from writing and rotating it.
#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "doctor/analysis/line_reader.h"

namespace Doctor {
namespace {

class SharedLog : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(m_folder);
        std::ofstream(m_log) << "one\ntwo\n";
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    const std::filesystem::path m_folder =
        std::filesystem::temp_directory_path() / ("shared_logs_" + std::to_string(GetCurrentProcessId()));
    const std::filesystem::path m_log = m_folder / "LinkvaneService.log";
};

TEST_F(SharedLog, CanBeRenamedWhileItIsRead) {
    LineReader reader(m_log);
    std::string_view line;
    ASSERT_TRUE(reader.Next(line));
    const std::filesystem::path older = m_folder / "LinkvaneService_0001.log";
    EXPECT_NE(MoveFileExW(m_log.c_str(), older.c_str(), MOVEFILE_REPLACE_EXISTING), FALSE) << GetLastError();
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ(line, "two");
}

TEST_F(SharedLog, CanBeDeletedWhileItIsRead) {
    const LineReader reader(m_log);
    EXPECT_NE(DeleteFileW(m_log.c_str()), FALSE) << GetLastError();
}

TEST_F(SharedLog, CanBeWrittenWhileItIsReadAndReadWhileItIsWritten) {
    const LineReader reader(m_log);
    std::ofstream writer(m_log, std::ios::app);
    EXPECT_TRUE(writer << "three\n" << std::flush);
    LineReader later(m_log);
    std::string_view line;
    EXPECT_TRUE(later.Next(line) && later.Next(line) && later.Next(line));
    EXPECT_EQ(line, "three");
}

}  // namespace
}  // namespace Doctor
