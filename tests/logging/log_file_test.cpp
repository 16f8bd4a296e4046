#include "logging/log_file.h"

#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/logging/log_entries.h"
#include "tests/logging/log_test.h"
#include "tests/support/ledger.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

using Orva::Shared::LogFile;
using Orva::Shared::OpenedLogFile;
using Orva::Shared::OpenPolicyKeys;
using Orva::Shared::PolicyKeys;

constexpr auto kForced = LogFile::Rotation::kForced;
constexpr auto kWhenLarge = LogFile::Rotation::kWhenLarge;

class LogFileTest : public LogTest {
  protected:
    /// The log's limit, in kilobytes.
    void Limit(DWORD kilobytes) { m_policies.OfExecutable(L"MaxLogSize", RegistryNumber(kilobytes)); }

    /// A log file that knows its settings; the same for a whole test.
    LogFile& File() {
        if (m_file == nullptr) {
            PolicyKeys keys;
            OpenPolicyKeys(keys);
            m_file = std::make_unique<LogFile>(L"logging_tests.log", keys);
        }
        return *m_file;
    }

  private:
    std::unique_ptr<LogFile> m_file;
};

TEST_F(LogFileTest, OpeningTwiceClosesTheFirstStreamAndTakesTheMutexASecondTime) {
    SKIP_UNLESS_IMPORTED(fclose);
    // A thread of its own: what it holds at its end is free for others.
    std::thread([this] {
        LogFile& file = File();
        const ScopedWatch<&::fclose> closes;
        EXPECT_TRUE(file.LockAndOpen());
        file.WriteEntry(Entry(L"one"));
        EXPECT_TRUE(file.LockAndOpen());
        EXPECT_EQ(closes.Calls(), 1);
        file.WriteEntry(Entry(L"two"));
        file.CloseAndUnlock();
        EXPECT_EQ(closes.Calls(), 2);
        EXPECT_FALSE(MutexIsFree()) << "taken twice, given back once";
        file.CloseAndUnlock();
        EXPECT_FALSE(MutexIsFree()) << "nothing is open, so nothing is given back";
    }).join();
    EXPECT_THAT(Messages(), ElementsAre("one", "two"));
}

/// Begins with a log whose text is "current".
class RotationTest : public LogFileTest {
  protected:
    RotationTest() {
        m_appData.MakeLogDirectory();
        WriteBytes(m_appData.Log(), "current");
    }

    /// Rotates as a writer does: with the file open.
    void Rotate(LogFile::Rotation rotation = kForced) {
        const OpenedLogFile file(File());
        ASSERT_TRUE(file);
        EXPECT_FALSE(file->RotateLogFile(rotation)) << "never says that it did";
    }

    /// Numbered files 1 to `count`, number 1 the newest, each with its first number as its text.
    void MakeNumbered(int count) {
        for (int number = 1; number <= count; ++number) {
            WriteBytes(m_appData.Log(number), std::to_string(number));
            SetLastWrite(m_appData.Log(number), 1000 - number);
        }
    }

    [[nodiscard]] std::string TextOf(int number) const {
        return Exists(m_appData.Log(number)) ? ReadBytes(m_appData.Log(number)) : "-";
    }

    /// What stands in the numbered files from 1 on.
    [[nodiscard]] std::vector<std::string> Texts(int count) const {
        std::vector<std::string> texts;
        for (int number = 1; number <= count; ++number) {
            texts.push_back(TextOf(number));
        }
        return texts;
    }
};

TEST_F(RotationTest, WithoutAnOpenFileOnlyRenames) {
    EXPECT_FALSE(File().RotateLogFile(kForced));
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests_0001.log"));
}

class RotationOfMany : public RotationTest, public testing::WithParamInterface<int> {};

TEST_P(RotationOfMany, GivesEachTheNextNumberAndDeletesTheOldestOfJustNine) {
    const int count = GetParam();
    MakeNumbered(count);
    Rotate();
    std::vector<std::string> expected{"current"};
    for (int number = 1; number <= (count == 9 ? 8 : count); ++number) {
        expected.push_back(std::to_string(number));
    }
    expected.emplace_back("-");
    EXPECT_EQ(Texts(static_cast<int>(expected.size())), expected);
    EXPECT_EQ(m_appData.Names().size(), expected.size());
    EXPECT_EQ(ReadBytes(m_appData.Log()), kByteOrderMark);
}

INSTANTIATE_TEST_SUITE_P(Counts, RotationOfMany, testing::Values(0, 1, 8, 9, 10, 25));

/// Numbered files with texts and ages, in minutes after some day.
struct AgedFile {
    int number;
    const char* text;
    int minutes;
};

class RotationByAge : public RotationTest {
  protected:
    void RotateAged(const std::vector<AgedFile>& files) {
        for (const AgedFile& file : files) {
            WriteBytes(m_appData.Log(file.number), file.text);
            SetLastWrite(m_appData.Log(file.number), file.minutes);
        }
        Rotate();
    }
};

TEST_F(RotationByAge, AgeCountsNotTheNumber) {
    RotateAged({{1, "oldest", 1}, {2, "newest", 3}, {7, "middle", 2}});
    EXPECT_THAT(Texts(5), ElementsAre("current", "newest", "middle", "oldest", "-"));
}

TEST_F(RotationByAge, AgeIsTheWholeTimeNotItsLowHalf) {
    // The low half of a file time runs over about every seven minutes.
    RotateAged({{3, "old", 0}, {4, "new", 7}, {5, "newer", 100}});
    EXPECT_THAT(Texts(4), ElementsAre("current", "newer", "new", "old"));
}

TEST_F(RotationByAge, OfTwoFilesOfTheSameTimeOneKeepsItsName) {
    RotateAged({{5, "same", 1}, {6, "same", 1}});
    EXPECT_THAT(Texts(2), ElementsAre("current", "same"));
    EXPECT_TRUE(Exists(m_appData.Log(5)) != Exists(m_appData.Log(6)));
    EXPECT_EQ(m_appData.Names().size(), 4U);
}

TEST_F(RotationByAge, FileThatKeepsItsNameMayBlockATarget) {
    RotateAged({{1, "same", 1}, {2, "same", 1}});
    // Either number 1 or number 2 stays. Nothing is overwritten, whichever it is.
    std::multiset<std::string> texts;
    for (const std::wstring& name : m_appData.Names()) {
        texts.insert(ReadBytes(m_appData.File(name)));
    }
    EXPECT_EQ(texts.count("same"), 2U);
    EXPECT_EQ(texts.count("current"), 1U);
}

TEST_F(RotationTest, NineFilesOfWhichTwoHaveTheSameTimeCountAsEight) {
    MakeNumbered(9);
    SetLastWrite(m_appData.Log(9), 1000 - 8);
    Rotate();
    // Number 8 or 9 has kept its name; nothing was deleted.
    EXPECT_EQ(m_appData.Names().size(), 11U);
    EXPECT_EQ(TextOf(2), "1");
}

TEST_F(RotationTest, WhateverIsNamedLikeANumberedFileIsTakenForOne) {
    WriteBytes(m_appData.File(L"logging_tests_notes.log"), "notes");
    WriteBytes(m_appData.File(L"logging_tests.log.bak"), "backup");
    WriteBytes(m_appData.File(L"other_0001.log"), "other");
    Rotate();
    EXPECT_THAT(Texts(3), ElementsAre("current", "notes", "-"));
    EXPECT_EQ(ReadBytes(m_appData.File(L"logging_tests.log.bak")), "backup");
    EXPECT_EQ(ReadBytes(m_appData.File(L"other_0001.log")), "other");
}

TEST_F(RotationTest, TemporaryFileOfAnInterruptedRotationIsInNobodysWay) {
    MakeNumbered(2);
    std::array<wchar_t, MAX_PATH> temporary{};
    GetTempFileNameW((m_appData.LogDirectory() + L"\\").c_str(), L"_log_", 3, temporary.data());
    WriteBytes(temporary.data(), "left over");
    Rotate();
    EXPECT_THAT(Texts(4), ElementsAre("current", "1", "2", "-"));
    EXPECT_EQ(m_appData.Names().size(), 4U);
}

TEST_F(RotationTest, TemporaryNamesAreNumberedModulo256) {
    MakeNumbered(257);
    std::vector<UINT> numbers;
    const ScopedImport<&::GetTempFileNameW> name{
        [&](LPCWSTR directory, LPCWSTR prefix, UINT number, LPWSTR path) {
            EXPECT_EQ(directory, m_appData.LogDirectory() + L"\\");
            EXPECT_STREQ(prefix, L"_log_");
            numbers.push_back(number);
            return name.Original(directory, prefix, number, path);
        }};
    Rotate();
    ASSERT_EQ(numbers.size(), 257U);
    EXPECT_EQ(numbers[0], 258U % 256U);
    EXPECT_EQ(numbers[1], 1U);
    EXPECT_EQ(numbers[2], 0U);
    EXPECT_EQ(numbers[3], 255U);
    EXPECT_EQ(numbers.back(), 2U);
    EXPECT_EQ(TextOf(1), "current");
    // Where the numbers come round, two files share a name, and the older one is lost.
    EXPECT_EQ(m_appData.Names().size(), 258U);
}

// --- Size -------------------------------------------------------------------------------------

/// Lets the log appear to be of another size, for a scope.
class ScopedSize {
  public:
    ScopedSize(DWORD high, DWORD low)
        : m_attributes([this, high, low](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
              const BOOL result = m_attributes.Original(path, level, data);
              static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data)->nFileSizeHigh = high;
              static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data)->nFileSizeLow = low;
              return result;
          }) {}
    [[nodiscard]] int Checks() const { return m_attributes.Calls(); }

  private:
    ScopedImport<&::GetFileAttributesExW> m_attributes;
};

struct SizeCase {
    DWORD limitKilobytes;
    DWORD high;
    DWORD low;
    LogFile::Rotation rotation;
    bool isRotated;
};

class RotationBySize : public RotationTest, public testing::WithParamInterface<SizeCase> {};

TEST_P(RotationBySize, ComparesTheWholeSizeWithTheLimit) {
    const SizeCase& one = GetParam();
    Limit(one.limitKilobytes);
    const ScopedSize size(one.high, one.low);
    Rotate(one.rotation);
    EXPECT_EQ(TextOf(1), one.isRotated ? "current" : "-");
}

INSTANTIATE_TEST_SUITE_P(Sizes, RotationBySize,
                         testing::Values(SizeCase{2, 0, 2 * 1024, kWhenLarge, false},
                                         SizeCase{2, 0, 2 * 1024 + 1, kWhenLarge, true},
                                         SizeCase{2, 0, 1, kForced, true},
                                         // Zero falls back to 2048.
                                         SizeCase{0, 0, 2048 * 1024, kWhenLarge, false},
                                         SizeCase{0, 0, 2048 * 1024 + 1, kWhenLarge, true},
                                         // Of four gigabytes and more.
                                         SizeCase{2048, 1, 0, kWhenLarge, true},
                                         // A limit beyond what the low half can have.
                                         SizeCase{0xfffffffe, 0, 0xffffffff, kWhenLarge, false}));

TEST_F(RotationTest, DoesNothingWithoutALog) {
    MakeNumbered(2);
    DeleteFileW(m_appData.Log().c_str());
    EXPECT_FALSE(File().RotateLogFile(kForced));
    EXPECT_THAT(Texts(3), ElementsAre("1", "2", "-"));
}

TEST_F(RotationTest, DoesNothingWhenTheLogCannotBeAskedFor) {
    MakeNumbered(1);
    const ScopedResult<&::GetFileAttributesExW> fails{FALSE, ERROR_ACCESS_DENIED};
    Rotate();
    EXPECT_THAT(Texts(2), ElementsAre("1", "-"));
}

// --- When the size is looked at ---------------------------------------------------------------

/// At which of `writes` lines the size was looked at, counted from one.
std::vector<int> ChecksDuring(LogFile& file, int writes) {
    const ScopedSize size(0, 0);
    std::vector<int> checks;
    const auto entry = Entry(L"x");
    const OpenedLogFile opened(file);
    for (int write = 1; write <= writes; ++write) {
        const int before = size.Checks();
        opened->WriteEntry(entry);
        if (size.Checks() != before) {
            checks.push_back(write);
        }
    }
    return checks;
}

struct CheckCase {
    DWORD limitKilobytes;
    int writes;
    std::vector<int> checks;
};

class SizeChecks : public LogFileTest, public testing::WithParamInterface<CheckCase> {};

TEST_P(SizeChecks, ComeAtTheFirstWriteAndThenEveryFiveWritesAKilobyteAndOne) {
    Limit(GetParam().limitKilobytes);
    EXPECT_EQ(ChecksDuring(File(), GetParam().writes), GetParam().checks);
}

INSTANTIATE_TEST_SUITE_P(Limits, SizeChecks,
                         testing::Values(CheckCase{2048, 21000, {1, 10242, 20483}},
                                         CheckCase{1, 20, {1, 7, 13, 19}},
                                         // Ten times the limit has a sign.
                                         CheckCase{0x10000000, 4, {1, 2, 3, 4}},
                                         // Ten times this is one below the greatest signed number, once
                                         // the high bits are cut off: the counter runs over.
                                         CheckCase{0x73333333, 3, {1}}));

TEST_F(RotationTest, LineGoesToTheNewFileWhenTheSizeIsExceeded) {
    Limit(1);
    WriteBytes(m_appData.Log(), std::string(kLogLine) + std::string(2000, 'x') + "\r\n");
    {
        const OpenedLogFile file(File());
        file->WriteEntry(Entry(L"new"));
    }
    EXPECT_EQ(TextOf(1).size(), kLogLine.size() + 2002);
    EXPECT_THAT(Messages(), ElementsAre("new"));
}

TEST_F(RotationTest, SteadyWritingKeepsNineNumberedFiles) {
    Limit(1);
    {
        const OpenedLogFile file(File());
        for (int line = 0; line < 400; ++line) {
            file->WriteEntry(Entry(std::wstring(200, L'x')));
        }
    }
    EXPECT_EQ(m_appData.Names().size(), 10U);
    EXPECT_TRUE(Exists(m_appData.Log(9)));
}

// --- Failures ---------------------------------------------------------------------------------

struct RenameCase {
    int which;  ///< counted from 1 in the order of the rotation
    int calls;
    std::vector<std::string> numbered;
    std::size_t files;
};

class FailingRename : public RotationTest, public testing::WithParamInterface<RenameCase> {};

TEST_P(FailingRename, StopsTheNewerOnesOrLeavesATemporaryFile) {
    const RenameCase& one = GetParam();
    MakeNumbered(3);
    const ScopedResult<&::MoveFileW> fails{FALSE, ERROR_SHARING_VIOLATION, Rig::AtCall(one.which)};
    Rotate();
    EXPECT_EQ(fails.Calls(), one.calls);
    EXPECT_EQ(Texts(5), one.numbered);
    EXPECT_EQ(m_appData.Names().size(), one.files);
    const bool isMoved = one.numbered.front() == "current";
    EXPECT_EQ(ReadBytes(m_appData.Log()), isMoved ? kByteOrderMark : "current");
}

INSTANTIATE_TEST_SUITE_P(Renames, FailingRename,
                         testing::Values(RenameCase{1, 2, {"1", "2", "3", "-", "-"}, 4},
                                         RenameCase{2, 4, {"1", "2", "-", "3", "-"}, 4},
                                         RenameCase{3, 6, {"1", "-", "2", "3", "-"}, 4},
                                         // In the second phase.
                                         RenameCase{5, 7, {"current", "1", "-", "3", "-"}, 5},
                                         // The log itself.
                                         RenameCase{7, 7, {"-", "1", "2", "3", "-"}, 4}));

TEST_F(RotationTest, DeletionThatFailsLeavesTheOldestInTheWay) {
    MakeNumbered(9);
    const ScopedImport<&::DeleteFileW> fails{[&](LPCWSTR path) { return path == m_appData.Log(9); },
                                             [](LPCWSTR) {
                                                 SetLastError(ERROR_SHARING_VIOLATION);
                                                 return FALSE;
                                             }};
    Rotate();
    // Number 8 cannot become 9 and stays under its temporary name.
    EXPECT_THAT(Texts(9), ElementsAre("current", "1", "2", "3", "4", "5", "6", "7", "9"));
    EXPECT_EQ(m_appData.Names().size(), 11U);
}

TEST_F(RotationTest, WithoutATemporaryNameNothingIsMoved) {
    MakeNumbered(2);
    const ScopedResult<&::GetTempFileNameW> fails{0, ERROR_BUFFER_OVERFLOW};
    Rotate();
    EXPECT_THAT(Texts(3), ElementsAre("1", "2", "-"));
}

TEST_F(RotationTest, LogThatCannotBeReopenedKeepsTheMutexAndWritesNothing) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    {
        const OpenedLogFile file(File());
        ASSERT_TRUE(file);
        const ScopedImport<&::_wfopen> fails{[](auto...) -> FILE* { return nullptr; }};
        const ScopedResult<&::ReleaseMutex> release{TRUE};
        file->RotateLogFile(kForced);
        file->WriteEntry(Entry(L"lost"));
        file->CloseAndUnlock();
        EXPECT_EQ(release.Calls(), 0);
    }
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests_0001.log"));
    // The same thread writes on.
    const OpenedLogFile file(File());
    ASSERT_TRUE(file);
    file->WriteEntry(Entry(L"one"));
}

TEST_F(RotationTest, LineThatFindsNoNewFileAfterItsRotationIsLost) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    Limit(1);
    WriteBytes(m_appData.Log(), std::string(kLogLine) + std::string(2000, 'x') + "\r\n");
    {
        const OpenedLogFile file(File());
        const ScopedImport<&::_wfopen> fails{[](auto...) -> FILE* { return nullptr; }};
        file->WriteEntry(Entry(L"lost"));
        EXPECT_EQ(fails.Calls(), 1);
        const ScopedWatch<&::fflush> flushes;
        file->Flush();
        EXPECT_EQ(flushes.Calls(), 0);
    }
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests_0001.log"));
    EXPECT_EQ(TextOf(1).size(), kLogLine.size() + 2002);
}

TEST_F(RotationTest, GivesEverythingBack) {
    MakeNumbered(9);
    static_cast<void>(File());
    const Rig::Ledger ledger;
    Rotate();
}

}  // namespace
}  // namespace LoggingTests
