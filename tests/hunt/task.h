#pragma once

#include <coroutine>
#include <exception>
#include <optional>
#include <utility>

namespace RandomEvents {

/// A procedure of the model: begins when it is waited for, and may stop in its middle. Whoever waits for it
/// goes on when it has ended.
template <class Result>
class [[nodiscard]] Task;

namespace Detail {

struct PromiseBase {
    std::coroutine_handle<> caller = std::noop_coroutine();

    struct HandBack {
        static bool await_ready() noexcept { return false; }  // NOLINT(readability-identifier-naming)
        template <class Promise>
        // NOLINTNEXTLINE(readability-identifier-naming)
        std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> ended) const noexcept {
            return ended.promise().caller;
        }
        void await_resume() const noexcept {}  // NOLINT(readability-identifier-naming)
    };
    // NOLINTBEGIN(readability-identifier-naming): the language's names
    static std::suspend_always initial_suspend() noexcept { return {}; }
    static HandBack final_suspend() noexcept { return {}; }
    [[noreturn]] static void unhandled_exception() { std::terminate(); }
    // NOLINTEND(readability-identifier-naming)
};

template <class Result>
struct Promise : PromiseBase {
    std::optional<Result> result;
    Task<Result> get_return_object();                               // NOLINT(readability-identifier-naming)
    void return_value(Result value) { result = std::move(value); }  // NOLINT(readability-identifier-naming)
    Result Take() { return std::move(*result); }
};

template <>
struct Promise<void> : PromiseBase {
    Task<void> get_return_object();        // NOLINT(readability-identifier-naming)
    static void return_void() noexcept {}  // NOLINT(readability-identifier-naming)
    static void Take() noexcept {}
};

}  // namespace Detail

template <class Result>
class [[nodiscard]] Task {
  public:
    using promise_type = Detail::Promise<Result>;  // NOLINT(readability-identifier-naming)
    using Handle = std::coroutine_handle<promise_type>;

    explicit Task(Handle handle) : m_handle(handle) {}
    Task(Task&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;
    Task& operator=(Task&&) = delete;
    ~Task() {
        if (m_handle) {
            m_handle.destroy();
        }
    }

    [[nodiscard]] Handle Get() const { return m_handle; }

    // NOLINTBEGIN(readability-identifier-naming): the language's names
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> caller) const noexcept {
        m_handle.promise().caller = caller;
        return m_handle;
    }
    Result await_resume() const { return m_handle.promise().Take(); }
    // NOLINTEND(readability-identifier-naming)

  private:
    Handle m_handle;
};

template <class Result>
Task<Result> Detail::Promise<Result>::get_return_object() {
    return Task<Result>(std::coroutine_handle<Promise>::from_promise(*this));
}
inline Task<void> Detail::Promise<void>::get_return_object() {
    return Task<void>(std::coroutine_handle<Promise>::from_promise(*this));
}

}  // namespace RandomEvents
