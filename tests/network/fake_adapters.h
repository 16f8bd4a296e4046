#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/scoped_import.h"

namespace NetworkTests {

// Interface types as <ipifcons.h> of Windows names them.
constexpr UINT kOther = 1;
constexpr UINT kEthernet = 6;
constexpr UINT kLoopback = 24;
constexpr UINT kWifi = 71;
constexpr UINT kWiMax = 237;
constexpr UINT kGsm = 243;
constexpr UINT kCdma = 244;

/// One adapter as `GetAdaptersInfo` lists it.
struct Adapter {
    UINT type;
    std::string address;
    std::string description = "Some Adapter";
    /// None: empty.
    std::string secondAddress = {};
};

/// An Ethernet adapter without an address, as Windows shows one that is unplugged or waits for it.
inline Adapter EthernetWithoutAddress() {
    return {kEthernet, "0.0.0.0"};
}
inline Adapter EthernetWithAddress() {
    return {kEthernet, "192.168.1.20"};
}

/// The machine's adapters as `GetAdaptersInfo` shows them, for a scope. Answers like Windows: asks
/// for the memory it needs, and says ERROR_NO_DATA when there is no adapter. Any thread.
class FakeAdapterList {
  public:
    /// What a call answers instead; it may throw.
    using Answer = std::function<DWORD(IP_ADAPTER_INFO*, ULONG*)>;

    explicit FakeAdapterList(std::vector<Adapter> adapters = {});

    void Set(std::vector<Adapter> adapters);
    /// Has the next call answered by `answer`; several in a row. Later calls are answered as usual.
    void AnswerNext(Answer answer);
    /// The same, with a failure and a last error.
    void FailNext(DWORD result, DWORD lastError = NO_ERROR);
    /// Has every call from now on fail, until `Set`.
    void FailAlways(DWORD result);

    /// The sizes that the calls so far offered.
    [[nodiscard]] std::vector<ULONG> SizesOffered() const;
    [[nodiscard]] int Calls() const { return static_cast<int>(SizesOffered().size()); }

  private:
    DWORD Call(IP_ADAPTER_INFO* list, ULONG* bytes);
    DWORD List(IP_ADAPTER_INFO* list, ULONG* bytes);

    mutable Rig::Detail::RigLock m_lock;
    std::vector<Adapter> m_adapters;
    std::deque<IP_ADDR_STRING> m_secondAddresses;  ///< a deque: records point into it
    std::deque<Answer> m_answers;
    std::optional<DWORD> m_failure;
    std::vector<ULONG> m_sizesOffered;
    Rig::ScopedImport<&::GetAdaptersInfo> m_fake;
};

/// One adapter as `GetAdaptersAddresses` lists it. A text that is not there is a null pointer.
struct AddressedAdapter {
    std::optional<std::string> name;
    ULONG type;
    std::optional<std::wstring> description = L"Some Adapter";
    std::optional<std::wstring> friendlyName = L"Some Name";
};

/// The machine's adapters as `GetAdaptersAddresses` shows them, for a scope.
class FakeAdapterAddresses {
  public:
    using Answer = std::function<ULONG(IP_ADAPTER_ADDRESSES*, ULONG*)>;

    explicit FakeAdapterAddresses(std::vector<AddressedAdapter> adapters = {});

    void Set(std::vector<AddressedAdapter> adapters);
    void AnswerNext(Answer answer);
    void FailNext(ULONG result);
    /// Has the next call ask for that much memory.
    void AskNextFor(ULONG bytes);

    /// The sizes that the calls so far offered.
    [[nodiscard]] const std::vector<ULONG>& SizesOffered() const { return m_sizesOffered; }
    /// The family and the flags of the last call.
    [[nodiscard]] ULONG Family() const { return m_family; }
    [[nodiscard]] ULONG Flags() const { return m_flags; }

  private:
    ULONG Call(ULONG family, ULONG flags, void* reserved, IP_ADAPTER_ADDRESSES* list, ULONG* bytes);

    std::vector<AddressedAdapter> m_adapters;
    std::vector<IP_ADAPTER_ADDRESSES> m_records;
    std::deque<Answer> m_answers;
    std::vector<ULONG> m_sizesOffered;
    ULONG m_family = 0;
    ULONG m_flags = 0;
    Rig::ScopedImport<&::GetAdaptersAddresses> m_fake;
};

/// Watches the process heap for a scope: the blocks that the code under test holds, all from the
/// heap that it shares with everybody, without flags. It can be made to refuse blocks.
class HeapWatch {
  public:
    HeapWatch();

    /// Refuses the n-th allocation from now on, counted from 1, with a last error.
    void Refuse(int nth, DWORD lastError = ERROR_NOT_ENOUGH_MEMORY);
    void RefuseEach(DWORD lastError = ERROR_NOT_ENOUGH_MEMORY);

    /// Sizes of all blocks asked for so far.
    [[nodiscard]] std::vector<SIZE_T> Asked() const;
    /// Sizes of the blocks that are held now.
    [[nodiscard]] std::vector<SIZE_T> Held() const;

  private:
    void* Allocate(HANDLE heap, DWORD flags, SIZE_T bytes);
    BOOL Free(HANDLE heap, DWORD flags, void* block);

    mutable Rig::Detail::RigLock m_lock;
    std::vector<SIZE_T> m_asked;
    std::map<void*, SIZE_T> m_held;
    std::map<int, DWORD> m_refused;
    std::optional<DWORD> m_refusesEach;
    Rig::ScopedImport<&::HeapAlloc> m_allocate;
    Rig::ScopedImport<&::HeapFree> m_free;
};

}  // namespace NetworkTests
