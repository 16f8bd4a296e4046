#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
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
class ImportSlots {
  public:
    /// Finds them. Throws `NotImported` when there is none.
    explicit ImportSlots(std::string_view function);

    /// Whether the executable imports the function at all.
    [[nodiscard]] static bool Exist(std::string_view function);

    /// What the loader put there.
    [[nodiscard]] void* Real() const { return m_slots.front().real; }

    void Put(void* function) const;
    void Restore() const;

  private:
    struct Slot {
        void** place;
        void* real;
    };
    [[nodiscard]] static std::vector<Slot> Find(std::string_view function);
    static void Write(void** place, void* value);

    std::vector<Slot> m_slots;
};

/// A lock for the rig's own use. It waits past the import table, so that it works whatever a test
/// replaces, and it never touches the thread's last error.
class RigLock {
  public:
    RigLock() = default;
    RigLock(const RigLock&) = delete;
    RigLock& operator=(const RigLock&) = delete;

    void lock() noexcept;    // NOLINT(readability-identifier-naming): BasicLockable
    void unlock() noexcept;  // NOLINT(readability-identifier-naming): BasicLockable
    /// Leaves the lock, waits to be woken (or for `milliseconds` real ones), enters it again.
    /// Returns false when the time ran out.
    bool Wait(DWORD milliseconds) noexcept;
    void WakeAll() noexcept;

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_changed = CONDITION_VARIABLE_INIT;
};

/// Holds a `RigLock` for a scope.
class RigLockHolder {
  public:
    explicit RigLockHolder(RigLock& lock) noexcept : m_lock(lock) { m_lock.lock(); }
    RigLockHolder(const RigLockHolder&) = delete;
    RigLockHolder& operator=(const RigLockHolder&) = delete;
    ~RigLockHolder() { m_lock.unlock(); }

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

/// The calling thread, read past the import table.
[[nodiscard]] DWORD ThisThread() noexcept;

/// Reports a fake that some thread does not come out of.
void ReportStuckCall(std::string_view function);

/// The fakes of one function that are in force, innermost first, and the calls inside them.
/// Calls come from any thread.
template <class R, class... Args>
class FakeChain {
  public:
    using Signature = R(Args...);
    using Function = R(WINAPI*)(Args...);

    struct Call {
        DWORD thread;
        Call* next;
    };
    struct Link {
        std::function<bool(Args...)> applies;  ///< empty: to every call
        std::function<Signature> fake;
        std::shared_ptr<Link> outer;
        Call* calls = nullptr;
        bool removed = false;
        std::atomic<int> callCount = 0;
    };

    virtual ~FakeChain() = default;
    FakeChain(const FakeChain&) = delete;
    FakeChain& operator=(const FakeChain&) = delete;

    [[nodiscard]] Function Real() const { return m_real != nullptr ? m_real : throw NotImported(m_name); }

    void Add(const std::shared_ptr<Link>& link) {
        const RigLockHolder hold(m_lock);
        link->outer = m_innermost;
        m_innermost = link;
        if (link->outer == nullptr) {
            Install();
        }
    }

    /// Takes a link out and waits until other threads have left it. A call of this very thread
    /// may still be inside: it goes on and finds everything as it was until it returns.
    void Remove(const std::shared_ptr<Link>& link) {
        if (!TakeOut(link)) {
            ReportStuckCall(m_name);
        }
    }

    /// A call from outside: goes to the innermost fake that applies, else to the real function.
    R Dispatch(Args... args) { return CallFrom(nullptr, args...); }

    /// A call out of `link`: goes to the next fake outward that applies, else to the real one.
    R DispatchOutward(const std::shared_ptr<Link>& link, Args... args) { return CallFrom(link, args...); }

  protected:
    FakeChain(std::string_view name, Function real) : m_name(name), m_real(real) {}

    /// Called with the lock held when the first fake comes and after the last one went.
    virtual void Install() = 0;
    virtual void Uninstall() = 0;

    [[nodiscard]] const std::string& Name() const { return m_name; }

  private:
    static constexpr int kPatienceSeconds = 20;
    static constexpr DWORD kOneSecond = 1000;

    /// A call inside a link, for as long as the scope lasts.
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
                m_call = {ThisThread(), m_link->calls};
                m_link->calls = &m_call;
            }
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        ~Visit() {
            const LastErrorKeeper keep;
            if (m_link != nullptr) {
                Leave();
            }
            m_link = nullptr;
        }

        [[nodiscard]] const std::shared_ptr<Link>& Where() const { return m_link; }

      private:
        void Leave() {
            const RigLockHolder hold(m_chain.m_lock);
            Call** place = &m_link->calls;
            while (*place != &m_call) {
                place = &(*place)->next;
            }
            *place = m_call.next;
            m_chain.m_lock.WakeAll();
        }

        FakeChain& m_chain;
        std::shared_ptr<Link> m_link;
        Call m_call{};
    };

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
        return Real()(args...);
    }

    /// False when a call of another thread stayed inside for too long.
    [[nodiscard]] bool TakeOut(const std::shared_ptr<Link>& link) {
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
            Uninstall();
        }
        for (int seconds = 0; HasCallsOfOthers(*link); ++seconds) {
            if (seconds == kPatienceSeconds) {
                return false;
            }
            m_lock.Wait(kOneSecond);
        }
        return true;
    }

    [[nodiscard]] bool HasCallsOfOthers(const Link& link) const {
        for (const Call* call = link.calls; call != nullptr; call = call->next) {
            if (call->thread != ThisThread()) {
                return true;
            }
        }
        return false;
    }

    std::string m_name;
    Function m_real;
    RigLock m_lock;
    std::shared_ptr<Link> m_innermost;
};

/// One fake in a chain, for a scope.
template <class Chain>
class ScopedLink;

template <class R, class... Args>
class ScopedLink<FakeChain<R, Args...>> {
  public:
    using Chain = FakeChain<R, Args...>;

    ScopedLink(const ScopedLink&) = delete;
    ScopedLink& operator=(const ScopedLink&) = delete;

    /// Calls what the fake stands in front of: the next fake outward, or the real function.
    R Original(Args... args) const { return m_chain.DispatchOutward(m_link, args...); }

    /// How many calls the fake has taken so far.
    [[nodiscard]] int Calls() const { return m_link->callCount; }

  protected:
    ScopedLink(Chain& chain, std::function<bool(Args...)> applies, std::function<R(Args...)> fake)
        : m_chain(chain), m_link(std::make_shared<typename Chain::Link>()) {
        m_link->applies = std::move(applies);
        m_link->fake = std::move(fake);
        m_chain.Add(m_link);
    }
    ~ScopedLink() { m_chain.Remove(m_link); }

  private:
    Chain& m_chain;
    std::shared_ptr<typename Chain::Link> m_link;
};

template <auto Function>
class ImportChain;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
class ImportChain<Target> final : public FakeChain<R, Args...> {
  public:
    using Base = FakeChain<R, Args...>;

    /// The one chain of this function; kept to the end of the process, because a thread may have
    /// fetched the trampoline's address just before a fake went. Throws `NotImported`.
    static ImportChain& Instance() {
        static ImportChain& chain = *new ImportChain(ImportSlots(NameOf<Target>()));
        return chain;
    }

  private:
    explicit ImportChain(ImportSlots slots)
        : Base(NameOf<Target>(), reinterpret_cast<typename Base::Function>(slots.Real())),
          m_slots(std::move(slots)) {}

    static R WINAPI Trampoline(Args... args) { return Instance().Dispatch(args...); }

    void Install() override { m_slots.Put(reinterpret_cast<void*>(&Trampoline)); }
    void Uninstall() override { m_slots.Restore(); }

    ImportSlots m_slots;
};

}  // namespace Detail

template <auto Function>
class ScopedImport;

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
///   calls of other threads that are inside the fake. A call of the same thread does not count,
///   so a fake may end itself (through a `std::optional`, say).
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
template <class R, class... Args, R(WINAPI* Target)(Args...)>
class ScopedImport<Target> final : public Detail::ScopedLink<Detail::FakeChain<R, Args...>> {
    using Base = Detail::ScopedLink<Detail::FakeChain<R, Args...>>;

  public:
    using Fake = std::function<R(Args...)>;
    using Condition = std::function<bool(Args...)>;

    explicit ScopedImport(Fake fake) : ScopedImport(Condition(), std::move(fake)) {}
    ScopedImport(Condition applies, Fake fake)
        : Base(Detail::ImportChain<Target>::Instance(), std::move(applies), std::move(fake)) {}
    /// A fake that is given this object first, for where it has no name of its own yet.
    template <class WrappingFake>
    ScopedImport(WrappingTag, WrappingFake fake)
        : ScopedImport(Condition(), [this, fake = std::move(fake)](Args... args) -> R {
              return fake(std::as_const(*this), args...);
          }) {}
};

/// Whether the test executable imports the function, so that it can be replaced.
template <auto Function>
[[nodiscard]] bool IsImported() {
    return Detail::ImportSlots::Exist(Detail::NameOf<Function>());
}

/// A `ScopedImport` made from `arguments`, or nothing when the executable does not import the
/// function.
template <auto Function, class... Arguments>
[[nodiscard]] std::unique_ptr<ScopedImport<Function>> ReplaceIfImported(Arguments&&... arguments) {
    return IsImported<Function>()
               ? std::make_unique<ScopedImport<Function>>(std::forward<Arguments>(arguments)...)
               : nullptr;
}

namespace Detail {

template <auto Function>
struct RealCaller;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
struct RealCaller<Target> {
    R operator()(Args... args) const {
        // The mention makes the linker import the function.
        [[maybe_unused]] static auto* volatile mention = Target;
        static const auto real = ImportChain<Target>::Instance().Real();
        return real(args...);
    }
};

}  // namespace Detail

/// Calls the function of Windows, whatever fakes are in force: `Real<&::Sleep>(10)`. For the rig
/// itself and for tests that must really wait.
template <auto Function>
constexpr Detail::RealCaller<Function> Real{};

/// Which calls of a function an `ScopedResult` answers, counted from one.
struct AtCall {
    int first;
    int last;
    explicit constexpr AtCall(int only) : first(only), last(only) {}
    constexpr AtCall(int from, int upTo) : first(from), last(upTo) {}
};
constexpr AtCall kEveryCall{1, 0x7fffffff};

/// Lets a function answer with a fixed result and last error instead of being called. The calls
/// that it does not answer go on to what was there.
///
///     ScopedResult<&::OpenServiceW> fails{nullptr, ERROR_ACCESS_DENIED};
///     ScopedResult<&::WlanSetInterface> third{ERROR_BUSY, AtCall{3}};
template <auto Function>
class ScopedResult;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
class ScopedResult<Target> final {
  public:
    explicit ScopedResult(R result, DWORD lastError, AtCall which = kEveryCall)
        : m_which(which), m_fake([this, result, lastError](Args... args) -> R {
              const int call = ++m_calls;
              if (call < m_which.first || call > m_which.last) {
                  return m_fake.Original(args...);
              }
              ++m_answered;
              Real<&::SetLastError>(lastError);
              return result;
          }) {}
    explicit ScopedResult(R result, AtCall which = kEveryCall) : ScopedResult(result, NO_ERROR, which) {}

    /// How many calls were made, answered or not.
    [[nodiscard]] int Calls() const { return m_calls; }
    /// How many of them were answered here.
    [[nodiscard]] int Answered() const { return m_answered; }

  private:
    AtCall m_which;
    std::atomic<int> m_calls = 0;
    std::atomic<int> m_answered = 0;
    ScopedImport<Target> m_fake;
};

/// Replaces what `GetProcAddress` gives for one name (in any module), for a scope; a null
/// address hides the function, and last error is then ERROR_PROC_NOT_FOUND. Code that keeps the
/// address beyond the scope keeps the replacement.
///
///     ScopedProcAddress noTransactions{"RegOpenKeyTransactedW", nullptr};
class ScopedProcAddress final {
  public:
    ScopedProcAddress(std::string name, FARPROC address);
    ScopedProcAddress(const ScopedProcAddress&) = delete;
    ScopedProcAddress& operator=(const ScopedProcAddress&) = delete;
    ~ScopedProcAddress() = default;

    /// How often the name was asked for.
    [[nodiscard]] int Lookups() const { return m_lookups->Calls(); }

  private:
    std::string m_name;
    std::unique_ptr<ScopedImport<&::GetProcAddress>> m_lookups;
};

/// A name as a template argument.
template <std::size_t Size>
struct FixedName {
    std::array<char, Size> text{};
    // NOLINTNEXTLINE(google-explicit-constructor): made from a literal between angle brackets
    constexpr FixedName(const char (&literal)[Size]) { std::copy_n(literal, Size, text.begin()); }
};

/// Replaces a function that the code under test finds at run time with `GetProcAddress`:
///
///     ScopedProc<"RegDeleteKeyExW", LSTATUS(HKEY, LPCWSTR, REGSAM, DWORD)> fake{
///         [&](HKEY, LPCWSTR name, REGSAM, DWORD) -> LSTATUS { ...; return ERROR_SUCCESS; }};
///
/// Nests as `ScopedImport` does. A call after the scope's end, through an address that was kept,
/// throws `NotImported`.
template <FixedName Name, class Signature>
class ScopedProc;

namespace Detail {

template <FixedName Name, class R, class... Args>
class ProcChain final : public FakeChain<R, Args...> {
  public:
    static ProcChain& Instance() {
        static ProcChain& chain = *new ProcChain();
        return chain;
    }

  private:
    ProcChain() : FakeChain<R, Args...>(Name.text.data(), nullptr) {}

    static R WINAPI Trampoline(Args... args) { return Instance().Dispatch(args...); }

    void Install() override {
        m_address.emplace_back(std::make_unique<ScopedProcAddress>(
            this->Name(), reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Trampoline))));
    }
    void Uninstall() override { m_address.clear(); }

    std::vector<std::unique_ptr<ScopedProcAddress>> m_address;
};

}  // namespace Detail

template <FixedName Name, class R, class... Args>
class ScopedProc<Name, R(Args...)> final : public Detail::ScopedLink<Detail::FakeChain<R, Args...>> {
  public:
    explicit ScopedProc(std::function<R(Args...)> fake)
        : Detail::ScopedLink<Detail::FakeChain<R, Args...>>(Detail::ProcChain<Name, R, Args...>::Instance(),
                                                            {}, std::move(fake)) {}
};

}  // namespace Rig
