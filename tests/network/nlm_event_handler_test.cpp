#include "network/nlm_event_handler.h"

#include <wrl/client.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cwctype>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "bios/bios_settings.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"
#include "tests/network/network_test.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/registry_tree.h"
#include "tests/support/throw_from_log_line.h"

namespace NetworkTests {
namespace {

using namespace std::chrono_literals;

constexpr char kEvent[] = "NLMEventHandler::NetworkConnectionConnectivityChanged";
constexpr char kDestructor[] = "NLMEventHandler::~NLMEventHandler";
constexpr char kStopWlan[] = "ServiceUtils::StopWLANService";
constexpr char kStartWlan[] = "ServiceUtils::StartWLANService";
constexpr char kStopWwan[] = "ServiceUtils::StopWWANService";
constexpr char kStartWwan[] = "ServiceUtils::StartWWANService";
constexpr wchar_t kStart[] = L"------------------start----------------------";
constexpr wchar_t kEnd[] = L"-------------------end-----------------------";
constexpr char kOff[] = "WlanSetInterface PHY 0 to 2";
constexpr char kOn[] = "WlanSetInterface PHY 0 to 1";

constexpr NLM_CONNECTIVITY kUp = NLM_CONNECTIVITY_IPV4_INTERNET;
constexpr NLM_CONNECTIVITY kDown = NLM_CONNECTIVITY_DISCONNECTED;

std::wstring Element(const std::wstring& id) {
    return L"Current ethernetConnection element: " + id;
}

/// The handler of a notebook with both features enabled, two ports for cables, and Wi-Fi, which is
/// connected.
class CableEventTest : public NetworkTest {
  protected:
    CableEventTest() : NetworkTest({.phys = 1, .cables = 2}) {
        m_handler->AddRef();
        Enable(true, true);
        StartAnew();
    }
    ~CableEventTest() override {
        Enable(false, false);
        msm_Notification_flag = false;
        ServiceUtils::my_setwifitimeout = false;
        m_handler->Release();
    }

    /// The notebook as at the start of the test.
    void StartAnew() {
        m_notebook.Make({.phys = 1, .cables = 2});
        m_notebook.AtEach(Call::GetAdaptersInfo, nullptr);
        m_notebook.Act(&::Notebook::ConnectWifi, 0U);
        m_notebook.ForgetCalls();
        m_wired.clear();
        m_log.Clear();
    }

    static void Enable(bool lanWlan, bool lanWwan) {
        NLMUtils::lanWlanSwitchingEnabled = lanWlan;
        NLMUtils::lanWwanSwitchingEnabled = lanWwan;
    }

    /// Has the handler stand on another manager or set.
    void HandlerOf(INetworkListManager* manager, WiredConnections* wired) {
        m_handler->Release();
        m_handler = new NLMEventHandler(manager, wired);
        m_handler->AddRef();
    }

    [[nodiscard]] const Adapter& Wifi() const { return m_notebook.Devices().adapters[2]; }
    [[nodiscard]] std::wstring Id(std::uint32_t port = 1) const {
        return GuidText(m_notebook.Cable(port).connectionId);
    }
    /// One event, from the outside: through the interface that the event source holds.
    HRESULT Report(const Adapter& adapter, NLM_CONNECTIVITY connectivity) {
        INetworkConnectionEvents* const sink = m_handler;
        return sink->NetworkConnectionConnectivityChanged(adapter.connectionId, connectivity);
    }
    HRESULT ReportCable(NLM_CONNECTIVITY connectivity) { return Report(m_notebook.Cable(), connectivity); }
    /// What happens when a cable is plugged in, with an address at once, or pulled.
    HRESULT Plug() {
        m_notebook.PlugCable();
        return ReportCable(kUp);
    }
    HRESULT Pull() {
        m_notebook.PullCable();
        return ReportCable(kDown);
    }

    [[nodiscard]] bool Wrote(const std::wstring& message) const {
        return m_log.Contains(Information(kEvent, message));
    }

    /// Which radio operations were called, in order.
    [[nodiscard]] std::vector<std::string> RadioOperations() const {
        std::vector<std::string> names;
        for (const LogLine& line : m_log.At(Level::kTraceIn)) {
            for (const char* const name : {kStopWlan, kStartWlan, kStopWwan, kStartWwan}) {
                if (line.function == name) {
                    names.push_back(line.function);
                }
            }
        }
        return names;
    }
    [[nodiscard]] std::vector<std::string> Switches() const {
        return m_notebook.Calls(Call::WlanSetInterface);
    }

    Rig::ScopedRegistryTree m_registry{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva\\Orva Brimlet Support"};
    ComPtr<INetworkListManager> m_manager = NetworkListManager();
    WiredConnections m_wired;
    NLMEventHandler* m_handler = new NLMEventHandler(m_manager.Get(), &m_wired);
};

// --- The cable comes in ---------------------------------------------------------------------------

TEST_F(CableEventTest, CableWithAnAddressSwitchesTheRadiosOffAndRemembersThatTheyWereOn) {
    bool flagAtTheSwitch = false;
    m_notebook.Before(Call::WlanSetInterface, 1, [&] { flagAtTheSwitch = msm_Notification_flag; });

    EXPECT_EQ(Plug(), S_OK);

    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_TRUE(flagAtTheSwitch) << "nobody is to take the change for the user's";
    EXPECT_EQ(m_registry.Read(L"WlanPowerStatus", PowerStatus::kValueName), Rig::RegistryText(L"True"));
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
    EXPECT_THAT(m_wired, ElementsAre(Id()));
    EXPECT_THAT(Messages(kEvent),
                ElementsAre(kStart, L"Connection ID : " + Id(), L"New connectivity state : ",
                            L"Connectivity state : 64 ", L"Ethernet state : 1 ",
                            L"Ethernet Connection - adding to set...", L"Ethernet is connected",
                            L"Connecting to Ethernet. Stop WLAN service...",
                            L"Connecting to Ethernet. Stop WWAN service...", Element(Id()), kEnd));
    EXPECT_EQ(m_log.Lines().front(), TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kEvent));
    EXPECT_THAT(m_clock.Sleeps(), IsEmpty());
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(CableEventTest, AnyBitsAtAllButNoneMeanConnected) {
    m_notebook.PlugCable();

    EXPECT_EQ(ReportCable(NLM_CONNECTIVITY_IPV4_NOTRAFFIC), S_OK);
    EXPECT_THAT(Messages("NLMUtils::PrintConnectivityState"), ElementsAre(L"IPV4 - No Traffic"));
    EXPECT_EQ(ReportCable(std::bit_cast<NLM_CONNECTIVITY>(0x40000000)), S_OK);

    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan, kStopWlan, kStopWwan));
    EXPECT_TRUE(Wrote(L"Connectivity state : 1073741824 "));
    EXPECT_THAT(Switches(), ElementsAre(kOff)) << "the radio is off already the second time";
    EXPECT_THAT(m_wired, ElementsAre(Id()));
}

TEST_F(CableEventTest, WithoutASetTheCableIsNotedAndNothingSwitched) {
    HandlerOf(m_manager.Get(), nullptr);

    EXPECT_EQ(Plug(), S_OK);
    EXPECT_TRUE(Wrote(L"Ethernet state : 1 "));
    EXPECT_FALSE(Wrote(L"Ethernet Connection - adding to set..."));
    EXPECT_EQ(Inside(kEvent).back(), Information(kEvent, kEnd));

    EXPECT_EQ(Pull(), S_OK);
    EXPECT_TRUE(Wrote(L"Connection ID is not in the list, DO nothing"));
    EXPECT_THAT(RadioOperations(), IsEmpty());
}

TEST_F(CableEventTest, EachFeatureSwitchesItsOwnRadio) {
    for (const auto& [lanWlan, lanWwan] : {std::pair{true, false}, {false, true}, {false, false}}) {
        Enable(lanWlan, lanWwan);
        m_log.Clear();
        Plug();
        EXPECT_TRUE(Wrote(L"Ethernet is connected"));
        EXPECT_EQ(Wrote(L"Connecting to Ethernet. Stop WLAN service..."), lanWlan);
        EXPECT_EQ(Wrote(L"Connecting to Ethernet. Stop WWAN service..."), lanWwan);
        EXPECT_EQ(m_log.Contains(TraceIn(kStopWlan)), lanWlan);
        EXPECT_EQ(m_log.Contains(TraceIn(kStopWwan)), lanWwan);

        Pull();
        EXPECT_TRUE(Wrote(L"Ethernet connection status = 0"));
        EXPECT_EQ(m_log.Contains(TraceIn(kStartWlan)), lanWlan);
        EXPECT_EQ(m_log.Contains(TraceIn(kStartWwan)), lanWwan);
        EXPECT_EQ(m_log.Count(Information(kEvent, Element(Id()))), 2) << "the set is kept all the same";
    }
}

// --- The wait for an address ----------------------------------------------------------------------

TEST_F(CableEventTest, AddressIsWaitedForAsLongAsThereIsOneToComeAtMostEightTries) {
    struct Wait {
        const char* name;
        std::function<void()> arrange;
        int failedTries;
        bool switches;
    };
    const std::vector<Wait> waits{
        {"a late address costs one more pause", [this] { m_notebook.PlugCable(1, 3000); }, 4, true},
        {"the address never comes", [] {}, 8, false},
        {"the address of the eighth try is still taken", [this] { m_notebook.PlugCable(1, 7000); }, 8, true},
        {"an address beside an adapter without one", [this] { m_notebook.PlugCable(2); }, 1, true},
        {"the first check fails", [this] { m_notebook.FailEach(Call::GetAdaptersInfo, ERROR_NOT_SUPPORTED); },
         1, false},
        {"a check fails after an adapter without address was seen",
         [this] {
             m_notebook.PlugCable(1, 2000);
             m_notebook.Fail(Call::GetAdaptersInfo, 4, ERROR_NOT_SUPPORTED);  // two calls a check
         },
         3, true},
        {"adapters that vanish are waited for to the end: what an earlier try saw is not forgotten",
         [this] {
             m_clock.At(m_clock.Elapsed() + 2s,
                        [this] { m_notebook.Cable(1).present = m_notebook.Cable(2).present = 0; });
         },
         8, false},
        {"a VPN over an adapter of Ethernet's type",
         [this] {
             m_notebook.PlugCable();
             ::Notebook::CopyText(m_notebook.Cable().description, std::string("Someone's VPN Adapter"));
             m_notebook.Cable(2).present = 0;
         },
         1, false}};
    for (const Wait& wait : waits) {
        SCOPED_TRACE(wait.name);
        StartAnew();
        m_notebook.PlugCable(1, kForEver);
        wait.arrange();
        std::vector<LogLine> expected;
        for (int number = 0; number < wait.failedTries; ++number) {
            expected.push_back(
                Warning(kEvent, L"CheckEthernetConnectionStatus failed in try " + std::to_wstring(number)));
        }
        const auto start = m_clock.Elapsed();

        EXPECT_EQ(ReportCable(kUp), S_OK);

        EXPECT_EQ(m_log.At(Level::kWarning), expected);
        EXPECT_EQ(m_clock.Elapsed() - start, wait.failedTries * 1s);
        EXPECT_EQ(Wrote(L"Ethernet is connected"), wait.switches);
        EXPECT_EQ(m_notebook.WlanIsOff(), wait.switches);
        EXPECT_EQ(RadioOperations().size(), wait.switches ? 2U : 0U);
        EXPECT_THAT(m_wired, ElementsAre(Id()));
        EXPECT_FALSE(msm_Notification_flag);
    }
    EXPECT_THAT(m_clock.Sleeps(), testing::Each(1000));
}

// --- The cable goes out ---------------------------------------------------------------------------

TEST_F(CableEventTest, UnplugBringsTheRadiosBack) {
    Plug();
    m_log.Clear();

    EXPECT_EQ(Pull(), S_OK);

    EXPECT_THAT(Switches(), ElementsAre(kOff, kOn));
    EXPECT_THAT(RadioOperations(), ElementsAre(kStartWlan, kStartWwan));
    EXPECT_THAT(Messages(kEvent),
                ElementsAre(kStart, L"Connection ID : " + Id(), L"New connectivity state : ",
                            L"Disconnecting connection, check list to see if it was Ethernet.",
                            L"Ethernet connection status = 0",
                            L"The disconnecting connection was Ethernet. Start WLAN service...",
                            L"The disconnecting connection was Ethernet. Start WWAN service...",
                            Element(Id()), kEnd));
    EXPECT_THAT(m_wired, ElementsAre(Id())) << "once wired, always known as wired";
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(CableEventTest, SetIsSearchedForExactlyTheIdentifiersText) {
    std::wstring lowerCase = Id();
    std::ranges::transform(lowerCase, lowerCase.begin(), &towlower);
    ASSERT_NE(lowerCase, Id());
    m_wired = {lowerCase, Id() + L" ", Id().substr(1)};

    EXPECT_EQ(Pull(), S_OK);

    EXPECT_TRUE(Wrote(L"Connection ID is not in the list, DO nothing"));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), 0);
}

// --- The end of an event --------------------------------------------------------------------------

TEST_F(CableEventTest, EveryBranchEndsWithTheSetAndTheEndLine) {
    const auto noAddress = [this] { m_notebook.PlugCable(1, kForEver); };
    const auto address = [this] { m_notebook.PlugCable(1); };
    const auto unreadable = [this] {
        m_notebook.PlugCable(1);
        m_notebook.FailEach(Call::GetAdaptersInfo, ERROR_NOT_SUPPORTED);
    };
    const auto pulled = [] {};
    const auto otherCable = [this] { m_notebook.PlugCable(2); };
    const Adapter nobody{};
    struct Branch {
        std::function<void()> arrange;
        const Adapter& reported;
        NLM_CONNECTIVITY connectivity;
        LogLine line;  ///< what the branch is known by
        std::vector<std::string> radioOperations = {};
    };
    const std::vector<Branch> branches{
        {pulled, Wifi(), kDown, Information(kEvent, L"Connection ID is not in the list, DO nothing")},
        {unreadable, m_notebook.Cable(), kDown, Error(kEvent, L"CheckEthernetConnectionStatus failed")},
        {otherCable, m_notebook.Cable(), kDown, Information(kEvent, L"Ethernet connection status = 1")},
        {pulled,
         m_notebook.Cable(),
         kDown,
         Information(kEvent, L"Ethernet connection status = 0"),
         {kStartWlan, kStartWwan}},
        {address, nobody, kUp, Information(kEvent, L"Could not determine connection type. Doing nothing.")},
        {address, Wifi(), kUp, Information(kEvent, L"Ethernet state : 0 ")},
        {noAddress, m_notebook.Cable(), kUp,
         Warning(kEvent, L"CheckEthernetConnectionStatus failed in try 7")},
        {unreadable, m_notebook.Cable(), kUp,
         Warning(kEvent, L"CheckEthernetConnectionStatus failed in try 0")},
        {address,
         m_notebook.Cable(),
         kUp,
         Information(kEvent, L"Ethernet is connected"),
         {kStopWlan, kStopWwan}}};
    for (const Branch& branch : branches) {
        SCOPED_TRACE(testing::PrintToString(branch.line.message));
        StartAnew();
        m_wired = {Id(2), Id(1)};
        branch.arrange();

        EXPECT_EQ(Report(branch.reported, branch.connectivity), S_OK);

        const std::vector<LogLine> lines = Inside(kEvent);
        EXPECT_THAT(lines, Contains(branch.line));
        ASSERT_GE(lines.size(), 3U);
        EXPECT_THAT((std::vector<LogLine>{lines.end() - 3, lines.end()}),
                    ElementsAre(Information(kEvent, Element(Id(1))), Information(kEvent, Element(Id(2))),
                                Information(kEvent, kEnd)));
        EXPECT_EQ(m_wired.size(), 2U);
        EXPECT_EQ(RadioOperations(), branch.radioOperations);
        EXPECT_EQ(m_log.Of("NLMUtils::IsEthernetConnection").empty(), branch.connectivity == kDown)
            << "a connection that is gone is not asked for";
        EXPECT_FALSE(msm_Notification_flag);
    }
}

/// Whether another thread can have the lock now.
bool IsFree(std::mutex& lock) {
    bool isFree = false;
    std::thread([&] {
        isFree = lock.try_lock();
        if (isFree) {
            lock.unlock();
        }
    }).join();
    return isFree;
}

TEST_F(CableEventTest, NotificationFlagIsSetBeforeTheEventWaitsForItsTurn) {
    std::unique_lock otherChange(connectivityChangeLock);
    std::thread event([this] { Report(Wifi(), kDown); });
    for (int i = 0; i < 2000 && !msm_Notification_flag; ++i) {
        Rig::Real<&::Sleep>(DWORD{1});
    }
    EXPECT_TRUE(msm_Notification_flag);
    EXPECT_THAT(Inside(kEvent), IsEmpty());
    otherChange.unlock();
    event.join();
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(CableEventTest, AtItsEndAnEventClearsTheFlagThenFreesTheTextThenLeavesTheLock) {
    std::vector<std::string> steps;
    const auto note = [&steps](const char* step) {
        steps.push_back(std::string(step) + (msm_Notification_flag ? ", flag set" : ", flag clear") +
                        (IsFree(connectivityChangeLock) ? ", lock free" : ", lock held"));
    };
    const ScopedImport<&::CoTaskMemFree> frees{Rig::kWrapping, [&](const auto& original, void* memory) {
                                                   note("text");
                                                   original.Original(memory);
                                               }};
    const Rig::AtEachLogLine lines([&](const auto& entry) {
        const std::wstring message(entry.Message());
        if (message == Element(Id()) || message == kEnd) {
            note(message == kEnd ? "end line" : "element");
        }
    });
    m_wired = {Id()};

    Report(Wifi(), kDown);

    EXPECT_THAT(steps, ElementsAre("element, flag set, lock held", "text, flag clear, lock held",
                                   "end line, flag clear, lock free"));
}

// --- Failures -------------------------------------------------------------------------------------

/// A cable's event that fails, by what `failing` holds while it is handled.
class FailingEventTest : public CableEventTest {
  protected:
    FailingEventTest() { m_notebook.PlugCable(); }
    ~FailingEventTest() override {
        EXPECT_TRUE(msm_Notification_flag);
        EXPECT_THAT(RadioOperations(), IsEmpty());
        EXPECT_EQ(References(), 1) << "the service's own";

        EXPECT_EQ(ReportCable(kUp), S_OK) << "the lock is free again";
        EXPECT_FALSE(msm_Notification_flag) << "the next change clears it";
    }
};

TEST_F(FailingEventTest, IdentifierWithoutATextIsReportedAndTheFlagStaysSet) {
    const ScopedImport<&::StringFromCLSID> noText{[](auto...) -> HRESULT {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return E_OUTOFMEMORY;
    }};

    EXPECT_EQ(ReportCable(kUp), E_OUTOFMEMORY);

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"), Information(kEvent, kStart),
                            Error(kEvent, L"StringFromCLSID failed w/err 0x00000002"), TraceOut(kEvent)));
}

TEST_F(FailingEventTest, ExceptionFailsTheEventAndGivesTheTextBack) {
    // Entry, start, connection: the line after these.
    const Rig::ThrowFromLogLine throwing{4, DWORD{ERROR_GEN_FAILURE}};

    EXPECT_EQ(ReportCable(kUp), E_FAIL);

    EXPECT_THAT(
        m_log.Lines(),
        ElementsAre(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"), Information(kEvent, kStart),
                    Information(kEvent, L"Connection ID : " + Id()),
                    Error(kEvent, L"Exception in NetworkConnectionConnectivityChanged()"), TraceOut(kEvent)));
    EXPECT_EQ(m_ledger.Outstanding(Rig::Kind::kTaskMemory), 0);
}

#if defined(__GNUC__)
TEST_F(CableEventTest, LockThatCannotBeTakenFailsTheEventAndTheFlagStaysSet) {
    HRESULT result = S_OK;
    int refusedWaits = 0;
    {
        const std::lock_guard otherChange(connectivityChangeLock);
        std::thread([&] {
            const NoWaits noWaits;
            result = ReportCable(kUp);
            refusedWaits = noWaits.Calls();
        }).join();
    }

    EXPECT_EQ(refusedWaits, 1);
    EXPECT_EQ(result, E_FAIL);
    EXPECT_TRUE(msm_Notification_flag);
    EXPECT_THAT(
        m_log.Lines(),
        ElementsAre(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"),
                    Error(kEvent, L"Exception in NetworkConnectionConnectivityChanged()"), TraceOut(kEvent)));
}

TEST_F(CableEventTest, AdaptersThatCannotBeGivenBackAtTheEndOfAHandlerAreReported) {
    int refusedWaits = 0;
    m_notebook.PlugCable();
    // While a check holds the adapters' lock.
    m_notebook.Before(Call::GetAdaptersInfo, 1, [&refusedWaits] {
        std::thread([&refusedWaits] {
            auto* const handler = new NLMEventHandler(nullptr, nullptr);
            handler->AddRef();
            const NoWaits noWaits;
            EXPECT_EQ(handler->Release(), 0U);
            refusedWaits = noWaits.Calls();
        }).join();
    });
    int status = -1;

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatusEx(&status, nullptr), 1) << "not disturbed";

    EXPECT_EQ(status, 1);
    EXPECT_EQ(refusedWaits, 1);
    EXPECT_THAT(m_log.Of(kDestructor),
                ElementsAre(TraceIn(kDestructor), Error(kDestructor, L"Exception in ~NLMEventHandler()"),
                            TraceOut(kDestructor)));
}
#endif

// --- Several events, and the end of the service ---------------------------------------------------

// The flag is one for all events. The one that waits has set it already when the
// one before it clears it, and does not set it again.
TEST_F(CableEventTest, EventThatWaitedForAnotherOneSwitchesWithTheFlagClear) {
    m_notebook.PlugCable();
    std::optional<bool> flagAtTheSwitch;
    m_notebook.Before(Call::WlanSetInterface, 1, [&] { flagAtTheSwitch = msm_Notification_flag; });
    std::thread waitingEvent;
    // In the middle of the first event the second one comes. Having set the flag, it takes the
    // third reference to the manager; then it waits.
    const ScopedImport<&::StringFromCLSID> texts{
        Rig::kWrapping, [&](const auto& original, REFCLSID id, LPOLESTR* text) {
            if (!waitingEvent.joinable()) {
                waitingEvent = std::thread([this] { ReportCable(kUp); });
                for (int i = 0; i < 5000 && References() < 3; ++i) {
                    Rig::Real<&::Sleep>(DWORD{1});
                }
                EXPECT_EQ(References(), 3);
                EXPECT_TRUE(msm_Notification_flag);
            }
            return original.Original(id, text);
        }};

    EXPECT_EQ(Report(Wifi(), kDown), S_OK);
    waitingEvent.join();

    EXPECT_THAT(Switches(), ElementsAre(kOff));
    EXPECT_EQ(flagAtTheSwitch, false);
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(CableEventTest, ManagerThatTheServiceGivesBackAtTheFirstLineStaysUsable) {
    {
        const Rig::AtEachLogLine lines{[this](const auto& entry) {
            if (entry.FunctionName() == kEvent) {
                m_manager.Reset();
            }
        }};
        EXPECT_EQ(Plug(), S_OK);
    }
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
    EXPECT_EQ(References(), 0);
}

// --- The COM object -------------------------------------------------------------------------------

TEST_F(CableEventTest, EachInterfaceIsAnsweredWithAReference) {
    IUnknown* const manager = static_cast<INetworkListManagerEvents*>(m_handler);
    IUnknown* const network = static_cast<INetworkEvents*>(m_handler);
    IUnknown* const connection = static_cast<INetworkConnectionEvents*>(m_handler);
    EXPECT_EQ(static_cast<void*>(manager), m_handler) << "the primary interface";
    EXPECT_LT(network, connection);
    // Asked through each of the object's own interfaces.
    for (IUnknown* const way : {manager, network, connection}) {
        for (const auto& [id, expected] : {std::pair{IID_IUnknown, manager},
                                           {IID_INetworkListManagerEvents, manager},
                                           {IID_INetworkConnectionEvents, connection},
                                           {IID_INetworkEvents, network}}) {
            void* object = nullptr;

            EXPECT_EQ(way->QueryInterface(id, &object), S_OK);

            EXPECT_EQ(object, expected);
            EXPECT_EQ(expected->AddRef(), 3U);
            EXPECT_EQ(way->Release(), 2U);
            EXPECT_EQ(expected->Release(), 1U);
        }
    }
}

TEST_F(CableEventTest, UnknownInterfaceOrNullOutPointerIsRefused) {
    void* object = this;
    EXPECT_EQ(m_handler->QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_handler->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(m_handler->AddRef(), 2U);
    EXPECT_EQ(m_handler->Release(), 1U);
}

TEST_F(CableEventTest, ReferencesStartAtNoneAndTheLastReleaseDestroysTheHandler) {
    auto* const handler = new NLMEventHandler(m_manager.Get(), &m_wired);
    EXPECT_EQ(References(), 1) << "the manager is only borrowed";

    EXPECT_EQ(handler->AddRef(), 1U);
    EXPECT_EQ(static_cast<INetworkEvents*>(handler)->AddRef(), 2U);
    EXPECT_EQ(static_cast<INetworkConnectionEvents*>(handler)->Release(), 1U);
    EXPECT_THAT(m_log.Of(kDestructor), IsEmpty());
    EXPECT_EQ(handler->Release(), 0U);

    EXPECT_THAT(m_log.Of(kDestructor), ElementsAre(TraceIn(kDestructor), TraceOut(kDestructor)));
}

#if defined(__GNUC__)
TEST_F(CableEventTest, DestructorStandsBehindThePrimaryInterfacesOperations) {
    alignas(NLMEventHandler) std::byte storage[sizeof(NLMEventHandler)];
    void* const object = new (storage) NLMEventHandler(nullptr, nullptr);
    using Destructor = void(void*);

    // The entry that destroys the object without freeing its memory.
    reinterpret_cast<Destructor*>((*static_cast<void***>(object))[4])(object);

    EXPECT_THAT(m_log.Of(kDestructor), ElementsAre(TraceIn(kDestructor), TraceOut(kDestructor)));
}
#endif

TEST_F(CableEventTest, OtherEventsAreLoggedAndNothingElse) {
    constexpr GUID kId{};
    EXPECT_EQ(m_handler->ConnectivityChanged(kDown), S_OK);
    EXPECT_EQ(m_handler->NetworkAdded(kId), S_OK);
    EXPECT_EQ(m_handler->NetworkDeleted(kId), S_OK);
    EXPECT_EQ(m_handler->NetworkConnectivityChanged(kId, kUp), S_OK);
    EXPECT_EQ(m_handler->NetworkPropertyChanged(kId, NLM_NETWORK_PROPERTY_CHANGE_NAME), S_OK);
    EXPECT_EQ(m_handler->NetworkConnectionPropertyChanged(kId, NLM_CONNECTION_PROPERTY_CHANGE_AUTHENTICATION),
              S_OK);

    std::vector<LogLine> expected;
    for (const auto& [name, entryText] :
         {std::pair{"ConnectivityChanged", L"NLM_CONNECTIVITY = 0"},
          {"NetworkAdded", L""},
          {"NetworkDeleted", L""},
          {"NetworkConnectivityChanged", L"NLM_CONNECTIVITY = 64"},
          {"NetworkPropertyChanged", L"NLM_NETWORK_PROPERTY_CHANGE = 4"},
          {"NetworkConnectionPropertyChanged", L"NLM_CONNECTION_PROPERTY_CHANGE = 1"}}) {
        expected.push_back(TraceIn(std::string("NLMEventHandler::") + name, entryText));
        expected.push_back(TraceOut(std::string("NLMEventHandler::") + name));
    }
    EXPECT_EQ(m_log.Lines(), expected);
}

}  // namespace
}  // namespace NetworkTests
