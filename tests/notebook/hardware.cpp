#include "tests/notebook/hardware.h"

#include <objbase.h>

#include "notebook/controller/service_manager.h"
#include "notebook/hardware/start.h"
#include "notebook/state/text.h"

namespace Notebook::Tests {

NotebookTest::NotebookTest() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    StartWlan();
    ReplaceAdapterList();
    Reset(Shape{});
}

NotebookTest::~NotebookTest() {
    // A delivery that has just ended may still hold what it delivered.
    Eventually([] { return SharedState::Get().Raw().ledger.comReferences == 0; });
    const Ledger& ledger = SharedState::Get().Raw().ledger;
    EXPECT_EQ(0, ledger.wlanHandles);
    EXPECT_EQ(0, ledger.wlanMemory);
    EXPECT_EQ(0, ledger.wlanRegistrations);
    EXPECT_EQ(0, ledger.comReferences);
    EXPECT_EQ(0, ledger.comSinks);
    CoUninitialize();
}

void NotebookTest::Reset(const Shape& shape) {
    LockedMachine machine;
    ResetMachine(*machine, shape, machine.Time());
    machine->ledger = {};
    machine->activity = {};
}

bool Eventually(const std::function<bool()>& happened) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!happened()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        Sleep(1);
    }
    return true;
}

std::string RunController(const std::string& command) {
    DWORD exitCode = 0;
    std::string answer = RunProgram(Widen("\"" NOTEBOOK_CONTROLLER "\" " + command), exitCode);
    while (!answer.empty() && (answer.back() == '\n' || answer.back() == '\r')) {
        answer.pop_back();
    }
    return answer;
}

}  // namespace Notebook::Tests
