#include "network/network_diagnostics.h"

#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/network/network_test.h"

namespace NetworkTests {
namespace {

using ::Notebook::ConnectionList;

constexpr char kState[] = "NLMUtils::PrintConnectivityState";
constexpr char kConnections[] = "NLMUtils::PrintNetworkConnections";
constexpr wchar_t kAdding[] = L"Ethernet Connection - adding to set...";
constexpr HRESULT kGone = static_cast<HRESULT>(0x80070490);  // ERROR_NOT_FOUND as an HRESULT

/// On a notebook without adapters: each test adds its connections.
class DiagnosticsTest : public NetworkTest {
  protected:
    DiagnosticsTest() : NetworkTest({.wlanAdapters = 0, .cables = 0}) {}

    /// One more adapter, with a connection, to the internet.
    Adapter& Connect(UINT type) const {
        Adapter& adapter = m_notebook.AddAdapter(type);
        adapter.plugged = adapter.hasAddress = 1;
        adapter.connectivity = NLM_CONNECTIVITY_IPV4_INTERNET;
        return adapter;
    }
    /// The text under which a connection joins the set.
    static std::wstring Id(const Adapter& adapter) { return GuidText(adapter.connectionId); }

    void Print() { NLMUtils::PrintNetworkConnections(m_manager.Get(), &m_wired); }
    [[nodiscard]] std::vector<std::wstring> Messages() const { return NetworkTest::Messages(kConnections); }

    ComPtr<INetworkListManager> m_manager = NetworkListManager();
    WiredConnections m_wired;
};

TEST_F(DiagnosticsTest, ConnectivityIsALineForEachGroupThatHasOne) {
    constexpr wchar_t kDisconnected[] = L"Network Disconnected";
    const std::vector<std::pair<DWORD, std::vector<std::wstring>>> cases{
        {0x0, {kDisconnected}},
        {0x1, {L"IPV4 - No Traffic"}},
        {0x2, {L"IPV6 - No Traffic"}},
        {0x3, {}},
        {0x4, {}},
        {0x10, {kDisconnected, L"IPV4 - Subnet"}},
        {0x20, {kDisconnected, L"IPV4 - Local Connectivity"}},
        {0x40, {kDisconnected, L"IPV4 - Internet Connectivity"}},
        {0x60, {kDisconnected}},
        {0x80, {kDisconnected}},
        {0x100, {kDisconnected, L"IPV6 - Subnet"}},
        {0x200, {kDisconnected, L"IPV6 - Local Connectivity"}},
        {0x400, {kDisconnected, L"IPV6 - Internet Connectivity"}},
        {0x800, {kDisconnected}},
        {0x240, {kDisconnected, L"IPV4 - Internet Connectivity", L"IPV6 - Local Connectivity"}},
        {0x412, {L"IPV6 - No Traffic", L"IPV4 - Subnet", L"IPV6 - Internet Connectivity"}},
        {0x333, {}},
        {0x1000, {kDisconnected}},
        {0xFFFFFFFF, {}}};
    for (const auto& [value, texts] : cases) {
        SCOPED_TRACE(value);
        m_log.Clear();

        NLMUtils::PrintConnectivityState(&value);

        EXPECT_EQ(NetworkTest::Messages(kState), texts);
        std::wostringstream hexadecimal;
        hexadecimal << std::hex << value;
        EXPECT_EQ(m_log.Lines().front(), TraceIn(kState, L"NLM_CONNECTIVITY - 0x" + hexadecimal.str()));
        EXPECT_EQ(m_log.Lines().back(), TraceOut(kState));
    }
}

TEST_F(DiagnosticsTest, ConnectionIsLoggedWithAdapterNetworkAndConnectivity) {
    const Adapter& cable = Connect(kEthernet);

    Print();

    const auto adapterLine = Rig::Line(Level::kInformation, "NLMUtils::PrintAdapterInfo", testing::_);
    EXPECT_THAT(m_log.From(Level::kInformation),
                ElementsAre(Information(kConnections, L"Current Connections:"),
                            Information(kConnections, L"Connection : 1"),
                            Information(kConnections, L"Connection Id : " + Id(cable)),
                            Information(kConnections, L"Adapter Id : " + GuidText(cable.id)),
                            Information(kConnections, L"Adapter Info: "), adapterLine, adapterLine,
                            adapterLine, adapterLine, Information(kConnections, kAdding),
                            Information(kConnections, L"Connected to Network (Name): Network 1"),
                            Information(kConnections, L"Is Connected to Network: -1"),
                            Information(kConnections, L"Is Connected to Internet: -1"),
                            Information(kConnections, L"Detailed connectivity states:"),
                            Information(kState, L"Network Disconnected"),
                            Information(kState, L"IPV4 - Internet Connectivity")));
    EXPECT_EQ(m_log.Lines().front(), TraceIn(kConnections));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kConnections));
    EXPECT_THAT(m_wired, ElementsAre(Id(cable)));
    EXPECT_EQ(References(), 1) << "the test's own";
}

TEST_F(DiagnosticsTest, OnlyWiredConnectionsJoinTheSetConnectedOrNot) {
    Connect(kWifi);
    const Adapter& second = Connect(kEthernet);
    const Adapter& third = Connect(kEthernet);
    m_notebook.GiveNothing(Call::NetworkConnectionIsConnected);

    Print();

    EXPECT_THAT(m_wired, ElementsAre(Id(second), Id(third)));
    EXPECT_THAT(Messages(), Contains(L"Is Connected to Network: 0").Times(3));
}

TEST_F(DiagnosticsTest, WithoutASetNothingIsAdded) {
    Connect(kEthernet);

    NLMUtils::PrintNetworkConnections(m_manager.Get(), nullptr);

    EXPECT_THAT(Messages(), Not(Contains(kAdding)));
    EXPECT_THAT(Messages(), Contains(L"Connected to Network (Name): Network 1"));
}

TEST_F(DiagnosticsTest, WithoutAManagerOrAListOnlyAnErrorIsWritten) {
    NLMUtils::PrintNetworkConnections(nullptr, &m_wired);
    m_notebook.Fail(Call::NetworkListManagerGetNetworkConnections, 1, E_ACCESSDENIED);
    Print();
    m_notebook.Fail(Call::NetworkListManagerGetNetworkConnections, 1, S_OK);  // without a list
    Print();

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kConnections), Error(kConnections, L"INetworkListManager is NULL"),
                            TraceOut(kConnections), TraceIn(kConnections),
                            Error(kConnections, L"GetNetworkConnections Failed with error 0x80070005"),
                            TraceOut(kConnections), TraceIn(kConnections), TraceOut(kConnections)));
}

TEST_F(DiagnosticsTest, NoConnectionsGiveTheHeadingAlone) {
    Print();

    EXPECT_THAT(Messages(), ElementsAre(L"Current Connections:"));
    EXPECT_THAT(m_notebook.Calls(Call::NetworkConnectionsNext),
                ElementsAre("IEnumNetworkConnections::Next 0 of 20"));
}

TEST_F(DiagnosticsTest, TwentyFiveConnectionsComeInTwoBatchesAndAreCountedThrough) {
    for (int i = 0; i < 25; ++i) {
        Connect(kEthernet);
    }

    Print();

    EXPECT_THAT(m_notebook.Calls(Call::NetworkConnectionsNext),
                ElementsAre("IEnumNetworkConnections::Next 20 of 20", "IEnumNetworkConnections::Next 5 of 20",
                            "IEnumNetworkConnections::Next 0 of 20"));
    int expected = 0;
    for (const std::wstring& message : Messages()) {
        if (message.starts_with(L"Connection : ")) {
            EXPECT_EQ(message, L"Connection : " + std::to_wstring(++expected));
        }
    }
    EXPECT_EQ(expected, 25);
    EXPECT_EQ(m_wired.size(), 25U);
}

TEST_F(DiagnosticsTest, ListThatBreaksOffOrDoesNotSayHowManyEndsTheWalk) {
    for (int i = 0; i < 25; ++i) {
        Connect(kWifi);
    }
    for (const LONG answer : {E_FAIL, S_OK}) {
        m_log.Clear();
        m_notebook.Fail(Call::NetworkConnectionsNext, 2, answer);
        Print();
        EXPECT_THAT(Messages(), Contains(L"Connection : 20"));
        EXPECT_THAT(Messages(), Not(Contains(L"Connection : 21")));
    }
}

TEST_F(DiagnosticsTest, EmptyPlacesInAListArePassedOverAndMoreThanWasAskedForNotBelieved) {
    const Adapter& cable = Connect(kEthernet);
    for (const auto& [list, count] :
         {std::pair{ConnectionList::NullElement, 2}, {ConnectionList::TooMany, 20}}) {
        m_log.Clear();
        m_notebook.Devices().connectionList = list;
        Print();
        EXPECT_THAT(m_wired, ElementsAre(Id(cable)));
        EXPECT_THAT(Messages(), Contains(L"Connection : " + std::to_wstring(count)));
        EXPECT_THAT(Messages(), Not(Contains(L"Connection : " + std::to_wstring(count + 1))));
    }
}

TEST_F(DiagnosticsTest, StepThatFailsLeavesOutItsLineAlone) {
    struct Step {
        Call call;
        LONG answer;
        std::wstring missing;
    };
    const std::vector<Step> steps{
        {Call::NetworkConnectionGetConnectionId, kGone, L"Connection Id"},
        {Call::NetworkConnectionGetAdapterId, kGone, L"Adapter Id"},
        {Call::NetworkConnectionGetNetwork, kGone, L"Connected to Network"},
        {Call::NetworkConnectionGetNetwork, S_OK, L"Connected to Network"},  // without an object
        {Call::NetworkGetName, kGone, L"Connected to Network"},
        {Call::NetworkConnectionIsConnected, kGone, L"Is Connected to Network"},
        {Call::NetworkConnectionIsConnectedToInternet, kGone, L"Is Connected to Internet"},
        {Call::NetworkConnectionGetConnectivity, kGone, L"(what another operation writes)"}};
    const std::array adapters{&Connect(kWifi), &Connect(kWifi)};
    for (const Step& step : steps) {
        SCOPED_TRACE(testing::PrintToString(step.call));
        m_log.Clear();
        m_notebook.Fail(step.call, 1, step.answer);

        Print();

        std::vector<std::wstring> expected{L"Current Connections:"};
        for (const int number : {1, 2}) {
            const Adapter& adapter = *adapters[static_cast<std::size_t>(number) - 1];
            for (const std::wstring& message :
                 {L"Connection : " + std::to_wstring(number), L"Connection Id : " + Id(adapter),
                  L"Adapter Id : " + GuidText(adapter.id), std::wstring(L"Adapter Info: "),
                  L"Connected to Network (Name): Network " + std::to_wstring(number),
                  std::wstring(L"Is Connected to Network: -1"), std::wstring(L"Is Connected to Internet: -1"),
                  std::wstring(L"Detailed connectivity states:")}) {
                if (number == 2 || !message.starts_with(step.missing)) {
                    expected.push_back(message);
                }
            }
        }
        EXPECT_EQ(Messages(), expected);
        EXPECT_EQ(m_log.Count(TraceIn(kState, L"NLM_CONNECTIVITY - 0x40")),
                  step.call == Call::NetworkConnectionGetConnectivity ? 1 : 2);
        EXPECT_EQ(References(), 1);
    }
}

TEST_F(DiagnosticsTest, WiredConnectionWithoutAnIdentifierIsNotAdded) {
    Connect(kEthernet);
    m_notebook.FailEach(Call::NetworkConnectionGetConnectionId, kGone);

    Print();

    EXPECT_THAT(Messages(), Not(Contains(kAdding)));
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(DiagnosticsTest, TextsThatAreNotThereAreLeftOutOrEmpty) {
    Connect(kEthernet);
    const ScopedImport<&::StringFromCLSID> noText{[](auto...) -> HRESULT { return E_OUTOFMEMORY; }};
    m_notebook.GiveNothing(Call::NetworkGetName);

    Print();

    EXPECT_THAT(Messages(), ElementsAre(L"Current Connections:", L"Connection : 1", L"Adapter Info: ",
                                        L"Connected to Network (Name): ", L"Is Connected to Network: -1",
                                        L"Is Connected to Internet: -1", L"Detailed connectivity states:"));
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(DiagnosticsTest, ExceptionIsLoggedAndEverythingReleased) {
    Connect(kEthernet);
    Connect(kEthernet);
    m_notebook.Before(Call::NetworkGetName, 1, [] { throw std::runtime_error("name"); });

    Print();

    EXPECT_THAT(m_log.At(Level::kError),
                ElementsAre(Error(kConnections, L"Exception in PrintNetworkConnections()")));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kConnections));
    EXPECT_EQ(References(), 1);
}

TEST_F(DiagnosticsTest, SetIsNotTouchedWhileAConnectivityChangeIsHandled) {
    const Adapter& cable = Connect(kEthernet);
    std::unique_lock change(connectivityChangeLock);
    std::thread startUp([this] { Print(); });
    EXPECT_TRUE(m_log.WaitFor(Information(kConnections, kAdding)));
    EXPECT_THAT(m_wired, IsEmpty());
    EXPECT_EQ(Messages().back(), kAdding);

    change.unlock();
    startUp.join();

    EXPECT_THAT(m_wired, ElementsAre(Id(cable)));
}

}  // namespace
}  // namespace NetworkTests
