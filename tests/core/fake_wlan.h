#pragma once

#include <windows.h>
#include <wlanapi.h>

#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/scoped_import.h"

namespace RadioTests {

/// Memory that ends where the next page cannot be read: a look behind it ends the process.
class GuardedBlock {
  public:
    explicit GuardedBlock(std::size_t bytes);
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;
    ~GuardedBlock();

    [[nodiscard]] void* Get() const { return m_start; }

  private:
    void* m_pages;
    void* m_start;
};

/// One PHY of a fake adapter.
struct Phy {
    DOT11_RADIO_STATE software = dot11_radio_state_on;
    DOT11_RADIO_STATE hardware = dot11_radio_state_on;
    /// How many more switches it refuses, and with which error.
    int refusals = 0;
    DWORD refusal = ERROR_GEN_FAILURE;
};
constexpr int kForEver = 1 << 30;

/// One WLAN adapter.
struct WlanAdapter {
    GUID id{};
    std::wstring description = L"Some WLAN Adapter";
    WLAN_INTERFACE_STATE state = wlan_interface_state_connected;
    std::vector<Phy> phys;
};

[[nodiscard]] WlanAdapter AdapterWithPhys(std::vector<Phy> phys);
[[nodiscard]] inline Phy PhyIn(DOT11_RADIO_STATE software,
                               DOT11_RADIO_STATE hardware = dot11_radio_state_on) {
    return {software, hardware};
}
[[nodiscard]] inline Phy On() {
    return PhyIn(dot11_radio_state_on);
}
[[nodiscard]] inline Phy Off() {
    return PhyIn(dot11_radio_state_off);
}
[[nodiscard]] inline Phy Refusing(Phy phy, int times = kForEver) {
    phy.refusals = times;
    return phy;
}

/// The functions of the WLAN interface that the service calls for a radio.
enum class WlanCall { kOpen, kEnumerate, kCapability, kQuery, kSet, kFree, kClose };
void PrintTo(WlanCall call, std::ostream* out);

/// The WLAN interface of a machine, for a scope. Keeps the radios' states, counts handles and
/// memory, and fails the test when one of them is left over, given back twice, or used after.
class FakeWlan {
  public:
    explicit FakeWlan(std::vector<WlanAdapter> adapters);
    /// One adapter with these PHYs.
    explicit FakeWlan(std::vector<Phy> phys);
    FakeWlan(const FakeWlan&) = delete;
    FakeWlan& operator=(const FakeWlan&) = delete;
    ~FakeWlan();

    std::vector<WlanAdapter> adapters;

    /// Has one call answered by `answer`, counted from 1 among its kind; it may throw. When it
    /// gives ERROR_SUCCESS the call goes on as usual.
    void At(WlanCall which, int nth, std::function<DWORD()> answer);
    void Fail(WlanCall which, int nth, DWORD error);
    /// Has every list, capability or query come as null, with success.
    void GiveNothingFor(WlanCall which);
    /// Has every capability or query say this number of PHYs; the record is of the usual size.
    void ClaimPhys(DWORD count);
    /// Has every query give just that many bytes of its record.
    void CutRecords(std::size_t bytes);
    /// Has every list say this number of adapters and have room for just that number.
    void ListOnly(DWORD count);

    /// Every call so far, as "Open 2", "Enumerate", "Capability 0", "Query 0", "Set 0 phy 1 off",
    /// "Free list", "Free capability", "Free record", "Close"; the number after a name is the
    /// adapter's.
    [[nodiscard]] const std::vector<std::string>& Calls() const { return m_calls; }
    [[nodiscard]] int Count(WlanCall which) const;
    /// The calls of one kind.
    [[nodiscard]] std::vector<std::string> CallsOf(WlanCall which) const;
    void ForgetCalls();

    /// Fails the test when the code under test does not hold this handle; for what else takes one.
    void ExpectOpen(HANDLE client) const;

    /// Handles and memory that the code under test holds.
    [[nodiscard]] std::size_t Held() const { return m_handles.size() + m_blocks.size(); }
    /// Whether all PHYs of an adapter are on, or all are off.
    [[nodiscard]] bool IsOn(std::size_t adapter = 0) const;
    [[nodiscard]] bool IsOff(std::size_t adapter = 0) const;

  private:
    /// Memory that the code under test holds.
    struct Block {
        const char* what;
        std::unique_ptr<GuardedBlock> memory;
    };

    /// Notes a call; what its answer says instead, or ERROR_SUCCESS.
    DWORD Note(WlanCall which, const std::string& text);
    void* Allocate(const char* what, std::size_t bytes);
    [[nodiscard]] std::string Name(const GUID* id) const;
    [[nodiscard]] WlanAdapter* Find(const GUID* id);

    DWORD Open(DWORD version, HANDLE* client);
    DWORD Enumerate(HANDLE client, WLAN_INTERFACE_INFO_LIST** list);
    DWORD Capability(HANDLE client, const GUID* id, WLAN_INTERFACE_CAPABILITY** capability);
    DWORD Query(HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode, DWORD* bytes, void** data);
    DWORD Set(HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode, DWORD bytes, const void* data);
    void Free(void* block);
    DWORD Close(HANDLE client);

    std::vector<std::string> m_calls;
    std::vector<WlanCall> m_kinds;
    std::map<WlanCall, int> m_counts;
    std::map<std::pair<WlanCall, int>, std::function<DWORD()>> m_answers;
    std::set<WlanCall> m_nothing;
    DWORD m_claimedPhys = 0;
    bool m_claimsPhys = false;
    std::size_t m_recordBytes = sizeof(WLAN_RADIO_STATE);
    DWORD m_listed = 0;
    bool m_listsOnly = false;
    ULONG_PTR m_lastHandle = 0x1000;
    std::set<HANDLE> m_handles;
    std::map<void*, Block> m_blocks;

    Rig::ScopedImport<&::WlanOpenHandle> m_open;
    Rig::ScopedImport<&::WlanEnumInterfaces> m_enumerate;
    Rig::ScopedImport<&::WlanGetInterfaceCapability> m_capability;
    Rig::ScopedImport<&::WlanQueryInterface> m_query;
    Rig::ScopedImport<&::WlanSetInterface> m_set;
    Rig::ScopedImport<&::WlanFreeMemory> m_free;
    Rig::ScopedImport<&::WlanCloseHandle> m_close;
};

}  // namespace RadioTests
