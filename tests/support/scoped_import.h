#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The unit rig: what stands between the code under test and Windows.
namespace Rig {

/// The test executable does not import the function that a test wants to replace: nothing that
/// was linked calls it. The message names the function.
class NotImported : public std::logic_error {
  public:
    explicit NotImported(std::string_view function);
};

namespace Detail {

/// Cuts the function's name out of a compiler's description of a template over it.
constexpr std::string_view NameIn(std::string_view description) {
    constexpr std::string_view kGnu = "Function = ";
    constexpr std::string_view kIdentifier =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    std::size_t start = description.find(kGnu);
    if (start != std::string_view::npos) {
        start = description.find_first_of(kIdentifier, start + kGnu.size());
        return description.substr(start, description.find_first_not_of(kIdentifier, start) - start);
    }
    // "... NameOf<unsigned long __cdecl WlanSetInterface(void *,...)>(void)"
    constexpr std::string_view kConvention = "__cdecl ";
    start = description.find("NameOf<");
    while (start != std::string_view::npos) {
        start = description.find(kConvention, start);
        if (start == std::string_view::npos) {
            break;
        }
        start += kConvention.size();
        const std::size_t end = description.find_first_not_of(kIdentifier, start);
        if (end != start && end != std::string_view::npos && description[end] == '(') {
            return description.substr(start, end - start);
        }
    }
    return {};
}

/// The name under which a function is imported, from the function itself.
template <auto Function>
constexpr std::string_view NameOf() {
#if defined(_MSC_VER) && !defined(__clang__)
    constexpr std::string_view name = NameIn(__FUNCSIG__);
#else
    constexpr std::string_view name = NameIn(__PRETTY_FUNCTION__);
#endif
    static_assert(!name.empty(), "the compiler describes functions in an unknown way");
    return name;
}

/// The places in the executable's import table that hold one function.
class Import {
  public:
    /// Finds them. Throws `NotImported` when there is none.
    explicit Import(std::string_view function);

    /// Whether the executable imports the function at all.
    [[nodiscard]] static bool Exists(std::string_view function) { return !Find(function).empty(); }

    /// What the loader put there.
    [[nodiscard]] void* Real() const { return m_real; }

    void Put(void* function) const;

  private:
    [[nodiscard]] static std::vector<void**> Find(std::string_view function);

    std::vector<void**> m_places;
    void* m_real;
};

/// A lock for the rig's own use. It waits past the import table, so that it works whatever a test
/// replaces, and it never touches the thread's last error.
class RigLock {
  public:
    RigLock() = default;
    RigLock(const RigLock&) = delete;
    RigLock& operator=(const RigLock&) = delete;

    void Enter() noexcept;
    void Leave() noexcept;
    /// Leaves the lock, waits to be woken (or for `milliseconds` real ones), enters it again.
    void Wait(DWORD milliseconds) noexcept;
    void WakeAll() noexcept;

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_changed = CONDITION_VARIABLE_INIT;
};

/// Holds a `RigLock` for a scope.
class RigLockHolder {
  public:
    explicit RigLockHolder(RigLock& lock) noexcept : m_lock(lock) { m_lock.Enter(); }
    RigLockHolder(const RigLockHolder&) = delete;
    RigLockHolder& operator=(const RigLockHolder&) = delete;
    ~RigLockHolder() { m_lock.Leave(); }

  private:
    RigLock& m_lock;
};

/// Keeps the thread's last error as it was for a scope.
class LastErrorKeeper {
  public:
    LastErrorKeeper() noexcept;
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
    ~LastErrorKeeper();

  private:
    DWORD m_error;
};

/// Reports a fake that some thread does not come out of.
void ReportStuckCall(std::string_view function);

/// The fakes of one function that are in force, innermost first, and the calls inside them.
/// Calls come from any thread.
template <auto Function>
class FakeChain;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
class FakeChain<Target> {
  public:
    struct Link {
        std::function<bool(Args...)> applies;  ///< empty: to every call
        std::function<R(Args...)> fake;
        std::shared_ptr<Link> outer;
        int callsInside = 0;
        bool removed = false;
        std::atomic<int> callCount = 0;
    };

    /// The one chain of this function; kept to the end of the process, because a thread may have
    /// fetched the trampoline's address just before a fake went. Throws `NotImported`.
    static FakeChain& Instance() {
        static FakeChain& chain = *new FakeChain();
        return chain;
    }

    /// What stands in the import table while there is a fake. Without one it leads to Windows.
    static R WINAPI Trampoline(Args... args) { return Instance().CallFrom(nullptr, args...); }

    R CallReal(Args... args) const { return reinterpret_cast<decltype(Target)>(m_import.Real())(args...); }

    void Add(const std::shared_ptr<Link>& link) {
        const RigLockHolder hold(m_lock);
        link->outer = m_innermost;
        m_innermost = link;
        m_import.Put(reinterpret_cast<void*>(&Trampoline));
    }

    /// Takes a link out and waits until all calls have left it.
    void Remove(const std::shared_ptr<Link>& link) {
        const RigLockHolder hold(m_lock);
        std::shared_ptr<Link>* place = &m_innermost;
        while (*place != link) {
            place = &(*place)->outer;
        }
        // Not moved from: a call that is still inside finds its way outward through the link.
        const std::shared_ptr<Link> outer = link->outer;
        *place = outer;
        link->removed = true;
        if (m_innermost == nullptr) {
            m_import.Put(m_import.Real());
        }
        constexpr int kTimeoutSeconds = 20;
        for (int seconds = 0; link->callsInside != 0; ++seconds) {
            if (seconds == kTimeoutSeconds) {
                ReportStuckCall(NameOf<Target>());
                return;
            }
            m_lock.Wait(1000);
        }
    }

    /// A call out of `from`: goes to the next fake outward that applies, else to the real function. A
    /// call from outside has null, and goes to the innermost.
    R CallFrom(std::shared_ptr<Link> from, Args... args) {
        for (;;) {
            const Visit visit(*this, from);
            const std::shared_ptr<Link>& link = visit.Where();
            if (link == nullptr) {
                break;
            }
            if (!link->applies || link->applies(args...)) {
                ++link->callCount;
                return link->fake(args...);
            }
            from = link;
        }
        // No fake is visited any more: this call may block for as long as it likes.
        return CallReal(args...);
    }

  private:
    FakeChain() : m_import(NameOf<Target>()) {}

    /// A call inside the next link outward, for as long as the scope lasts.
    class Visit {
      public:
        Visit(FakeChain& chain, const std::shared_ptr<Link>& from) : m_chain(chain) {
            const LastErrorKeeper keep;
            const RigLockHolder hold(m_chain.m_lock);
            m_link = from == nullptr ? m_chain.m_innermost : from->outer;
            while (m_link != nullptr && m_link->removed) {
                m_link = m_link->outer;
            }
            if (m_link != nullptr) {
                ++m_link->callsInside;
            }
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        ~Visit() {
            const LastErrorKeeper keep;
            if (m_link != nullptr) {
                const RigLockHolder hold(m_chain.m_lock);
                --m_link->callsInside;
                m_chain.m_lock.WakeAll();
            }
            m_link = nullptr;
        }

        [[nodiscard]] const std::shared_ptr<Link>& Where() const { return m_link; }

      private:
        FakeChain& m_chain;
        std::shared_ptr<Link> m_link;
    };

    const Import m_import;
    RigLock m_lock;
    std::shared_ptr<Link> m_innermost;
};

/// Makes the linker import the function.
template <auto Function>
void Mention() {
    [[maybe_unused]] static auto* volatile mention = Function;
}

template <auto Function>
struct RealCaller;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
struct RealCaller<Target> {
    R operator()(Args... args) const {
        Mention<Target>();
        return FakeChain<Target>::Instance().CallReal(args...);
    }
};

}  // namespace Detail

/// Calls the function of Windows, whatever fakes are in force: `Real<&::Sleep>(10)`. For the rig
/// itself and for tests that must really wait.
template <auto Function>
constexpr Detail::RealCaller<Function> Real{};

/// Marks a fake that wants the `ScopedImport` as its first argument.
struct WrappingTag {};
constexpr WrappingTag kWrapping{};

/// Replaces one function that the test executable imports, for a scope:
///
///     ScopedImport<&::WlanSetInterface> fake{[&](HANDLE, const GUID*, auto...) -> DWORD {
///         return ++tries == 3 ? ERROR_SUCCESS : ERROR_BUSY;
///     }};
///
/// The fake is typed from the function itself and is called by whatever thread calls the
/// function. Only calls made by the executable's own code change; system DLLs keep theirs, and so
/// does a call made from inside the executable through an address fetched at run time.
///
/// - `fake.Original(...)` calls what was there (the next fake outward, or Windows). Calling the
///   function by its name from inside its own fake comes back to the fake.
/// - Fakes of one function nest: the innermost takes the call. They may end in any order.
/// - The end of the scope restores what was there, also when the test throws, and waits for the
///   calls that are inside the fake. So no fake may end itself.
/// - An exception thrown by the fake goes to the caller; the last error that it sets is kept.
/// - Put the fake in before the code under test is entered: in the code that ships the compiler
///   may fetch an import's address once in a function and keep it over the function's loops.
/// - A function that the executable does not import cannot be called, so there is nothing to
///   replace: `NotImported` is thrown and names it. Look first with `IsImported<&::X>()`.
///
/// With a condition before it, the fake takes only the calls for which the condition holds. The
/// other ones go on outward, and the scope's end does not wait for them. That is the way for
/// functions that block (waits, sleeps), through which the C++ runtime's own threads go as well:
///
///     ScopedImport<&::WaitForSingleObject> fake{
///         [&](HANDLE handle, DWORD) { return handle == mine; },
///         [&](HANDLE, DWORD) -> DWORD { return WAIT_FAILED; }};
template <auto Function>
class ScopedImport;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
class ScopedImport<Target> {
    using Chain = Detail::FakeChain<Target>;

  public:
    using Fake = std::function<R(Args...)>;
    using Condition = std::function<bool(Args...)>;

    explicit ScopedImport(Fake fake) : ScopedImport(Condition(), std::move(fake)) {}
    ScopedImport(Condition applies, Fake fake) : m_link(std::make_shared<typename Chain::Link>()) {
        m_link->applies = std::move(applies);
        m_link->fake = std::move(fake);
        Chain::Instance().Add(m_link);
    }
    /// A fake that is given this object first, for where it has no name of its own yet.
    template <class WrappingFake>
    ScopedImport(WrappingTag, WrappingFake fake)
        : ScopedImport(Condition(), [this, fake = std::move(fake)](Args... args) -> R {
              return fake(std::as_const(*this), args...);
          }) {}
    ScopedImport(const ScopedImport&) = delete;
    ScopedImport& operator=(const ScopedImport&) = delete;
    ~ScopedImport() { Chain::Instance().Remove(m_link); }

    /// Calls what the fake stands in front of: the next fake outward, or the real function.
    R Original(Args... args) const { return Chain::Instance().CallFrom(m_link, args...); }

    /// How many calls the fake has taken so far.
    [[nodiscard]] int Calls() const { return m_link->callCount; }

  private:
    std::shared_ptr<typename Chain::Link> m_link;
};

/// Whether the test executable imports the function, so that it can be replaced.
template <auto Function>
[[nodiscard]] bool IsImported() {
    return Detail::Import::Exists(Detail::NameOf<Function>());
}

/// A `ScopedImport` made from `arguments`, or nothing when the executable does not import the
/// function.
template <auto Function, class... Arguments>
[[nodiscard]] std::unique_ptr<ScopedImport<Function>> ReplaceIfImported(Arguments&&... arguments) {
    return IsImported<Function>()
               ? std::make_unique<ScopedImport<Function>>(std::forward<Arguments>(arguments)...)
               : nullptr;
}

/// Which calls of a function a `ScopedResult` answers, counted from one.
struct AtCall {
    int first;
    int last;
    explicit constexpr AtCall(int only) : first(only), last(only) {}
    constexpr AtCall(int from, int upTo) : first(from), last(upTo) {}
};
constexpr AtCall kEveryCall{1, 0x7fffffff};

/// Lets a function answer with a fixed result and last error instead of being called. The calls
/// that it does not answer go on to what was there. (What the simulated notebook's devices answer fails
/// by `SimulatedNotebook::Fail`.)
///
///     ScopedResult<&::OpenServiceW> fails{nullptr, ERROR_ACCESS_DENIED};
///     ScopedResult<&::SetEvent> third{FALSE, ERROR_INVALID_HANDLE, AtCall{3}};
template <auto Function>
class ScopedResult;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
class ScopedResult<Target> final : public ScopedImport<Target> {
  public:
    explicit ScopedResult(R result, DWORD lastError, AtCall which = kEveryCall)
        : ScopedImport<Target>(kWrapping,
                               [=](const auto& self, Args... args) -> R {
                                   const int call = self.Calls();
                                   if (call < which.first || call > which.last) {
                                       return self.Original(args...);
                                   }
                                   Real<&::SetLastError>(lastError);
                                   return result;
                               }),
          m_which(which) {}
    explicit ScopedResult(R result, AtCall which = kEveryCall) : ScopedResult(result, NO_ERROR, which) {}

    /// How many of the `Calls` were answered here.
    [[nodiscard]] int Answered() const {
        return std::max(0, std::min(this->Calls(), m_which.last) - m_which.first + 1);
    }

  private:
    AtCall m_which;
};

/// Replaces what `GetProcAddress` gives for one name (in any module), for a scope; a null
/// address hides the function, and last error is then ERROR_PROC_NOT_FOUND. `Calls` tells how often
/// the name was asked for. Code that keeps the address beyond the scope keeps the replacement.
///
///     ScopedProcAddress noTransactions{"RegOpenKeyTransactedW", nullptr};
class ScopedProcAddress final : public ScopedImport<&::GetProcAddress> {
  public:
    ScopedProcAddress(std::string_view name, FARPROC address);
};

/// Replaces a function that the code under test finds at run time with `GetProcAddress`:
///
///     ScopedProc<&::RegDeleteKeyExW> fake{
///         [&](HKEY, LPCWSTR name, REGSAM, DWORD) -> LSTATUS { ...; return ERROR_SUCCESS; }};
///
/// Nests as `ScopedImport` does. An address that was kept leads to Windows after the scope's end, and to
/// the next scope's fake.
template <auto Function>
class ScopedProc final : public ScopedImport<Function> {
  public:
    explicit ScopedProc(typename ScopedImport<Function>::Fake fake)
        : ScopedImport<Function>(std::move(fake)) {
        Detail::Mention<Function>();
    }

  private:
    ScopedProcAddress m_address{
        Detail::NameOf<Function>(),
        reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Detail::FakeChain<Function>::Trampoline))};
};

}  // namespace Rig
