#include "tests/core/fake_wlan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <ostream>

namespace RadioTests {

namespace {

constexpr std::size_t kPageBytes = 4096;

bool AllSoftwareStatesAre(const WlanAdapter& adapter, DOT11_RADIO_STATE state) {
    return std::ranges::all_of(adapter.phys, [state](const Phy& phy) { return phy.software == state; });
}

}  // namespace

GuardedBlock::GuardedBlock(std::size_t bytes) {
    const std::size_t readable = (bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
    m_pages = VirtualAlloc(nullptr, readable + kPageBytes, MEM_RESERVE, PAGE_NOACCESS);
    if (readable > 0) {
        VirtualAlloc(m_pages, readable, MEM_COMMIT, PAGE_READWRITE);
    }
    // Aligned as Windows' records are, so up to three bytes behind an odd one can be read.
    constexpr std::size_t kAlignment = alignof(WLAN_RADIO_STATE);
    m_start =
        static_cast<std::byte*>(m_pages) + readable - (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

GuardedBlock::~GuardedBlock() {
    VirtualFree(m_pages, 0, MEM_RELEASE);
}

WlanAdapter AdapterWithPhys(std::vector<Phy> phys) {
    WlanAdapter adapter;
    adapter.id = {0xA0A0A0A0, 0x1111, 0x2222, {1, 2, 3, 4, 5, 6, 7, 8}};
    adapter.phys = std::move(phys);
    return adapter;
}

void PrintTo(WlanCall call, std::ostream* out) {
    static constexpr const char* kNames[] = {"Open", "Enumerate", "Capability", "Query",
                                             "Set",  "Free",      "Close"};
    *out << kNames[static_cast<std::size_t>(call)];
}

FakeWlan::FakeWlan(std::vector<Phy> phys) : FakeWlan(std::vector{AdapterWithPhys(std::move(phys))}) {}

FakeWlan::FakeWlan(std::vector<WlanAdapter> initialAdapters)
    : adapters(std::move(initialAdapters)),
      m_open([this](DWORD version, void*, DWORD*, HANDLE* client) { return Open(version, client); }),
      m_enumerate(
          [this](HANDLE client, void*, WLAN_INTERFACE_INFO_LIST** list) { return Enumerate(client, list); }),
      m_capability([this](HANDLE client, const GUID* id, void*, WLAN_INTERFACE_CAPABILITY** capability) {
          return Capability(client, id, capability);
      }),
      m_query([this](HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode, void*, DWORD* bytes, void** data,
                     WLAN_OPCODE_VALUE_TYPE*) { return Query(client, id, opcode, bytes, data); }),
      m_set([this](HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode, DWORD bytes, const void* data,
                   void*) { return Set(client, id, opcode, bytes, data); }),
      m_free([this](void* block) { Free(block); }),
      m_close([this](HANDLE client, void*) { return Close(client); }) {}

FakeWlan::~FakeWlan() {
    EXPECT_TRUE(m_handles.empty()) << m_handles.size() << " WLAN handles are left open";
    EXPECT_TRUE(m_blocks.empty()) << m_blocks.size() << " blocks of WLAN memory are left over";
}

void FakeWlan::At(WlanCall which, int nth, std::function<DWORD()> answer) {
    m_answers[{which, nth}] = std::move(answer);
}

void FakeWlan::Fail(WlanCall which, int nth, DWORD error) {
    At(which, nth, [error] { return error; });
}

void FakeWlan::GiveNothingFor(WlanCall which) {
    m_nothing.insert(which);
}

void FakeWlan::ClaimPhys(DWORD count) {
    m_claimedPhys = count;
    m_claimsPhys = true;
}

void FakeWlan::CutRecords(std::size_t bytes) {
    m_recordBytes = bytes;
}

void FakeWlan::ListOnly(DWORD count) {
    m_listed = count;
    m_listsOnly = true;
}

int FakeWlan::Count(WlanCall which) const {
    return static_cast<int>(std::ranges::count(m_kinds, which));
}

std::vector<std::string> FakeWlan::CallsOf(WlanCall which) const {
    std::vector<std::string> calls;
    for (std::size_t i = 0; i < m_calls.size(); ++i) {
        if (m_kinds[i] == which) {
            calls.push_back(m_calls[i]);
        }
    }
    return calls;
}

void FakeWlan::ForgetCalls() {
    m_calls.clear();
    m_kinds.clear();
}

bool FakeWlan::IsOn(std::size_t adapter) const {
    return AllSoftwareStatesAre(adapters.at(adapter), dot11_radio_state_on);
}

bool FakeWlan::IsOff(std::size_t adapter) const {
    return AllSoftwareStatesAre(adapters.at(adapter), dot11_radio_state_off);
}

DWORD FakeWlan::Note(WlanCall which, const std::string& text) {
    m_calls.push_back(text);
    m_kinds.push_back(which);
    const auto answer = m_answers.find({which, ++m_counts[which]});
    return answer == m_answers.end() ? DWORD{ERROR_SUCCESS} : answer->second();
}

void* FakeWlan::Allocate(const char* what, std::size_t bytes) {
    auto block = std::make_unique<GuardedBlock>(bytes);
    void* const start = block->Get();
    m_blocks[start] = {what, std::move(block)};
    return start;
}

void FakeWlan::ExpectOpen(HANDLE client) const {
    EXPECT_TRUE(m_handles.contains(client)) << "a call with a WLAN handle that is not open";
}

std::string FakeWlan::Name(const GUID* id) const {
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        if (IsEqualGUID(adapters[i].id, *id) != FALSE) {
            return std::to_string(i);
        }
    }
    return IsEqualGUID(*id, GUID{}) != FALSE ? "nobody" : "unknown";
}

WlanAdapter* FakeWlan::Find(const GUID* id) {
    const auto found = std::ranges::find_if(
        adapters, [id](const WlanAdapter& adapter) { return IsEqualGUID(adapter.id, *id) != FALSE; });
    return found == adapters.end() ? nullptr : &*found;
}

DWORD FakeWlan::Open(DWORD version, HANDLE* client) {
    const DWORD error = Note(WlanCall::kOpen, "Open " + std::to_string(version));
    if (error == ERROR_SUCCESS) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a number that no real handle has
        *client = reinterpret_cast<HANDLE>(++m_lastHandle);
        m_handles.insert(*client);
    }
    return error;
}

DWORD FakeWlan::Enumerate(HANDLE client, WLAN_INTERFACE_INFO_LIST** list) {
    ExpectOpen(client);
    const DWORD error = Note(WlanCall::kEnumerate, "Enumerate");
    if (error != ERROR_SUCCESS || m_nothing.contains(WlanCall::kEnumerate)) {
        return error;
    }
    const DWORD count = m_listsOnly ? m_listed : static_cast<DWORD>(adapters.size());
    const std::size_t bytes =
        offsetof(WLAN_INTERFACE_INFO_LIST, InterfaceInfo) + count * sizeof(WLAN_INTERFACE_INFO);
    auto* const made = static_cast<WLAN_INTERFACE_INFO_LIST*>(Allocate("list", bytes));
    made->dwNumberOfItems = count;
    made->dwIndex = 0;
    for (DWORD i = 0; i < count; ++i) {
        WLAN_INTERFACE_INFO& item = made->InterfaceInfo[i];
        item.InterfaceGuid = adapters.at(i).id;
        item.isState = adapters.at(i).state;
        const std::wstring& text = adapters.at(i).description;
        // As long as the field, it has no end of its own.
        std::wmemset(item.strInterfaceDescription, 0, std::size(item.strInterfaceDescription));
        text.copy(item.strInterfaceDescription, std::size(item.strInterfaceDescription));
    }
    *list = made;
    return ERROR_SUCCESS;
}

DWORD FakeWlan::Capability(HANDLE client, const GUID* id, WLAN_INTERFACE_CAPABILITY** capability) {
    ExpectOpen(client);
    const DWORD error = Note(WlanCall::kCapability, "Capability " + Name(id));
    if (error != ERROR_SUCCESS || m_nothing.contains(WlanCall::kCapability)) {
        return error;
    }
    const WlanAdapter* const adapter = Find(id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    *capability =
        static_cast<WLAN_INTERFACE_CAPABILITY*>(Allocate("capability", sizeof(WLAN_INTERFACE_CAPABILITY)));
    (*capability)->dwNumberOfSupportedPhys =
        m_claimsPhys ? m_claimedPhys : static_cast<DWORD>(adapter->phys.size());
    return ERROR_SUCCESS;
}

DWORD FakeWlan::Query(HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode, DWORD* bytes, void** data) {
    ExpectOpen(client);
    EXPECT_EQ(opcode, wlan_intf_opcode_radio_state);
    const DWORD error = Note(WlanCall::kQuery, "Query " + Name(id));
    if (error != ERROR_SUCCESS || m_nothing.contains(WlanCall::kQuery)) {
        return error;
    }
    const WlanAdapter* const adapter = Find(id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    WLAN_RADIO_STATE state{};
    state.dwNumberOfPhys = m_claimsPhys ? m_claimedPhys : static_cast<DWORD>(adapter->phys.size());
    for (std::size_t i = 0; i < std::size(state.PhyRadioState); ++i) {
        const Phy phy = i < adapter->phys.size() ? adapter->phys[i] : Phy{};
        state.PhyRadioState[i] = {static_cast<DWORD>(i), phy.software, phy.hardware};
    }
    *bytes = static_cast<DWORD>(m_recordBytes);
    *data = std::memcpy(Allocate("record", m_recordBytes), &state, m_recordBytes);
    return ERROR_SUCCESS;
}

DWORD FakeWlan::Set(HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode, DWORD bytes, const void* data) {
    ExpectOpen(client);
    EXPECT_EQ(opcode, wlan_intf_opcode_radio_state);
    EXPECT_EQ(bytes, sizeof(WLAN_PHY_RADIO_STATE));
    const auto& wanted = *static_cast<const WLAN_PHY_RADIO_STATE*>(data);
    const bool on = wanted.dot11SoftwareRadioState == dot11_radio_state_on;
    EXPECT_TRUE(on || wanted.dot11SoftwareRadioState == dot11_radio_state_off);
    const DWORD error = Note(WlanCall::kSet, "Set " + Name(id) + " phy " + std::to_string(wanted.dwPhyIndex) +
                                                 (on ? " on" : " off"));
    if (error != ERROR_SUCCESS) {
        return error;
    }
    WlanAdapter* const adapter = Find(id);
    if (adapter == nullptr) {
        return ERROR_NOT_FOUND;
    }
    if (wanted.dwPhyIndex >= adapter->phys.size()) {
        return ERROR_INVALID_PARAMETER;
    }
    Phy& phy = adapter->phys[wanted.dwPhyIndex];
    if (phy.refusals > 0) {
        --phy.refusals;
        return phy.refusal;
    }
    phy.software = wanted.dot11SoftwareRadioState;
    return ERROR_SUCCESS;
}

void FakeWlan::Free(void* block) {
    const auto held = m_blocks.find(block);
    ASSERT_NE(held, m_blocks.end()) << "WLAN memory given back that is not held";
    Note(WlanCall::kFree, std::string("Free ") + held->second.what);
    m_blocks.erase(held);
}

DWORD FakeWlan::Close(HANDLE client) {
    const DWORD error = Note(WlanCall::kClose, "Close");
    if (error == ERROR_SUCCESS) {
        EXPECT_EQ(m_handles.erase(client), 1U) << "a WLAN handle closed that is not open";
    }
    return error;
}

}  // namespace RadioTests
