#include "logging/file_listener.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "logging/logger.h"
#include "tests/logging/held_mutex.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/policy_keys.h"
#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::CorvaLogListenerFile;
using Rig::RegistryNumber;
using Rig::ScopedImport;
using Rig::ScopedResult;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool kQueued = true;
constexpr bool kSynchronous = false;

class FileListenerTest : public testing::Test {
  protected:
    [[nodiscard]] bool MutexIsFree() const { return LoggingTests::MutexIsFree(m_appData.Log()); }

    /// Begins with a file of these bytes, logs one line and says whether the file was kept.
    [[nodiscard]] bool IsKept(std::string_view bytes) {
        m_appData.MakeLogDirectory();
        WriteBytes(m_appData.Log(), bytes);
        { CorvaLogListenerFile(kSynchronous).Log(Entry(L"new")); }
        if (Exists(m_appData.Log(1))) {
            EXPECT_EQ(ReadBytes(m_appData.Log(1)), bytes);
            EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("new"));
            DeleteFileW(m_appData.Log(1).c_str());
            return false;
        }
        EXPECT_EQ(ReadBytes(m_appData.Log()).substr(0, bytes.size()), bytes);
        return true;
    }

    Policies m_policies;
    AppData m_appData;
};

TEST_F(FileListenerTest, WritesAFreshFileInUtf8WithMarkAndWindowsLineEnds) {
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one \x00e4\x20ac\xd83d\xde00", Level::kInformation, "A::B"));
    listener.Log(Entry(L"", Level::kTraceOut, "A::B"));
    EXPECT_EQ(ReadBytes(m_appData.Log()),
              "\xEF\xBB\xBF"
              "2019/04/05 13:07:09.042|00001A2C|Information|A::B|one \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\r\n"
              "2019/04/05 13:07:09.042|00001A2C|TraceOut   |A::B|\r\n");
}

TEST_F(FileListenerTest, StoresALineEndInsideAMessageAsWindowsDoes) {
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"a\nb", Level::kError, "A::B"));
    EXPECT_THAT(ReadBytes(m_appData.Log()), testing::EndsWith("|A::B|a\r\nb\r\n"));
}

TEST_F(FileListenerTest, WritesBelowTheRoamingApplicationData) {
    const CorvaLogListenerFile listener(kSynchronous);
    EXPECT_EQ(m_appData.AskedFor(), 0x801A);
    EXPECT_EQ(m_appData.AskedWithToken(), nullptr);
    EXPECT_EQ(m_appData.AskedForType(), 0U);
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests.log"));
}

TEST_F(FileListenerTest, AppendsToTheFileOfAnEarlierRun) {
    { CorvaLogListenerFile(kSynchronous).Log(Entry(L"one")); }
    { CorvaLogListenerFile(kSynchronous).Log(Entry(L"two")); }
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one", "two"));
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests.log"));
}

TEST_F(FileListenerTest, HoldsNeitherFileNorMutexBetweenWrites) {
    CorvaLogListenerFile listener(kSynchronous);
    EXPECT_TRUE(MutexIsFree());
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(MutexIsFree());
    EXPECT_NE(DeleteFileW(m_appData.Log().c_str()), FALSE);
    listener.Log(Entry(L"two"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("two"));
}

TEST_F(FileListenerTest, GivesEverythingBack) {
    const Rig::Ledger ledger;
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
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

TEST_F(FileListenerTest, WritesNothingWhereADirectoryHasItsName) {
    m_appData.MakeLogDirectory();
    CreateDirectoryW(m_appData.Log().c_str(), nullptr);
    const Rig::Ledger ledger;
    CorvaLogListenerFile listener(kQueued);
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(MutexIsFree());
    EXPECT_THAT(m_appData.Names(), ElementsAre(L"logging_tests.log"));
}

TEST_F(FileListenerTest, ReadOnlyFileCostsLinesOnly) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    // Refused whoever asks, as on Windows: under Wine root may write to it.
    const ScopedImport<&::_wfopen> open{[&](const wchar_t* path, const wchar_t* mode) -> FILE* {
        if ((GetFileAttributesW(path) & FILE_ATTRIBUTE_READONLY) != 0) {
            errno = EACCES;
            return nullptr;
        }
        return open.Original(path, mode);
    }};
    m_appData.MakeLogDirectory();
    WriteBytes(m_appData.Log(), kLogLine);
    SetFileAttributesW(m_appData.Log().c_str(), FILE_ATTRIBUTE_READONLY);
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"lost"));
    EXPECT_EQ(open.Calls(), 2);
    EXPECT_TRUE(MutexIsFree());
    EXPECT_EQ(ReadBytes(m_appData.Log()), kLogLine);
    SetFileAttributesW(m_appData.Log().c_str(), FILE_ATTRIBUTE_NORMAL);
    listener.Log(Entry(L"one"));
    EXPECT_THAT(ReadBytes(m_appData.Log()), testing::StartsWith(kLogLine));
    EXPECT_THAT(ReadBytes(m_appData.Log()), testing::EndsWith("|one\r\n"));
}

class LockedFile {
  public:
    explicit LockedFile(const std::wstring& path)
        : m_file(
              CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr)) {
        EXPECT_NE(m_file, INVALID_HANDLE_VALUE);
    }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;
    ~LockedFile() { CloseHandle(m_file); }

  private:
    HANDLE m_file;
};

TEST_F(FileListenerTest, DropsLinesWhileAnotherProgramLocksTheFile) {
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    {
        const LockedFile locked(m_appData.Log());
        listener.Log(Entry(L"two"));
        EXPECT_TRUE(MutexIsFree());
    }
    listener.Log(Entry(L"three"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one", "three"));
}

TEST_F(FileListenerTest, WithoutAQueueWhenTheFileIsLockedAtFirst) {
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(0));
    m_appData.MakeLogDirectory();
    std::unique_ptr<CorvaLogListenerFile> listener;
    {
        const LockedFile locked(m_appData.Log());
        listener = std::make_unique<CorvaLogListenerFile>(kQueued);
        // Policy was not read: the setting is the one made at creation.
        EXPECT_EQ(listener->GetType(), ListenerType::kQueuedFile);
        listener->Log(Entry(L"lost"));
    }
    // Written at once, on this thread.
    listener->Log(Entry(L"one"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
}

TEST_F(FileListenerTest, WithoutAQueueWhenTheFileCannotBeOpenedAtFirst) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    std::unique_ptr<CorvaLogListenerFile> listener;
    {
        const ScopedImport<&::_wfopen> fails{[](auto...) -> FILE* { return nullptr; }};
        listener = std::make_unique<CorvaLogListenerFile>(kQueued);
        EXPECT_TRUE(Exists(m_appData.LogDirectory()));
        EXPECT_TRUE(MutexIsFree());
        listener->Log(Entry(L"lost"));
        listener->Log(Entry(L"lost too"));
        EXPECT_EQ(fails.Calls(), 3) << "each line tries anew";
        EXPECT_TRUE(MutexIsFree());
    }
    const CountedCalls<&::_beginthreadex> threads;
    listener->Log(Entry(L"one"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
    EXPECT_EQ(threads.Calls(), 0) << "written on this thread";
}

// --- Where the file should be -----------------------------------------------------------------

/// The name that the mutex is made with, for a scope.
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

TEST_F(FileListenerTest, MutexIsNamedAfterThePathWithoutItsDrive) {
    const MutexNameRecorder mutex;
    const CorvaLogListenerFile listener(kSynchronous);
    EXPECT_THAT(mutex.names, ElementsAre(MutexNameOf(m_appData.Log())));
    EXPECT_THAT(MutexNameOf(m_appData.Log()), testing::EndsWith(L".orvkLog.logging_tests.log"));
    EXPECT_THAT(MutexNameOf(m_appData.Log()), testing::StartsWith(L"Global\\."));
}

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
    for (const auto& [path, name] : {std::pair(L"\\\\server\\share", L"..server.share"),
                                     std::pair(L":a:b", L":a:b"), std::pair(L"ab:c:d", L"c:d")}) {
        const ScopedFolder folder(path);
        const MutexNameRecorder mutex;
        const CorvaLogListenerFile listener(kSynchronous);
        EXPECT_THAT(folder.directories, ElementsAre(path + std::wstring(L"\\orvkLog")));
        EXPECT_THAT(mutex.names,
                    ElementsAre(L"Global\\" + (name + std::wstring(L".orvkLog.logging_tests.log"))));
    }
}

TEST_F(FileListenerTest, WithoutAFolderWritesNothingAndNamesTheMutexAfterTheFile) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    const Rig::Ledger ledger;
    const ScopedFolder folder(L"C:\\half", E_FAIL);
    const MutexNameRecorder mutex;
    const ScopedImport<&::_wfopen> open{[](auto...) -> FILE* { return nullptr; }};
    m_policies.OfExecutable(L"QueuedWrites", RegistryNumber(0));
    CorvaLogListenerFile listener(kQueued);
    listener.Log(Entry(L"one"));
    EXPECT_THAT(folder.directories, IsEmpty());
    EXPECT_THAT(mutex.names, ElementsAre(L"Global\\logging_tests.log"));
    EXPECT_EQ(open.Calls(), 0);
    EXPECT_EQ(listener.GetType(), ListenerType::kQueuedFile);
}

TEST_F(FileListenerTest, WithoutALogDirectoryWritesNothing) {
    const Rig::Ledger ledger;
    const ScopedResult<&::CreateDirectoryW> fails{FALSE, ERROR_ACCESS_DENIED};
    const MutexNameRecorder mutex;
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    EXPECT_THAT(mutex.names, ElementsAre(L"Global\\logging_tests.log"));
    EXPECT_FALSE(Exists(m_appData.LogDirectory()));
}

TEST_F(FileListenerTest, WithAFileInTheDirectorysPlaceWritesNothing) {
    WriteBytes(m_appData.LogDirectory(), "a file");
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    EXPECT_EQ(ReadBytes(m_appData.LogDirectory()), "a file");
}

TEST_F(FileListenerTest, DirectoryThatVanishesCostsLinesOnly) {
    CorvaLogListenerFile listener(kSynchronous);
    DeleteFileW(m_appData.Log().c_str());
    RemoveDirectoryW(m_appData.LogDirectory().c_str());
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(MutexIsFree());
    m_appData.MakeLogDirectory();
    listener.Log(Entry(L"two"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("two"));
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

TEST_F(FileListenerTest, WithoutNamesWritesNothing) {
    const Rig::Ledger ledger;
    const ScopedImport<&::GetModuleFileNameW> nameless{[](HMODULE, LPWSTR path, DWORD) {
        path[0] = L'\0';
        return DWORD{0};
    }};
    CorvaLogListenerFile listener(kQueued);
    listener.Log(Entry(L"one"));
    EXPECT_FALSE(Exists(m_appData.LogDirectory()));
    EXPECT_EQ(listener.GetType(), ListenerType::kQueuedFile);
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
    for (const DWORD result : {DWORD{WAIT_FAILED}, DWORD{WAIT_TIMEOUT}}) {
        const ScopedResult<&::WaitForSingleObject> fails{result};
        listener.Log(Entry(L"lost"));
        EXPECT_EQ(fails.Calls(), 1);
    }
    listener.Log(Entry(L"one"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
    EXPECT_TRUE(MutexIsFree());
}

TEST_F(FileListenerTest, DropsALineWhoseSecondWaitAfterAbandonmentFails) {
    CorvaLogListenerFile listener(kSynchronous);
    std::vector<DWORD> limits;
    const ScopedImport<&::WaitForSingleObject> wait{[&](HANDLE, DWORD limit) {
        limits.push_back(limit);
        return limits.size() == 1 ? DWORD{WAIT_ABANDONED} : DWORD{WAIT_FAILED};
    }};
    listener.Log(Entry(L"lost"));
    EXPECT_THAT(limits, ElementsAre(INFINITE, INFINITE));
    EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
}

TEST_F(FileListenerTest, WaitsForWhoeverHoldsTheMutex) {
    CorvaLogListenerFile listener(kSynchronous);
    std::atomic<bool> written = false;
    std::thread writer;
    {
        const HeldMutex held(m_appData.Log());
        writer = std::thread([&] {
            listener.Log(Entry(L"one"));
            written = true;
        });
        Sleep(100);
        EXPECT_FALSE(written);
    }
    writer.join();
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
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
        const CountedCalls<&::CloseHandle> close;
        logger.EndListeners();
        EXPECT_EQ(close.Calls(), 0) << "the mutex is still waited for";
    }
    writer.join();
    logger.Write(Level::kError, "A::B", L"late");
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
    EXPECT_TRUE(MutexIsFree());
}

// --- A full disk ------------------------------------------------------------------------------

TEST_F(FileListenerTest, FullDiskCostsLinesOnly) {
    SKIP_UNLESS_IMPORTED(fwrite);
    CorvaLogListenerFile listener(kSynchronous);
    listener.Log(Entry(L"one"));
    {
        // Characters go into the stream's buffer; what cannot be stored shows when it is flushed.
        const ScopedImport<&::fwrite> full{[](const void*, size_t, size_t, FILE*) { return size_t{0}; }};
        const ScopedImport<&::fputwc> fullToo{[](wchar_t, FILE*) { return wint_t{WEOF}; }};
        listener.Log(Entry(L"lost"));
        EXPECT_TRUE(MutexIsFree());
    }
    listener.Log(Entry(L"two"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one", "two"));
}

TEST_F(FileListenerTest, FailingFlushAndCloseReleaseTheMutex) {
    SKIP_UNLESS_IMPORTED(fflush);
    CorvaLogListenerFile listener(kSynchronous);
    const ScopedImport<&::fflush> flush{[&](FILE* stream) {
        flush.Original(stream);
        return EOF;
    }};
    const ScopedImport<&::fclose> close{[&](FILE* stream) {
        close.Original(stream);
        return EOF;
    }};
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(MutexIsFree());
    EXPECT_EQ(flush.Calls(), 1);
    EXPECT_EQ(close.Calls(), 1);
}

// --- Settings ---------------------------------------------------------------------------------

TEST_F(FileListenerTest, TypeFollowsThePolicyNotTheCreation) {
    EXPECT_EQ(CorvaLogListenerFile(kQueued).GetType(), ListenerType::kQueuedFile);
    EXPECT_EQ(CorvaLogListenerFile(kSynchronous).GetType(), ListenerType::kFile);
    m_policies.OfProduct(L"QueuedWrites", RegistryNumber(0));
    EXPECT_EQ(CorvaLogListenerFile(kQueued).GetType(), ListenerType::kFile);
    m_policies.OfProduct(L"QueuedWrites", RegistryNumber(1));
    EXPECT_EQ(CorvaLogListenerFile(kSynchronous).GetType(), ListenerType::kQueuedFile);
}

TEST_F(FileListenerTest, ManyThreadsWriteWholeLines) {
    CorvaLogListenerFile listener(kSynchronous);
    LogOnManyThreads(listener, 50);
    ExpectLinesOfManyThreads(ReadMessages(m_appData.Log()), 50);
}

}  // namespace
}  // namespace LoggingTests
