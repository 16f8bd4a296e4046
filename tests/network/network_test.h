#pragma once

#include <windows.h>
#include <netlistmgr.h>
#include <wrl/client.h>

#include <map>
#include <string>
#include <vector>

#include "notebook/state/text.h"
#include "tests/support/ledger.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/test_clock.h"
#include "tests/support/words.h"

namespace NetworkTests {

using ::Notebook::Adapter;
using ::Notebook::GuidText;
using ::Notebook::kForEver;
namespace Level = Orva::Shared::Level;
using Microsoft::WRL::ComPtr;
using Rig::Call;
using Rig::LogRecorder;
using namespace Rig::Words;

// Interface types as <ipifcons.h> of Windows names them.
constexpr UINT kOther = 1;
constexpr UINT kEthernet = 6;
constexpr UINT kLoopback = 24;
constexpr UINT kWifi = 71;
constexpr UINT kWiMax = 237;
constexpr UINT kGsm = 243;
constexpr UINT kCdma = 244;

/// A test on a notebook of some devices, with no cable in. Everything is given back at its end, the list of
/// adapters that the cable check keeps among it.
class NetworkTest : public testing::Test {
  protected:
    explicit NetworkTest(const ::Notebook::Shape& shape);
    ~NetworkTest() override { ReleaseAdapterList(); }

    /// As the end of an event handler does.
    static void ReleaseAdapterList();

    [[nodiscard]] ComPtr<INetworkListManager> NetworkListManager() const;
    /// References that are held to the devices' objects, the test's own included.
    [[nodiscard]] LONG References() const { return m_notebook.Held().comReferences; }
    /// Blocks of the process heap that are held now.
    [[nodiscard]] int HeapBlocks() const { return m_ledger.Outstanding(Rig::Kind::kHeapMemory); }

    /// What one operation wrote besides its entry and exit lines.
    [[nodiscard]] std::vector<LogLine> Inside(const char* function) const;
    /// The messages among it.
    [[nodiscard]] std::vector<std::wstring> Messages(const char* function) const;
    /// It wrote nothing but an error, and this exit line.
    void ExpectError(const char* function, const std::wstring& line, const std::wstring& exitLine) const;

    /// The room that the calls so far offered for a list of adapters.
    [[nodiscard]] std::vector<SIZE_T> SizesOffered(Call call) const;

    LogRecorder m_log;
    Rig::TestClock m_clock;
    Rig::SimulatedNotebook m_notebook;
    Rig::Ledger m_ledger;
};

/// The process heap as it is: no block that it gives is clean. For a scope; the code under test must take
/// all blocks from the heap that it shares with everybody, without flags. It can be made to refuse.
class UncleanHeap {
  public:
    UncleanHeap();

    /// Refuses the n-th block from now on, counted from 1, with a last error.
    void Refuse(int nth, DWORD lastError = ERROR_NOT_ENOUGH_MEMORY);
    /// Sizes of all blocks asked for so far.
    [[nodiscard]] const std::vector<SIZE_T>& Asked() const { return m_asked; }

  private:
    void* Allocate(HANDLE heap, DWORD flags, SIZE_T bytes);

    std::vector<SIZE_T> m_asked;
    std::map<std::size_t, DWORD> m_refused;
    ScopedImport<&::HeapAlloc> m_allocate;
};

#if defined(__GNUC__)
/// Has the calling thread fail to wait for a lock, for a scope. Other runtimes have locks that
/// cannot fail.
class NoWaits {
  public:
    [[nodiscard]] int Calls() const { return m_waits.Calls(); }

  private:
    ScopedImport<&::WaitForSingleObject> m_waits{
        [thisThread = GetCurrentThreadId()](HANDLE, DWORD) { return GetCurrentThreadId() == thisThread; },
        [](HANDLE, DWORD) -> DWORD { return WAIT_FAILED; }};
};
#endif

}  // namespace NetworkTests
