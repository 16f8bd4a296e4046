#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/scoped_import.h"

namespace Rig {

/// What can be given out.
namespace Kind {
constexpr const char* kHandle = "handle";  ///< kernel object: event, mutex, token, thread
constexpr const char* kFindHandle = "find handle";
constexpr const char* kStream = "C stream";
constexpr const char* kRegistryKey = "registry key";
constexpr const char* kServiceHandle = "service handle";
constexpr const char* kEventSource = "event source";
constexpr const char* kLocalMemory = "local memory";
constexpr const char* kHeapMemory = "heap memory";
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
/// Booked, as far as the test executable imports them, are the functions that the service calls for the
/// kinds above. A value that came from somewhere else may be given back without being booked. Memory that
/// is given back is kept to the ledger's end, so that giving it back twice is seen and does no harm.
///
/// A fake that stands before the ledger (made earlier) is booked like Windows' own function; one made
/// after it, in front of it, is not. What the test itself needs (events, a `LogRecorder`) is made before the
/// ledger, so that it is not booked. Any thread may call.
class Ledger {
  public:
    Ledger();
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;
    /// Fails the test unless everything is balanced.
    ~Ledger();

    /// Whether everything was given back, once. `timeout` is real time to let other threads
    /// finish.
    [[nodiscard]] testing::AssertionResult Balanced(
        std::chrono::milliseconds timeout = std::chrono::milliseconds(0)) const;

    /// Books what a fake in front of the ledger gives out past it; nothing for null. The last error stays.
    void Gave(std::string_view kind, const void* value, std::string_view giver = "the test");

    /// How many of a kind are given out now, and how many were in all.
    [[nodiscard]] int Outstanding(std::string_view kind) const;
    [[nodiscard]] int Given(std::string_view kind) const;

    /// Lets the ledger end without a look at it.
    void Dismiss() { m_dismissed = true; }

  private:
    struct Entry {
        std::string giver;
        int live = 0;
        int given = 0;
    };
    enum class State { kUnknown, kLive, kReturned };
    enum class Closing;
    using Key = std::pair<std::string_view, const void*>;

    template <auto Function, class Fake>
    void Hook(Fake fake);
    template <auto Function, std::size_t Position>
    void Gives(const char* kind);
    template <auto Function, std::size_t Position = 0>
    void TakesBack(const char* kind, Closing closing);
    void HookAll();

    void MarkReturned(const Key& key);
    void KeepToTheEnd(const Key& key, std::function<void()> free);
    void ReportTwice(const Key& key);
    [[nodiscard]] State Look(const Key& key) const;
    [[nodiscard]] std::vector<std::string> Problems() const;

    mutable Detail::RigLock m_lock;
    std::map<Key, Entry> m_entries;
    std::vector<std::string> m_problems;
    std::vector<std::function<void()>> m_kept;
    bool m_dismissed = false;
    std::vector<std::shared_ptr<void>> m_hooks;
};

/// Shows the text of a VARIANT to the books that are kept, which do not see what oleaut32 gives back by
/// itself, for as long as the result lives.
[[nodiscard]] std::shared_ptr<void> ShowVariantTexts();

}  // namespace Rig
