#pragma once

#include <windows.h>
#include <wlanapi.h>

#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/registry_tree.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/test_clock.h"
#include "tests/support/words.h"

namespace RadioTests {

using ::Notebook::kForEver;
using ::Notebook::Phy;
using Rig::Call;
using namespace Rig::Words;
using namespace ServiceUtils;

/// PHYs for `SimulatedNotebook::SetPhys`; the switch in the case is on.
[[nodiscard]] inline Phy PhyIn(DOT11_RADIO_STATE software) {
    Phy phy{};
    phy.software = static_cast<std::uint32_t>(software);
    phy.hardware = ::Notebook::kRadioOn;
    phy.refuseError = ERROR_GEN_FAILURE;
    return phy;
}
[[nodiscard]] inline Phy On() {
    return PhyIn(dot11_radio_state_on);
}
[[nodiscard]] inline Phy Off() {
    return PhyIn(dot11_radio_state_off);
}
[[nodiscard]] inline Phy Refusing(Phy phy, std::uint32_t times = kForEver) {
    phy.refusalsLeft = times;
    return phy;
}

/// What every radio operation meets on a machine: the log, the time, the registry's remembered
/// states and airplane mode, and the devices (no cable at first). The process-wide flags are as at
/// the start of the process.
class Machine {
  public:
    explicit Machine(const ::Notebook::Shape& shape = {});
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    Rig::LogRecorder log;
    Rig::TestClock clock;
    Rig::ScopedRegistryTree store{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva\\Orva Brimlet Support"};
    Rig::ScopedRegistryTree airplane{HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey};
    Rig::SimulatedNotebook notebook;

    /// Airplane mode as the system writes it: the unnamed value.
    void SetAirplaneMode(bool on) const;

    void HideAdapters() { notebook.FailEach(Call::GetAdaptersInfo, ERROR_NOT_SUPPORTED); }

    void RememberWlan(const std::wstring& text) const;
    void RememberWwan(const std::wstring& text) const;
    /// The remembered text; empty when there is none.
    [[nodiscard]] std::wstring RememberedWlan() const;
    [[nodiscard]] std::wstring RememberedWwan() const;

    /// As at the start of the process.
    static void ResetFlags();
};

/// A ledger over radio operations. The list of adapters that the Ethernet test keeps is given back
/// before it closes its books.
class RadioLedger : public Rig::Ledger {
  public:
    RadioLedger() = default;
    RadioLedger(const RadioLedger&) = delete;
    RadioLedger& operator=(const RadioLedger&) = delete;
    ~RadioLedger();
};

/// A test on a machine of its own, where everything is given back at the end.
class RadioTest : public testing::Test {
  protected:
    explicit RadioTest(const ::Notebook::Shape& shape = {}) : m_machine(shape) {}

    Machine m_machine;
    Rig::SimulatedNotebook& m_notebook = m_machine.notebook;
    RadioLedger m_ledger;
};

}  // namespace RadioTests
