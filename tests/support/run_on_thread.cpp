#include "tests/support/run_on_thread.h"

#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <stdexcept>

#include "tests/support/scoped_import.h"

namespace Rig {

namespace {

/// One run; shared with the thread, which may outlive the wait for it.
struct Run {
    std::function<void()> what;
    Apartment apartment;
    std::exception_ptr thrown;
};

/// The visits to COM that the apartment calls for. They go through the import table, so that a
/// test that counts them counts these too.
class ComVisits {
  public:
    explicit ComVisits(Apartment apartment) : m_apartment(apartment) {
        const DWORD model =
            apartment == Apartment::kSingleThreaded ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED;
        for (int i = 0; i < Entries(); ++i) {
            EXPECT_GE(CoInitializeEx(nullptr, model), 0) << "the thread cannot enter COM";
        }
    }
    ComVisits(const ComVisits&) = delete;
    ComVisits& operator=(const ComVisits&) = delete;
    ~ComVisits() {
        if (m_apartment != Apartment::kNone) {
            CoUninitialize();
        }
    }

  private:
    [[nodiscard]] int Entries() const {
        switch (m_apartment) {
            case Apartment::kNone:
                return 0;
            case Apartment::kMultithreadedTwice:
                return 2;
            default:
                return 1;
        }
    }

    Apartment m_apartment;
};

DWORD WINAPI RunIt(void* argument) {
    const std::unique_ptr<std::shared_ptr<Run>> owned(static_cast<std::shared_ptr<Run>*>(argument));
    Run& run = **owned;
    try {
        const ComVisits visits(run.apartment);
        run.what();
    } catch (...) {
        run.thrown = std::current_exception();
    }
    return 0;
}

}  // namespace

void RunOnThread(std::function<void()> what, Apartment apartment, std::chrono::milliseconds patience) {
    const auto run = std::make_shared<Run>(Run{std::move(what), apartment, nullptr});
    auto argument = std::make_unique<std::shared_ptr<Run>>(run);
    const HANDLE thread = Real<&::CreateThread>(nullptr, 0, &RunIt, argument.get(), 0, nullptr);
    if (thread == nullptr) {
        throw std::runtime_error("The test cannot start a thread");
    }
    static_cast<void>(argument.release());
    const DWORD result = Real<&::WaitForSingleObject>(thread, static_cast<DWORD>(patience.count()));
    Real<&::CloseHandle>(thread);
    if (result != WAIT_OBJECT_0) {
        ADD_FAILURE() << "The thread did not come to its end within " << patience.count() << " ms";
        throw std::runtime_error("A thread of the test hangs");
    }
    if (run->thrown != nullptr) {
        std::rethrow_exception(run->thrown);
    }
}

}  // namespace Rig
