#include "doctor/zip_file.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using Doctor::ZipFile;

class ZipFileTest : public testing::Test {
  protected:
    ~ZipFileTest() override { std::filesystem::remove(m_path); }

    [[nodiscard]] std::string Content() const {
        std::ifstream file(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::filesystem::path m_path =
        std::filesystem::temp_directory_path() / (L"zip_file_test" + std::to_wstring(GetCurrentProcessId()));
};

std::uint32_t NumberAt(const std::string& content, std::size_t offset, std::size_t bytes) {
    std::uint32_t number = 0;
    std::memcpy(&number, content.data() + offset, bytes);
    return number;
}

TEST_F(ZipFileTest, EntryUnpacksToWhatWentIn) {
    const std::string wanted = std::string(300'000, 'x') + "end";
    ZipFile zip(m_path.c_str());
    zip.Add("a", wanted);
    ASSERT_TRUE(zip.Finish());
    const std::string content = Content();
    const std::uint32_t packed = NumberAt(content, 18, 4);
    std::string unpacked(wanted.size(), '\0');
    z_stream stream{};
    ASSERT_EQ(inflateInit2(&stream, -MAX_WBITS), Z_OK);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data())) + 30 + 1;
    stream.avail_in = packed;
    stream.next_out = reinterpret_cast<Bytef*>(unpacked.data());
    stream.avail_out = static_cast<uInt>(unpacked.size());
    EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
    inflateEnd(&stream);
    EXPECT_EQ(unpacked, wanted);
    EXPECT_EQ(NumberAt(content, 22, 4), wanted.size());
}

TEST_F(ZipFileTest, SourceThatFailsIsReportedAndLeavesAnEntryOfWhatCameBefore) {
    ZipFile zip(m_path.c_str());
    int calls = 0;
    EXPECT_FALSE(zip.Add("broken", [&calls](char* place, std::size_t) -> std::ptrdiff_t {
        *place = 'x';
        return ++calls == 1 ? 1 : -1;
    }));
    EXPECT_TRUE(zip.Finish());
    EXPECT_EQ(NumberAt(Content(), 22, 4), 1U);
}

TEST_F(ZipFileTest, FolderThatIsNotThereIsNoGood) {
    EXPECT_FALSE(ZipFile(L"C:\\no such folder\\x.zip").IsGood());
}

}  // namespace
