#include "tests/notebook/hardware.h"

#include <objbase.h>

#include <stdexcept>

#include "notebook/controller/service_manager.h"
#include "notebook/state/text.h"

namespace Notebook::Tests {

namespace {

constexpr auto kPatience = std::chrono::seconds(5);

std::wstring Beside(const char* name) {
    wchar_t path[MAX_PATH];
    const std::wstring own(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    return own.substr(0, own.find_last_of(L'\\') + 1) + Widen(name);
}

}  // namespace

Export::Export(const char* name) {
    static const HMODULE module = LoadLibraryW(Beside(NOTEBOOK_HARDWARE_NAME).c_str());
    m_address = module == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(module, name));
    if (m_address == nullptr) {
        throw std::runtime_error(std::string("The hardware does not export ") + name);
    }
}

Hardware& Hardware::Get() {
    static Hardware hardware;
    return hardware;
}

HRESULT Hardware::CreateObject(REFCLSID clsid, REFIID iid, void** object) {
    ComPtr<IClassFactory> factory;
    const HRESULT found =
        m_getClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(factory.GetAddressOf()));
    return FAILED(found) ? found : factory->CreateInstance(nullptr, iid, object);
}

NotebookTest::NotebookTest() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Hardware::Get();
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
    const auto end = std::chrono::steady_clock::now() + kPatience;
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
    std::string answer =
        RunProgram(L"\"" + Beside(NOTEBOOK_CONTROLLER_NAME) + L"\" " + Widen(command), exitCode);
    while (!answer.empty() && (answer.back() == '\n' || answer.back() == '\r')) {
        answer.pop_back();
    }
    return answer;
}

}  // namespace Notebook::Tests
