#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scoped_import.h"

namespace Rig {

/// What can be given out. A kind of a test's own is any other text.
namespace Kind {
constexpr const char* kHandle = "handle";  ///< kernel object: event, mutex, file, token, thread
constexpr const char* kFindHandle = "find handle";
constexpr const char* kStream = "C stream";
constexpr const char* kModule = "module";
constexpr const char* kRegistryKey = "registry key";
constexpr const char* kServiceHandle = "service handle";
constexpr const char* kEventSource = "event source";
constexpr const char* kLocalMemory = "local memory";
constexpr const char* kHeapMemory = "heap memory";
constexpr const char* kSid = "SID";
constexpr const char* kTaskMemory = "COM task memory";
constexpr const char* kBstr = "BSTR";
constexpr const char* kSafeArray = "SAFEARRAY";
}  // namespace Kind

/// Books everything that Windows gives the code under test and that has to be given back, for a
/// scope. Its end fails the test with a list of what was not given back, or was twice:
///
///     Ledger ledger;
///     CodeUnderTest();
///     EXPECT_TRUE(ledger.Balanced());   // at once, rather than at the end of the scope
///
/// Booked, through the functions of the kinds above as far as the test executable imports them:
/// kernel handles, directory listings, C streams, modules, registry keys, service handles, event
/// sources, local, heap and COM task memory, SIDs, BSTRs (those in VARIANTs included), SAFEARRAYs;
/// entering and leaving COM by thread; and the references to fake COM objects. A value that came from
/// somewhere else may be given back without being booked. Memory that is given back is kept to the ledger's
/// end, so that giving it back twice is seen and does no harm.
///
/// Together with fakes:
/// - A fake that stands before the ledger (made earlier) is booked like Windows' own function.
/// - A fake made after it, in front of it, books for itself when it makes things up. What it made
///   up never reaches Windows, so that the closing function needs no fake:
///
///       ScopedImport<&::OpenSCManagerW> open{[&](auto...) {
///           return ledger.MakeHandle<SC_HANDLE>(Kind::kServiceHandle);    // CloseServiceHandle takes it
///       }};
///
///   A fake of a closing function, in front of the ledger, reports with `TookBack`.
///
/// What the test itself needs (a COM apartment, events, a `LogRecorder`) is made before the
/// ledger, so that it is not booked. Any thread may call.
class Ledger {
  public:
    Ledger();
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;
    /// Fails the test unless everything is balanced.
    ~Ledger();

    /// Whether everything was given back, once. `patience` is real time to let other threads
    /// finish.
    [[nodiscard]] testing::AssertionResult Balanced(
        std::chrono::milliseconds patience = std::chrono::milliseconds(0)) const;

    /// A handle of the test's making, given out and booked. Unlike any real one.
    [[nodiscard]] HANDLE MakeHandle(const std::string& kind);
    template <class Value>
    [[nodiscard]] Value MakeHandle(const std::string& kind) {
        return reinterpret_cast<Value>(MakeHandle(kind));
    }
    /// Books something that a test's fake gives out; its memory stays the test's.
    void Gave(const std::string& kind, const void* value);
    /// Books that a test's fake took something back.
    void TookBack(const std::string& kind, const void* value);

    /// How many of a kind are given out now, and how many were in all.
    [[nodiscard]] int Outstanding(const std::string& kind) const;
    [[nodiscard]] int Given(const std::string& kind) const;

    /// Lets the ledger end without a look at it.
    void Dismiss() { m_dismissed = true; }

  private:
    struct Entry {
        std::string giver;
        int live = 0;           ///< a module may be given out several times
        bool isMadeUp = false;  ///< by the test: Windows does not know it
    };
    enum class State { kUnknown, kLive, kReturned, kLiveMadeUp, kReturnedMadeUp };

    template <auto Function, class Fake>
    void Hook(Fake fake);
    template <auto Function>
    void GivesResult(const char* kind);
    template <auto Function, std::size_t Position>
    void GivesThrough(const char* kind);
    template <auto Function>
    void TakesBack(const char* kind, bool alwaysAsksWindows = false);
    template <auto Function>
    void TakesMemoryBack(const char* kind);
    void HookKernelObjects();
    void HookFilesAndModules();
    void HookRegistryAndServices();
    void HookMemory();
    void HookHeap();
    void HookCom();
    void HookVariants();

    void Book(const std::string& kind, const void* value, const std::string& giver, bool isMadeUp = false);
    void MarkReturned(const std::string& kind, const void* value);
    void ReportTwice(const std::string& kind, const void* value);
    bool KeepIfBooked(const char* kind, const void* value, std::function<void()> free);
    void BookComEntry(int change);
    [[nodiscard]] State Look(const std::string& kind, const void* value) const;
    [[nodiscard]] std::vector<std::string> Problems() const;
    void FreeWhatWasKept();

    using Key = std::pair<std::string, const void*>;

    mutable Detail::RigLock m_lock;
    std::map<Key, Entry> m_entries;
    std::map<std::string, int> m_given;
    std::map<DWORD, int> m_comEntries;
    std::map<const void*, long> m_heldBefore;
    std::vector<std::string> m_problems;
    std::vector<std::function<void()>> m_kept;
    std::size_t m_handlesMade = 0;
    bool m_dismissed = false;
    std::vector<std::shared_ptr<void>> m_hooks;
};

}  // namespace Rig
