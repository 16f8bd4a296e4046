#include "logging/file_listener.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "logging/logger.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/log_test.h"
#include "tests/support/ledger.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::CorvaLogListenerFile;

constexpr bool kQueued = true;
constexpr bool kSynchronous = false;

// --- With and without a queue -----------------------------------------------------------------

class WrittenFile : public LogTest, public testing::WithParamInterface<bool> {};

TEST_P(WrittenFile, IsInUtf8WithMarkAndWindowsLineEnds) {
    {
        CorvaLogListenerFile listener(GetParam());
        listener.Log(Entry(L"one \x00e4\x20ac\xd83d\xde00", Level::kInformation, "A::B"));
        listener.Log(Entry(L"a\nb", Level::kError, "A::B"));
        listener.Log(Entry(L"", Level::kTraceOut, "A::B"));
    }
    WaitForWriter();
    EXPECT_EQ(ReadBytes(m_appData.Log()),
              "\xEF\xBB\xBF"
              "2019/04/05 13:07:09.042|00001A2C|Information|A::B|one \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\r\n"
              "2019/04/05 13:07:09.042|00001A2C|Error      |A::B|a\r\nb\r\n"
              "2019/04/05 13:07:09.042|00001A2C|TraceOut   |A::B|\r\n");
}

TEST_P(WrittenFile, HasTheWholeLinesOfManyThreads) {
    constexpr int kLines = 200;
    {
        CorvaLogListener* const listener = new CorvaLogListenerFile(GetParam());
        CorvaLogger logger(&listener, 1);
        LogOnManyThreads(logger, kLines);
        EXPECT_TRUE(HasLines(4U * kLines));
    }
    ExpectLinesOfManyThreads(Messages(), kLines);
}

TEST_P(WrittenFile, CostsNothingThatIsNotGivenBack) {
    const Rig::Ledger ledger;
    { CorvaLogListenerFile(GetParam()).Log(Entry(L"one")); }
    EXPECT_TRUE(ledger.Balanced(std::chrono::seconds(10)));
}

INSTANTIATE_TEST_SUITE_P(Queued, WrittenFile, testing::Bool());

class FileListenerTest : public LogTest {
  protected:
    /// Begins with a file of these bytes, logs one line and says whether the file was kept.
    [[nodiscard]] bool IsKept(std::string_view bytes) {
        m_appData.MakeLogDirectory();
        WriteBytes(m_appData.Log(), bytes);
        { CorvaLogListenerFile(kSynchronous).Log(Entry(L"new")); }
        if (Exists(m_appData.Log(1))) {
            EXPECT_EQ(ReadBytes(m_appData.Log(1)), bytes);
            EXPECT_THAT(Messages(), ElementsAre("new"));
            DeleteFileW(m_appData.Log(1).c_str());
            return false;
        }
        EXPECT_EQ(ReadBytes(m_appData.Log()).substr(0, bytes.size()), bytes);
        return true;
    }
};

TEST_F(FileListenerTest, HoldsNeitherFileNorMutexBetweenWrites) {
    CorvaLogListenerFile listener(kSynchronous);
    EXPECT_TRUE(MutexIsFree());
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(MutexIsFree());
    EXPECT_NE(DeleteFileW(m_appData.Log().c_str()), FALSE);
    listener.Log(Entry(L"two"));
    EXPECT_THAT(Messages(), ElementsAre("two"));
}

// --- The file that is found -------------------------------------------------------------------

TEST_F(FileListenerTest, KeepsAnEmptyFileAndWhatBeginsLikeALog) {
    for (const std::string& bytes :
         {std::string(), std::string(kByteOrderMark), std::string(kByteOrderMark) + std::string(kLogLine),
          std::string(kLogLine), std::string("####/##/## ##:##:##.###|")}) {
        EXPECT_TRUE(IsKept(bytes)) << bytes;
    }
}

TEST_F(FileListenerTest, MovesAsideWhatDoesNotBeginLikeALog) {
    std::vector<std::string> others{"x",
                                    std::string(kLogLine.substr(0, 23)),
                                    std::string(5000, '\0'),
                                    std::string(5000, '\xff'),
                                    "\r\n\r\n\r\n",
                                    " " + std::string(kLogLine)};
    for (const std::size_t mark : {4U, 7U, 10U, 13U, 16U, 19U, 23U}) {
        others.emplace_back(kLogLine);
        others.back()[mark] = '#';
    }
    for (const std::string& bytes : others) {
        EXPECT_FALSE(IsKept(bytes)) << bytes.substr(0, 30);
    }
}

TEST_F(FileListenerTest, MovesAsideWhatCannotBeRead) {
    SKIP_UNLESS_IMPORTED(fread);
    const ScopedResult<&::fread> fails{0};
    EXPECT_FALSE(IsKept(kLogLine));
}

TEST_F(FileListenerTest, GoesOnInAFileThatCannotBeMovedAside) {
    m_appData.MakeLogDirectory();
    WriteBytes(m_appData.Log(), "no log\r\n");
    const ScopedResult<&::MoveFileW> fails{FALSE, ERROR_ACCESS_DENIED};
    CorvaLogListenerFile(kSynchronous).Log(Entry(L"new"));
    EXPECT_THAT(ReadBytes(m_appData.Log()), testing::StartsWith("no log\r\n"));
    EXPECT_THAT(ReadBytes(m_appData.Log()), testing::EndsWith("|new\r\n"));
}

/// Another program's, which lets nobody else open it.
Platform::UniqueHandle OpenAlone(const std::wstring& path) {
    Platform::UniqueHandle file(
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr));
    EXPECT_NE(file.Get(), INVALID_HANDLE_VALUE);
    return file;
}

TEST_F(FileListenerTest, DropsLinesWhileAnotherProgramLocksTheFile) {
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    {
        const Platform::UniqueHandle locked = OpenAlone(m_appData.Log());
        listener.Log(Entry(L"two"));
        EXPECT_TRUE(MutexIsFree());
    }
    listener.Log(Entry(L"three"));
    EXPECT_THAT(Messages(), ElementsAre("one", "three"));
}

TEST_F(FileListenerTest, WithoutAQueueWhenTheFileIsLockedAtFirst) {
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(0));
    m_appData.MakeLogDirectory();
    Platform::UniqueHandle locked = OpenAlone(m_appData.Log());
    CorvaLogListenerFile listener(kQueued);
    EXPECT_TRUE(MutexIsFree());
    // Policy was not read: the setting is the one made at creation.
    EXPECT_EQ(listener.GetType(), ListenerType::kQueuedFile);
    listener.Log(Entry(L"lost"));
    EXPECT_TRUE(MutexIsFree());
    locked.Reset();
    const ScopedWatch<&::_beginthreadex> threads;
    listener.Log(Entry(L"one"));
    EXPECT_THAT(Messages(), ElementsAre("one"));
    EXPECT_EQ(threads.Calls(), 0) << "written on this thread";
}

TEST_F(FileListenerTest, FullDiskCostsLinesOnly) {
    SKIP_UNLESS_IMPORTED(fwrite);
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    {
        // Characters go into the stream's buffer; what cannot be stored shows when it is flushed.
        const ScopedResult<&::fwrite> write{0};
        const ScopedResult<&::fputwc> writeEnd{WEOF};
        const ScopedResult<&::fflush> flush{EOF};
        const ScopedImport<&::fclose> close{[&](FILE* stream) {
            close.Original(stream);
            return EOF;
        }};
        listener.Log(Entry(L"lost"));
        EXPECT_TRUE(MutexIsFree());
        EXPECT_EQ(write.Calls() + writeEnd.Calls() + flush.Calls() + close.Calls(), 4);
    }
    listener.Log(Entry(L"two"));
    EXPECT_THAT(Messages(), ElementsAre("one", "two"));
}

// --- Where the file should be -----------------------------------------------------------------

/// The names that mutexes are made with, for a scope.
class MutexNameRecorder {
  public:
    std::vector<std::wstring> names;

  private:
    ScopedImport<&::CreateMutexW> m_create{[this](SECURITY_ATTRIBUTES* security, BOOL owned, LPCWSTR name) {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(owned, FALSE);
        names.emplace_back(name);
        return m_create.Original(security, owned, name);
    }};
};

/// An application-data folder that is only a name, for a scope.
class ScopedFolder {
  public:
    explicit ScopedFolder(std::wstring path, HRESULT result = S_OK)
        : m_path(std::move(path)), m_folder([this, result](HWND, int, HANDLE, DWORD, LPWSTR text) {
              std::wcsncpy(text, m_path.c_str(), MAX_PATH);
              return result;
          }) {}

    std::vector<std::wstring> directories;

  private:
    std::wstring m_path;
    ScopedImport<&::SHGetFolderPathW> m_folder;
    ScopedImport<&::CreateDirectoryW> m_create{[this](LPCWSTR path, SECURITY_ATTRIBUTES*) {
        directories.emplace_back(path);
        return TRUE;
    }};
};

TEST_F(FileListenerTest, MutexNameLosesUpToTheFirstColonThatIsNotTheVeryFirstCharacter) {
    for (const auto& [path, name] : {std::pair(L"C:\\Users\\someone", L".Users.someone"),
                                     std::pair(L"\\\\server\\share", L"..server.share"),
                                     std::pair(L":a:b", L":a:b"), std::pair(L"ab:c:d", L"c:d")}) {
        const ScopedFolder folder(path);
        const MutexNameRecorder mutex;
        const CorvaLogListenerFile listener(kSynchronous);
        EXPECT_THAT(folder.directories, ElementsAre(path + std::wstring(L"\\orvkLog")));
        EXPECT_THAT(mutex.names,
                    ElementsAre(L"Global\\" + (name + std::wstring(L".orvkLog.logging_tests.log"))));
    }
}

TEST_F(FileListenerTest, CutsPathsAtTheSystemsLimit) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    const std::wstring longFolder = L"C:\\" + std::wstring(235, L'f');
    const ScopedFolder folder(longFolder);
    std::vector<std::wstring> opened;
    const ScopedImport<&::_wfopen> open{[&](const wchar_t* path, const wchar_t* mode) -> FILE* {
        opened.emplace_back(path);
        EXPECT_STREQ(mode, L"a+,ccs=UTF-8");
        return nullptr;
    }};
    const CorvaLogListenerFile listener(kSynchronous);
    EXPECT_THAT(opened, ElementsAre((longFolder + L"\\orvkLog\\logging_tests.log").substr(0, 259)));
}

/// Without a place for the file.
class FileWithoutPlace : public FileListenerTest {
  protected:
    /// Nothing is opened, and no policy of the file is read.
    void ExpectSilence(const std::vector<std::wstring>& mutexNames) {
        const ScopedImport<&::_wfopen> open{[](auto...) -> FILE* { return nullptr; }};
        const Rig::Ledger ledger;
        const MutexNameRecorder mutex;
        m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(0));
        CorvaLogListenerFile listener(kQueued);
        listener.Log(Entry(L"one"));
        EXPECT_EQ(mutex.names, mutexNames);
        EXPECT_EQ(open.Calls(), 0);
        EXPECT_EQ(listener.GetType(), ListenerType::kQueuedFile);
        EXPECT_FALSE(Exists(m_appData.LogDirectory()));
    }
};

TEST_F(FileWithoutPlace, IsNotWrittenWithoutAnApplicationDataFolder) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    const ScopedFolder folder(L"C:\\half", E_FAIL);
    ExpectSilence({L"Global\\logging_tests.log"});
    EXPECT_THAT(folder.directories, IsEmpty());
}

TEST_F(FileWithoutPlace, IsNotWrittenWithoutALogDirectory) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    const ScopedResult<&::CreateDirectoryW> fails{FALSE, ERROR_ACCESS_DENIED};
    ExpectSilence({L"Global\\logging_tests.log"});
}

TEST_F(FileWithoutPlace, IsNotWrittenWithoutANameOfTheExecutable) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    const ScopedResult<&::GetModuleFileNameW> nameless{0};
    ExpectSilence({});
}

TEST_F(FileListenerTest, WithAFileInTheDirectorysPlaceWritesNothing) {
    WriteBytes(m_appData.LogDirectory(), "a file");
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    EXPECT_EQ(ReadBytes(m_appData.LogDirectory()), "a file");
}

// --- The mutex --------------------------------------------------------------------------------

TEST_F(FileListenerTest, WithoutAMutexWritesNothing) {
    const ScopedResult<&::CreateMutexW> fails{nullptr, ERROR_ACCESS_DENIED};
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    EXPECT_THAT(m_appData.Names(), IsEmpty());
}

TEST_F(FileListenerTest, DropsALineWhoseWaitFails) {
    CorvaLogListenerFile listener(kSynchronous);
    for (const std::vector<DWORD>& results : {std::vector<DWORD>{WAIT_FAILED},
                                              {WAIT_TIMEOUT},
                                              {WAIT_ABANDONED, WAIT_FAILED},
                                              {WAIT_ABANDONED, WAIT_ABANDONED}}) {
        std::size_t waits = 0;
        const ScopedImport<&::WaitForSingleObject> wait{[&](HANDLE, DWORD limit) {
            EXPECT_EQ(limit, INFINITE);
            return results.at(waits++);
        }};
        listener.Log(Entry(L"lost"));
        EXPECT_EQ(waits, results.size());
    }
    listener.Log(Entry(L"one"));
    EXPECT_THAT(Messages(), ElementsAre("one"));
    EXPECT_TRUE(MutexIsFree());
}

TEST_F(FileListenerTest, ThreadThatWaitsForTheMutexAtTheLogsEndStillWrites) {
    CorvaLogListener* const listener = std::make_unique<CorvaLogListenerFile>(kSynchronous).release();
    CorvaLogger logger(&listener, 1);
    std::atomic<bool> waits = false;
    std::thread writer;
    {
        const HeldMutex held(m_appData.Log());
        writer = std::thread([&] {
            const DWORD thisThread = GetCurrentThreadId();
            const ScopedImport<&::WaitForSingleObject> wait{
                [&](HANDLE, DWORD limit) { return limit == INFINITE && GetCurrentThreadId() == thisThread; },
                [&](HANDLE mutex, DWORD limit) {
                    waits = true;
                    return wait.Original(mutex, limit);
                }};
            logger.Write(Level::kError, "A::B", L"one");
        });
        EXPECT_TRUE(Eventually([&] { return waits.load(); }));
        const ScopedWatch<&::CloseHandle> close;
        logger.EndListeners();
        EXPECT_EQ(close.Calls(), 0) << "the mutex is still waited for";
        EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
    }
    writer.join();
    logger.Write(Level::kError, "A::B", L"late");
    EXPECT_THAT(Messages(), ElementsAre("one"));
    EXPECT_TRUE(MutexIsFree());
}

/// A thread of another program ends while it has the mutex.
class AbandonedMutexTest : public LogTest {
  protected:
    void Abandon() const {
        std::thread([this] {
            EXPECT_EQ(WaitForSingleObject(m_mutex.Get(), INFINITE), WAIT_OBJECT_0);
        }).join();
    }

    const Platform::UniqueHandle m_mutex{CreateMutexW(nullptr, FALSE, MutexNameOf(m_appData.Log()).c_str())};
};

TEST_F(AbandonedMutexTest, ThreadThatFindsItWritesOnAndKeepsTheOthersWaiting) {
    CorvaLogListenerFile listener(kSynchronous);
    Abandon();
    listener.Log(Entry(L"one"));
    EXPECT_FALSE(MutexIsFree());
    listener.Log(Entry(L"two"));
    EXPECT_FALSE(MutexIsFree());
    std::thread other([&] { listener.Log(Entry(L"other")); });
    listener.Log(Entry(L"three"));
    EXPECT_THAT(Messages(), ElementsAre("one", "two", "three"));
    // Taken twice and released once: this is what is still to be released.
    EXPECT_NE(ReleaseMutex(m_mutex.Get()), FALSE);
    other.join();
    EXPECT_THAT(Messages(), ElementsAre("one", "two", "three", "other"));
    EXPECT_TRUE(MutexIsFree());
}

TEST_F(AbandonedMutexTest, QueuedWritesGoOn) {
    CorvaLogListenerFile listener(kQueued);
    Abandon();
    // Each writer keeps the mutex once too often when it ends, which abandons it for the next one.
    for (std::size_t line = 1; line <= 3; ++line) {
        listener.Log(Entry(L"x"));
        EXPECT_TRUE(HasLines(line));
    }
}

TEST_F(AbandonedMutexTest, ListenerThatBeginsWithItKeepsItForItsThread) {
    Abandon();
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    EXPECT_FALSE(MutexIsFree());
    EXPECT_THAT(Messages(), ElementsAre("one"));
    EXPECT_NE(ReleaseMutex(m_mutex.Get()), FALSE);
    EXPECT_TRUE(MutexIsFree());
}

}  // namespace
}  // namespace LoggingTests
