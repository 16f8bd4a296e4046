#pragma once

#include "tests/network/fake_adapters.h"

#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/registry_tree.h"
#include "tests/support/test_clock.h"

namespace RadioTests {

/// What every radio operation meets on a machine: the log, the time, the registry's remembered
/// states and airplane mode, and the cable (none at first). The process-wide flags are as at the
/// start of the process.
class Machine {
  public:
    Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    Rig::LogRecorder log;
    Rig::TestClock clock;
    Rig::ScopedRegistryTree store{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva\\Orva Brimlet Support"};
    Rig::ScopedRegistryTree airplane{HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey};
    NetworkTests::FakeAdapterList adapters{{NetworkTests::EthernetWithoutAddress()}};

    /// Airplane mode as the system writes it: the unnamed value.
    void SetAirplaneMode(bool on) const;

    void PlugCableIn() { adapters.Set({NetworkTests::EthernetWithAddress()}); }
    void PullCable() { adapters.Set({NetworkTests::EthernetWithoutAddress()}); }
    void HideAdapters() { adapters.FailAlways(ERROR_NOT_SUPPORTED); }

    void RememberWlan(const std::wstring& text) const;
    void RememberWwan(const std::wstring& text) const;
    /// The remembered text; empty when there is none.
    [[nodiscard]] std::wstring RememberedWlan() const;
    [[nodiscard]] std::wstring RememberedWwan() const;

  private:
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

}  // namespace RadioTests
