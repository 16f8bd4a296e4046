#pragma once

#include <windows.h>
#include <wrl/client.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "notebook/hardware/com_object.h"
#include "notebook/hardware/service_manager.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "tests/support/test_clock.h"

namespace Notebook {

inline void PrintTo(Call call, std::ostream* out) {
    *out << CallName(call);
}

}  // namespace Notebook

namespace Rig {

using ::Notebook::Call;

/// The devices of the simulated notebook in this process, for a scope: they answer what the test
/// executable imports of Windows, and remember in memory. A test says what the machine is like, acts,
/// and looks at radios and calls:
///
///     SimulatedNotebook notebook{clock};
///     notebook.SetPhys({On(), Off()});
///     notebook.Fail(Call::WlanSetInterface, 3, ERROR_BUSY);
///     ...
///     EXPECT_TRUE(notebook.WlanIsOn());
///
/// Time is the clock's. What the devices announce is delivered when the clock comes to it (at the next
/// sleep or wait, that is), on a thread of its own in the multithreaded apartment; or by `Deliver`, on
/// the calling thread. The end fails the test when a handle, memory, a registration or a reference is
/// left over, or one was used or given back that was gone. Any thread may call.
class SimulatedNotebook {
  public:
    explicit SimulatedNotebook(TestClock& clock, const ::Notebook::Shape& shape = {});
    SimulatedNotebook(const SimulatedNotebook&) = delete;
    SimulatedNotebook& operator=(const SimulatedNotebook&) = delete;
    ~SimulatedNotebook();

    // --- what it is like; docs/notebook.md tells how the devices behave ---

    /// Makes it anew of other devices: `Make({.wlanAdapters = 2})`. Each radio is on, no cable is in.
    void Make(const ::Notebook::Shape& shape) const;
    [[nodiscard]] ::Notebook::Devices& Devices() const { return m_state.devices; }
    [[nodiscard]] ::Notebook::WlanAdapter& Wlan(std::size_t adapter = 0) const;
    [[nodiscard]] ::Notebook::Modem& Modem(std::size_t modem = 0) const;
    /// Makes the first WLAN adapter one of these PHYs.
    void SetPhys(const std::vector<::Notebook::Phy>& phys) const;
    /// Does something with the devices as they do by themselves: `Act(&Notebook::SwitchWlanByUser, true)`.
    template <class Function, class... Arguments>
    void Act(Function function, Arguments... arguments) const {
        ::Notebook::LockedMachine machine;
        function(*machine, arguments..., machine.Time());
    }

    /// A port for a cable, numbered from 1.
    [[nodiscard]] ::Notebook::Adapter& Cable(std::uint32_t port = 1) const;
    /// One more adapter, named and numbered by itself, without a link.
    ::Notebook::Adapter& AddAdapter(std::uint32_t type) const;
    /// Puts the cable into a port, or pulls it. Its address is there at once, after some time, or never
    /// (`kForEver`).
    void PlugCable(std::uint32_t port = 1, std::uint32_t addressMs = 0) const;
    void PullCable(std::uint32_t port = 1) const;

    /// The firmware settings as their provider has them; both features are enabled at first.
    void RemoveSettings() const;
    void SetSetting(std::wstring_view name, std::wstring_view text) const;
    /// A value of any kind, for one reading, which takes what it owns.
    void SetSetting(std::wstring_view name, const VARIANT& value) const;

    /// What the service manager has installed, by name: WlanSvc, WwanSvc and LinkvaneService run at first.
    [[nodiscard]] static ::Notebook::ManagedService& Service(const std::wstring& name) {
        return ::Notebook::InstalledServices()[name];
    }
    static void Uninstall(const std::wstring& name) { ::Notebook::InstalledServices().erase(name); }
    [[nodiscard]] static bool IsInstalled(const std::wstring& name) {
        return ::Notebook::InstalledServices().contains(name);
    }

    // --- what happens at a call ---

    /// Has the n-th call from now on, counted from 1, do `what` first, which may throw. What it gives is
    /// the call's answer in place of the device's; nothing: the device answers.
    using Action = std::function<std::optional<DWORD>()>;
    void At(Call call, int nth, Action what);
    /// The same where the device answers.
    void Before(Call call, int nth, const std::function<void()>& what);
    /// Every call from now on, but those that `At` names.
    void AtEach(Call call, Action what);
    /// Fails with a Win32 error or HRESULT, as the call has it. Zero is a success that gives nothing.
    void Fail(Call call, int nth, LONG error);
    void FailEach(Call call, LONG error);
    void GiveNothing(Call call) { FailEach(call, ERROR_SUCCESS); }

    /// Puts a call that a test replaced by itself into the row of calls.
    static void Note(const std::string& call);

    // --- what became of it ---

    /// Every call so far, in the order in which they ended, by name and detail as the notebook's trace has
    /// them: "WlanSetInterface PHY 0 to 2".
    [[nodiscard]] std::vector<std::string> Calls() const;
    [[nodiscard]] std::vector<std::string> Calls(Call call) const;
    [[nodiscard]] int Count(Call call) const { return static_cast<int>(Calls(call).size()); }
    void ForgetCalls() const { m_state.traceCount = 0; }

    /// Whether all PHYs of an adapter are on, or all are off.
    [[nodiscard]] bool WlanIsOn(std::size_t adapter = 0) const;
    [[nodiscard]] bool WlanIsOff(std::size_t adapter = 0) const;
    [[nodiscard]] const ::Notebook::Ledger& Held() const { return m_state.ledger; }
    /// So many references to devices' objects are kept to the end of the process, as they are meant to be.
    void KeepForGood(LONG references) const { m_state.ledger.comReferences -= references; }

    /// What was written to the event log so far, one text an entry: R"(source|type|category|id|"text"...)".
    [[nodiscard]] static std::vector<std::string> EventLog();

    /// A new object of a class that the notebook serves.
    template <class Interface>
    [[nodiscard]] Microsoft::WRL::ComPtr<Interface> Create(REFCLSID classId, REFIID interfaceId) const {
        Microsoft::WRL::ComPtr<Interface> object;
        CreateObject(classId, interfaceId, reinterpret_cast<void**>(object.GetAddressOf()));
        return object;
    }

    /// Delivers what was announced so far, on this thread.
    static void Deliver();

  private:
    /// `Create`, as `CoCreateInstance` has it.
    static HRESULT CreateObject(REFCLSID classId, REFIID interfaceId, void** object);
    std::optional<DWORD> Answer(Call call);
    void PlanDelivery();
    void ReplaceImports();

    TestClock& m_clock;
    ::Notebook::Machine& m_state;
    Detail::RigLock m_lock;
    std::map<Call, int> m_counts;
    std::map<std::pair<Call, int>, Action> m_actions;  ///< by call and its number; 0 stands for each
    std::set<TestClock::Milliseconds> m_planned;
    std::vector<std::shared_ptr<void>> m_imports;
};

}  // namespace Rig
