#pragma once

#include <windows.h>
#include <oaidl.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "notebook/state/calls.h"

// What the notebook remembers: plain structures in a file that the service's process, the stub
// services and the controller map at the same time. Nothing here owns anything, so that a process
// that is killed leaves no damage. All of it is read and written under the state's lock, except
// where a field says that it is changed by interlocked operations.

namespace Notebook {

/// Raised whenever a structure below changes; a file of another version is made anew.
inline constexpr std::uint32_t kLayoutVersion = 11;
inline constexpr std::uint32_t kLayoutMagic = 0x4B4F424E;

inline constexpr std::size_t kMaxAdapters = 512;
inline constexpr std::size_t kMaxWlanAdapters = 4;
inline constexpr std::size_t kMaxPhys = 64;
inline constexpr std::size_t kMaxModems = 4;
inline constexpr std::size_t kMaxSettings = 16;
inline constexpr std::size_t kMaxListeners = 8;
inline constexpr std::size_t kMaxPending = 256;
inline constexpr std::size_t kMaxHeldEvents = 512;
inline constexpr std::size_t kEventCapacity = 8192;
inline constexpr std::size_t kTraceCapacity = 16384;
inline constexpr std::size_t kEventLogCapacity = 128;

/// A point in time or a span: microseconds of the system's performance counter.
using Micros = std::int64_t;
inline constexpr Micros kMicrosPerMilli = 1000;
inline constexpr Micros kNever = INT64_MAX;

/// Radio states as the WLAN interface numbers them (DOT11_RADIO_STATE).
inline constexpr std::uint32_t kRadioOn = 1;
inline constexpr std::uint32_t kRadioOff = 2;

/// Counts "for ever" in fields that count down.
inline constexpr std::uint32_t kForEver = 0xFFFFFFFF;

/// Counts down; whether there was something left.
inline bool TakeOne(std::uint32_t& left) {
    const bool hadOne = left != 0;
    left -= hadOne && left != kForEver ? 1 : 0;
    return hadOne;
}

/// One network adapter and the one connection that it can have.
struct Adapter {
    std::uint32_t present;
    std::uint32_t type;  ///< interface type (IfType)
    char name[16];       ///< how commands name it; "cable1" is the first cable's port, "wifi1" the first WLAN
                         ///< adapter
    GUID id;
    char description[132];
    wchar_t friendlyName[64];
    char address[16];  ///< what it has when it has an address; may be empty
    GUID connectionId;
    GUID networkId;
    wchar_t networkName[64];
    std::uint32_t connectivityUp;  ///< NLM_CONNECTIVITY once it has an address
    std::uint32_t plugged;         ///< the link is there
    std::uint32_t hasAddress;      ///< otherwise the list shows "0.0.0.0"
    std::uint32_t connectivity;    ///< NLM_CONNECTIVITY now; 0: no connection
};

/// One PHY of a WLAN adapter.
struct Phy {
    std::uint32_t software;
    std::uint32_t hardware;
    std::uint32_t refusalsLeft;  ///< `kForEver`: it never accepts
    std::uint32_t refuseError;
    std::uint32_t beforeAirplane;  ///< software state to restore
    std::uint32_t sets;            ///< attempts to set it, refused ones included
};

struct WlanAdapter {
    std::uint32_t present;
    GUID id;
    wchar_t description[256];
    std::uint32_t state;  ///< WLAN_INTERFACE_STATE
    std::uint32_t phyCount;
    Phy phys[kMaxPhys];
};

/// Which radio object a modem's completion event carries.
enum class ConfirmRadio : std::uint32_t { Same, Fresh, Opposite, Failing, Null };

struct Modem {
    std::uint32_t present;
    GUID id;
    wchar_t idText[64];      ///< what get_InterfaceID gives; empty: the identifier
    std::uint32_t software;  ///< 1 on, 0 off (MBN_RADIO)
    std::uint32_t beforeAirplane;
    std::uint32_t confirmMs;  ///< `kForEver`: it never confirms
    std::uint32_t follows;    ///< 0: the radio stays as it is, whatever it confirms
    ConfirmRadio confirmRadio;
    std::int32_t confirmStatus;  ///< HRESULT of the completion
    std::uint32_t wrongRequest;  ///< the completion carries another request's number
    std::uint32_t revertsLeft;   ///< how many switches it takes back
    std::uint32_t revertMs;      ///< so long after its completion
    std::uint32_t refusalsLeft;
    std::uint32_t refuseError;
    std::uint32_t sets;
};

/// What `GetInterfaces` answers.
enum class ModemList : std::uint32_t { Normal, Empty, Null, OddBounds, NullElement, WrongType };

/// How the enumerator of network connections answers.
enum class ConnectionList : std::uint32_t {
    Normal,
    NullElement,  ///< its first place is empty
    TooMany       ///< it says that it gave a thousand more than it did
};

/// The type of a setting whose value is the variant of `raw`, for one reading in this process.
inline constexpr VARTYPE kRawVariant = VT_VARIANT;

/// One BIOS setting as its provider shows it.
struct Setting {
    std::uint32_t present;
    VARTYPE type;
    wchar_t name[64];
    wchar_t text[256];  ///< text, or the number in digits
    VARIANT raw;
    std::uint32_t timeoutsLeft;
};

enum class RuleKind : std::uint32_t { None, Fail, HoldUntilStopped };

/// What happens to the next calls of one name.
struct CallRule {
    RuleKind kind;
    std::uint32_t skip;  ///< calls that pass before the rule counts
    std::uint32_t left;  ///< calls that it still meets
    std::uint32_t error;
    std::uint32_t slowMs;  ///< every call, whatever the kind
};

/// Changed by interlocked operations.
struct CallCount {
    LONG calls;
    LONG failed;
};

enum class PendingKind : std::uint32_t { Free, AddressArrives, ModemConfirms, ModemReverts };

/// Something that the devices do by themselves when its time comes.
struct Pending {
    PendingKind kind;
    std::uint32_t index;
    std::uint32_t value;
    std::uint32_t request;
    Micros due;
    std::uint64_t order;  ///< keeps those of the same time in order
};

/// How long devices take, what they answer. Everything that `reset` makes new.
struct Devices {
    std::uint32_t sleepDivisor;  ///< the executable's pauses end so many times as soon; 0: as they are
    Adapter adapters[kMaxAdapters];
    std::uint32_t adapterCount;
    ConnectionList connectionList;
    WlanAdapter wlan[kMaxWlanAdapters];
    std::uint32_t wlanServiceRuns;
    Modem modems[kMaxModems];
    ModemList modemList;
    std::uint32_t nextRequest;
    std::uint32_t wwanServiceRuns;
    Setting settings[kMaxSettings];
    std::uint32_t providerPresent;
    std::uint32_t wlanServiceLateMs;  ///< start pending so long
    std::uint32_t wwanServiceLateMs;
    std::uint32_t machineConnectivity;  ///< as last announced
    std::uint32_t asleep;
    Pending pending[kMaxPending];
    std::uint64_t nextPendingOrder;
};

enum class EventKind : std::uint32_t {
    None,
    Wlan,
    WlanNullNotification,
    ConnectionConnectivity,
    NetworkConnectivity,
    MachineConnectivity,
    ModemStateChange,
    ModemSetComplete
};

/// Something that the devices tell those who subscribed.
struct Event {
    EventKind kind = EventKind::None;
    std::uint32_t source = 0;  ///< WLAN: notification source
    std::uint32_t code = 0;    ///< WLAN: notification code
    GUID id = {};              ///< WLAN interface, connection or network
    std::uint32_t value = 0;   ///< connectivity; WLAN: the PHY; modem: its index
    std::uint32_t software = 0;
    std::uint32_t hardware = 0;
    std::uint32_t withoutData = 0;  ///< WLAN: no data behind the notification
    std::uint32_t request = 0;
    std::int32_t status = 0;
    ConfirmRadio radio = ConfirmRadio::Same;
    Micros at = 0;
};

/// A process that delivers events to its own subscribers.
struct Listener {
    std::uint32_t process;  ///< 0: free
    std::uint64_t seen;     ///< events that it has taken
};

/// The process that runs as the service.
struct ServiceRun {
    std::uint32_t process;
    std::uint32_t runs;     ///< registrations of a control handler
    std::uint32_t stopped;  ///< this run has reported STOPPED
    LONG controlsSent;      ///< by the controller; interlocked
    LONG controlsBegun;     ///< interlocked
    LONG controlsEnded;     ///< interlocked
    DWORD reported;         ///< the state that it told the service manager last; 0: none yet
};

/// What the service holds of what the hardware gave out since it last started. Interlocked.
struct Ledger {
    LONG wlanHandles;
    LONG wlanMemory;
    LONG wlanRegistrations;
    LONG comReferences;
    LONG comSinks;
    LONG eventSources;
    LONG misuses;  ///< a handle that is not open, memory given back twice
};

struct TraceEntry {
    Micros at;
    Micros took;
    std::uint32_t process;
    std::uint32_t thread;
    Call call;
    std::uint32_t result;
    char detail[96];
};

/// How busy a process is with the devices. Interlocked.
struct Activity {
    LONG callsBegun;
    LONG callsEnded;
    LONG deliveriesBegun;
    LONG deliveriesEnded;
    LONG waitsBegun;  ///< sleeps and waits with a time limit
    LONG waitsEnded;
    LONGLONG lastAt;
};

/// One entry of the Windows event log, as it was reported.
struct EventLogEntry {
    SYSTEMTIME at;  ///< local time
    wchar_t source[64];
    WORD type;
    WORD category;
    DWORD identifier;
    wchar_t strings[1024];  ///< one behind the other, each terminated; cut to fit
    std::uint32_t letters;  ///< of all strings, their ends included
};

struct Machine {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t size;
    Micros epoch;             ///< counter at `epochTime`, to show times as the clock does
    std::uint64_t epochTime;  ///< FILETIME, system time

    Devices devices;
    CallRule rules[kCallCount];
    CallCount counts[kCallCount];

    Event events[kEventCapacity];
    std::uint64_t eventCount;  ///< all events so far; the last ones are in the ring
    Event held[kMaxHeldEvents];
    std::uint32_t heldCount;
    Listener listeners[kMaxListeners];
    std::uint64_t schedule;  ///< raised when something new is pending

    ServiceRun service;
    Ledger ledger;
    Activity activity;           ///< of the service's process
    std::uint32_t deviceServer;  ///< the process that serves the COM classes; 0: the service's own does
    Activity serverActivity;     ///< of that process

    EventLogEntry eventLog[kEventLogCapacity];
    std::uint64_t eventLogCount;  ///< all entries so far; the last ones are in the ring

    std::uint32_t traceOn;
    LONGLONG traceCount;  ///< interlocked
    TraceEntry trace[kTraceCapacity];
};

static_assert(std::is_trivially_copyable_v<Machine> && std::is_standard_layout_v<Machine>);

}  // namespace Notebook
