#include "tests/support/run_on_thread.h"

#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tests/support/com_support.h"
#include "tests/support/scoped_import.h"

namespace Rig {

namespace {

/// One run; shared with the thread, which may outlive the wait for it.
struct Run {
    std::function<void()> what;
    Apartment apartment;
    std::exception_ptr thrown;
};

DWORD WINAPI RunIt(void* argument) {
    const std::unique_ptr<std::shared_ptr<Run>> owned(static_cast<std::shared_ptr<Run>*>(argument));
    Run& run = **owned;
    try {
        std::optional<ComApartment> entered;
        if (run.apartment != Apartment::kNone) {
            const bool isSingleThreaded = run.apartment == Apartment::kSingleThreaded;
            entered.emplace(isSingleThreaded ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
        }
        if (run.apartment == Apartment::kMultithreadedTwice) {
            EXPECT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), 0);
        }
        run.what();
    } catch (...) {
        run.thrown = std::current_exception();
    }
    return 0;
}

}  // namespace

void RunOnThread(std::function<void()> what, Apartment apartment, std::chrono::milliseconds timeout) {
    const auto run = std::make_shared<Run>(Run{std::move(what), apartment, nullptr});
    auto argument = std::make_unique<std::shared_ptr<Run>>(run);
    const HANDLE thread = Real<&::CreateThread>(nullptr, 0, &RunIt, argument.get(), 0, nullptr);
    if (thread == nullptr) {
        throw std::runtime_error("The test cannot start a thread");
    }
    static_cast<void>(argument.release());
    const DWORD result = Real<&::WaitForSingleObject>(thread, static_cast<DWORD>(timeout.count()));
    Real<&::CloseHandle>(thread);
    if (result != WAIT_OBJECT_0) {
        ADD_FAILURE() << "The thread did not come to its end within " << timeout.count() << " ms";
        throw std::runtime_error("A thread of the test hangs");
    }
    if (run->thrown != nullptr) {
        std::rethrow_exception(run->thrown);
    }
}

}  // namespace Rig
