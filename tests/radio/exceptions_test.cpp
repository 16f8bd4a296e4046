#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "radio/wlan_radio.h"
#include "radio/wwan_interfaces.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"
#include "tests/support/throw_from_log_line.h"

namespace RadioTests {
namespace {

/// Has something throw out of the middle of an operation, for as long as its answer lives.
using Trouble = std::function<std::shared_ptr<void>(Rig::SimulatedNotebook& notebook)>;

Trouble At(Call call, int nth = 1) {
    return [call, nth](Rig::SimulatedNotebook& notebook) {
        notebook.At(call, nth, []() -> DWORD { throw std::runtime_error("out of order"); });
        return nullptr;
    };
}

Trouble AtLogLine(int nth) {
    return [nth](const auto& /*notebook*/) {
        return std::make_shared<Rig::ThrowFromLogLine>(nth, DWORD{ERROR_ACCESS_DENIED});
    };
}

template <auto Function, class Result = DWORD>
Trouble AtImport(typename ScopedImport<Function>::Condition which = {}) {
    return [which](const auto& /*notebook*/) {
        return std::make_shared<ScopedImport<Function>>(which,
                                                        [](auto...) -> Result { throw DWORD{ERROR_CRC}; });
    };
}

/// An operation without an answer, as one that gives zero.
std::function<int()> Silent(void (*act)()) {
    return [act] {
        act();
        return 0;
    };
}

bool FindsRadio() {
    IMbnRadio* radio = nullptr;
    return GetRadioInterface(&radio) || radio != nullptr;
}

/// An operation of `ServiceUtils`, interrupted in each of these ways while both radios are on.
struct Interrupted {
    std::string operation;
    std::function<int()> act;
    std::wstring exitLine;
    std::vector<Trouble> troubles;
    int result;
};

Interrupted Operation(const char* name, const std::function<int()>& act, const wchar_t* exitLine,
                      const std::vector<Trouble>& troubles, int result = 0) {
    return {name, act, exitLine, troubles, result};
}

void PrintTo(const Interrupted& tested, std::ostream* out) {
    *out << tested.operation;
}

class ExceptionTest : public WwanTest, public testing::WithParamInterface<Interrupted> {
  protected:
    static bool IsSwitchLockFree() {
        bool isFree = false;
        std::thread([&isFree] {
            isFree = WwanState::switchLock.try_lock();
            if (isFree) {
                WwanState::switchLock.unlock();
            }
        }).join();
        return isFree;
    }
};

TEST_P(ExceptionTest, ExceptionIsLoggedAndNothingIsLeftBehind) {
    const Interrupted& tested = GetParam();
    const std::string function = "ServiceUtils::" + tested.operation;
    const std::wstring name(tested.operation.begin(), tested.operation.end());
    for (const Trouble& trouble : tested.troubles) {
        SCOPED_TRACE(&trouble - tested.troubles.data());
        SetModems(1);
        m_machine.log.Clear();
        {
            const std::shared_ptr<void> scope = trouble(m_notebook);
            EXPECT_EQ(tested.act(), tested.result);
        }
        EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(function, L"Exception in " + name + L"()")));
        EXPECT_EQ(m_machine.log.Lines().back(), TraceOut(function, tested.exitLine));
        EXPECT_FALSE(my_setwifitimeout);
        EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
        EXPECT_TRUE(IsSwitchLockFree());
        WwanState::lastRadio.store(nullptr);
        EXPECT_EQ(References(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Operations, ExceptionTest,
    testing::Values(
        Operation("CheckWlanStatus", &CheckWlanStatus, L"WLAN Status = 0",
                  {At(Call::WlanOpenHandle), At(Call::WlanEnumInterfaces), At(Call::WlanQueryInterface)}),
        // The queries before and after catch what they meet.
        Operation("SwitchWlanStatus", [] { return SwitchWlanStatus(kRadioOff, kIgnoreAirplaneMode); },
                  L"WLAN switching Status = 0",
                  {At(Call::WlanOpenHandle, 2), At(Call::WlanEnumInterfaces, 2),
                   At(Call::WlanGetInterfaceCapability), At(Call::WlanSetInterface),
                   At(Call::WlanSetInterface, 2)}),
        Operation("SwitchWlanStatusWithRetry", [] { return SwitchWlanStatusWithRetry(kRadioOn, 5); },
                  L"WLAN switching Status = 0", {AtImport<&::Sleep>()}),
        Operation("StartWLANService", Silent(&StartWLANService), L"", {AtLogLine(2)}),
        // After the entry line and ten of the query.
        Operation("StopWLANService", Silent(&StopWLANService), L"", {AtLogLine(12)}),
        Operation("EnumerateWwanInterfaces", &EnumerateWwanInterfaces, L"Return = 0",
                  {At(Call::MbnInterfaceManagerGetInterfaces), AtImport<&::IIDFromString>()}),
        Operation("GetRadioInterface", &FindsRadio, L"",
                  {At(Call::MbnInterfaceManagerGetInterface), At(Call::MbnInterfaceQueryInterface)}),
        Operation("CheckWwanStatus", &CheckWwanStatus, L"WWAN Status = 0",
                  {At(Call::MbnRadioGetSoftwareRadioState)}),
        Operation("SwitchWwanStatus", [] { return SwitchWwanStatus(kRadioOff, kIgnoreAirplaneMode); },
                  L"WWAN switching Status = 0",
                  {AtImport<&::CreateEventW, HANDLE>(), At(Call::MbnRadioSetSoftwareRadioState),
                   AtImport<&::WaitForSingleObject>([](HANDLE, DWORD limit) { return limit == 7000; }),
                   At(Call::MbnRadioGetSoftwareRadioState, 2)}),
        // A query of the modem pauses, too.
        Operation("SwitchWwanStatusWithRetry", [] { return SwitchWwanStatusWithRetry(kRadioOn, 5); },
                  L"WWAN switching Status = 0",
                  {AtImport<&::Sleep>([](DWORD milliseconds) { return milliseconds == 100; })}),
        Operation("StartWWANService", Silent(&StartWWANService), L"", {AtLogLine(2)}),
        Operation("StopWWANService", Silent(&StopWWANService), L"", {AtLogLine(2)}),
        Operation(
            "SetPowerStatusInRegistry",
            [] { return static_cast<int>(SetPowerStatusInRegistry(PowerStatus::kWlanKey, kRadioOn)); },
            L"Return Status = -1", {AtImport<&::RegSetValueExW>()}, -1),
        Operation(
            "SetWlanPowerStatusInRegistry",
            [] { return static_cast<int>(SetWlanPowerStatusInRegistry(kRadioOn)); }, L"Return Status = -1",
            {AtLogLine(2)}, -1)));

TEST_F(WwanTest, ExceptionOfWhatIsGivenBackChangesNoAnswer) {
    const Rig::ScopedImport<&::WlanCloseHandle> close{[&](HANDLE client, PVOID reserved) -> DWORD {
        close.Original(client, reserved);
        throw std::runtime_error("out of order");
    }};
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(close.Calls(), 1);
    EXPECT_THAT(m_machine.log.At(kError), testing::IsEmpty());
}

}  // namespace
}  // namespace RadioTests
