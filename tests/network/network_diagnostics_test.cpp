#include "network/network_diagnostics.h"

#include <gmock/gmock.h>
#include <wrl/client.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/network/fake_adapters.h"
#include "tests/network/fake_network.h"
#include "tests/support/log_recorder.h"

namespace NetworkTests {
namespace {

namespace Level = Orva::Shared::Level;
using namespace Rig::Lines;
using Microsoft::WRL::ComPtr;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kState[] = "NLMUtils::PrintConnectivityState";
constexpr char kConnections[] = "NLMUtils::PrintNetworkConnections";

struct ConnectivityCase {
    DWORD value;
    const wchar_t* entryText;
    std::vector<std::wstring> texts;
};

class PrintConnectivityStateOf : public testing::TestWithParam<ConnectivityCase> {};

TEST_P(PrintConnectivityStateOf, WritesALineForEachGroupThatHasOne) {
    LogRecorder log;

    NLMUtils::PrintConnectivityState(&GetParam().value);

    std::vector<LogLine> expected{TraceIn(kState, GetParam().entryText)};
    for (const std::wstring& text : GetParam().texts) {
        expected.push_back(Information(kState, text));
    }
    expected.push_back(TraceOut(kState));
    EXPECT_EQ(log.Lines(), expected);
}

constexpr wchar_t kDisconnected[] = L"Network Disconnected";

INSTANTIATE_TEST_SUITE_P(
    Values, PrintConnectivityStateOf,
    testing::Values(
        ConnectivityCase{0x0, L"NLM_CONNECTIVITY - 0x0", {kDisconnected}},
        ConnectivityCase{0x1, L"NLM_CONNECTIVITY - 0x1", {L"IPV4 - No Traffic"}},
        ConnectivityCase{0x2, L"NLM_CONNECTIVITY - 0x2", {L"IPV6 - No Traffic"}},
        ConnectivityCase{0x3, L"NLM_CONNECTIVITY - 0x3", {}},
        ConnectivityCase{0x4, L"NLM_CONNECTIVITY - 0x4", {}},
        ConnectivityCase{0x10, L"NLM_CONNECTIVITY - 0x10", {kDisconnected, L"IPV4 - Subnet"}},
        ConnectivityCase{0x20, L"NLM_CONNECTIVITY - 0x20", {kDisconnected, L"IPV4 - Local Connectivity"}},
        ConnectivityCase{0x40, L"NLM_CONNECTIVITY - 0x40", {kDisconnected, L"IPV4 - Internet Connectivity"}},
        ConnectivityCase{0x60, L"NLM_CONNECTIVITY - 0x60", {kDisconnected}},
        ConnectivityCase{0x80, L"NLM_CONNECTIVITY - 0x80", {kDisconnected}},
        ConnectivityCase{0x100, L"NLM_CONNECTIVITY - 0x100", {kDisconnected, L"IPV6 - Subnet"}},
        ConnectivityCase{0x200, L"NLM_CONNECTIVITY - 0x200", {kDisconnected, L"IPV6 - Local Connectivity"}},
        ConnectivityCase{
            0x400, L"NLM_CONNECTIVITY - 0x400", {kDisconnected, L"IPV6 - Internet Connectivity"}},
        ConnectivityCase{0x800, L"NLM_CONNECTIVITY - 0x800", {kDisconnected}},
        ConnectivityCase{0x240,
                         L"NLM_CONNECTIVITY - 0x240",
                         {kDisconnected, L"IPV4 - Internet Connectivity", L"IPV6 - Local Connectivity"}},
        ConnectivityCase{0x412,
                         L"NLM_CONNECTIVITY - 0x412",
                         {L"IPV6 - No Traffic", L"IPV4 - Subnet", L"IPV6 - Internet Connectivity"}},
        ConnectivityCase{0x333, L"NLM_CONNECTIVITY - 0x333", {}},
        ConnectivityCase{0x1000, L"NLM_CONNECTIVITY - 0x1000", {kDisconnected}},
        ConnectivityCase{0xFFFFFFFF, L"NLM_CONNECTIVITY - 0xffffffff", {}}));

/// A manager with connections, wired or not; connection n goes over adapter n.
class PrintNetworkConnectionsTest : public testing::Test {
  protected:
    enum class Carrier : bool { kEthernet, kWifi };

    PrintNetworkConnectionsTest() { EXPECT_EQ(m_manager.HandOut(m_reference.GetAddressOf()), S_OK); }

    FakeConnection& AddConnection(Carrier carrier) {
        const auto number = static_cast<unsigned char>(m_connections.size() + 1);
        m_connections.push_back(
            std::make_unique<FakeConnection>(ConnectionGuid(number), AdapterGuid(number)));
        m_manager.connections.push_back(m_connections.back().get());
        m_adapters.push_back({AdapterName(number), carrier == Carrier::kEthernet ? kEthernet : kWifi});
        m_addresses.Set(m_adapters);
        return *m_connections.back();
    }

    void Print() { NLMUtils::PrintNetworkConnections(m_reference.Get(), &m_wired); }

    /// The messages of the operation itself, all of one level.
    [[nodiscard]] std::vector<std::wstring> Messages(int level = Level::kInformation) const {
        std::vector<std::wstring> messages;
        for (const LogLine& line : m_log.Of(kConnections)) {
            if (line.level == level) {
                messages.push_back(line.message);
            }
        }
        return messages;
    }
    [[nodiscard]] bool Wrote(const std::wstring& message) const {
        return m_log.Contains(Information(kConnections, message));
    }

    LogRecorder m_log;
    std::vector<std::unique_ptr<FakeConnection>> m_connections;
    FakeNetworkListManager m_manager;
    ComPtr<INetworkListManager> m_reference;
    std::vector<AddressedAdapter> m_adapters;
    FakeAdapterAddresses m_addresses;
    WiredConnections m_wired;
};

TEST_F(PrintNetworkConnectionsTest, ConnectionIsLoggedWithAdapterNetworkAndConnectivity) {
    FakeConnection& cable = AddConnection(Carrier::kEthernet);
    cable.isConnectedToInternet = true;
    cable.connectivity = NLM_CONNECTIVITY_IPV4_SUBNET;

    Print();

    std::vector<LogLine> lines = m_log.From(Level::kInformation);
    EXPECT_THAT(lines, ElementsAre(Information(kConnections, L"Current Connections:"),
                                   Information(kConnections, L"Connection : 1"),
                                   Information(kConnections, L"Connection Id : " + ConnectionText(1)),
                                   Information(kConnections, L"Adapter Id : " + AdapterText(1)),
                                   Information(kConnections, L"Adapter Info: "),
                                   Rig::Line(Level::kInformation, "NLMUtils::PrintAdapterInfo", testing::_),
                                   Rig::Line(Level::kInformation, "NLMUtils::PrintAdapterInfo", testing::_),
                                   Rig::Line(Level::kInformation, "NLMUtils::PrintAdapterInfo", testing::_),
                                   Rig::Line(Level::kInformation, "NLMUtils::PrintAdapterInfo", testing::_),
                                   Information(kConnections, L"Ethernet Connection - adding to set..."),
                                   Information(kConnections, L"Connected to Network (Name): Home"),
                                   Information(kConnections, L"Is Connected to Network: -1"),
                                   Information(kConnections, L"Is Connected to Internet: -1"),
                                   Information(kConnections, L"Detailed connectivity states:"),
                                   Information(kState, L"Network Disconnected"),
                                   Information(kState, L"IPV4 - Subnet")));
    EXPECT_EQ(m_log.Lines().front(), TraceIn(kConnections));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kConnections));
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
    EXPECT_EQ(cable.References(), 0);
    EXPECT_EQ(cable.network.References(), 0);
    EXPECT_EQ(m_manager.enumerator.References(), 0);
    EXPECT_EQ(m_manager.References(), 1) << "the test's own";
}

TEST_F(PrintNetworkConnectionsTest, OnlyWiredConnectionsJoinTheSetConnectedOrNot) {
    AddConnection(Carrier::kWifi);
    AddConnection(Carrier::kEthernet).isConnected = false;
    AddConnection(Carrier::kEthernet);

    Print();

    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(2), ConnectionText(3)));
    EXPECT_TRUE(Wrote(L"Is Connected to Network: 0"));
}

TEST_F(PrintNetworkConnectionsTest, WithoutASetNothingIsAdded) {
    AddConnection(Carrier::kEthernet);

    NLMUtils::PrintNetworkConnections(m_reference.Get(), nullptr);

    EXPECT_FALSE(Wrote(L"Ethernet Connection - adding to set..."));
    EXPECT_TRUE(Wrote(L"Connected to Network (Name): Home"));
}

TEST_F(PrintNetworkConnectionsTest, WithoutAManagerOnlyAnErrorIsWritten) {
    NLMUtils::PrintNetworkConnections(nullptr, &m_wired);

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kConnections), Error(kConnections, L"INetworkListManager is NULL"),
                            TraceOut(kConnections)));
}

TEST_F(PrintNetworkConnectionsTest, FailedListIsReported) {
    m_manager.connectionsResult = E_ACCESSDENIED;

    Print();

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kConnections),
                            Error(kConnections, L"GetNetworkConnections Failed with error 0x80070005"),
                            TraceOut(kConnections)));
}

TEST_F(PrintNetworkConnectionsTest, SuccessWithoutAListIsSurvived) {
    m_manager.givesEnumerator = false;

    Print();

    EXPECT_THAT(m_log.At(Level::kError), IsEmpty());
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(PrintNetworkConnectionsTest, NoConnectionsGiveTheHeadingAlone) {
    Print();

    EXPECT_THAT(Messages(), ElementsAre(L"Current Connections:"));
    EXPECT_THAT(m_manager.enumerator.asked, ElementsAre(20));
}

TEST_F(PrintNetworkConnectionsTest, TwentyFiveConnectionsComeInTwoBatchesAndAreCountedThrough) {
    for (int i = 0; i < 25; ++i) {
        AddConnection(Carrier::kEthernet);
    }

    Print();

    EXPECT_THAT(m_manager.enumerator.asked, testing::Each(20));
    EXPECT_THAT(m_manager.enumerator.given, ElementsAre(20, 5, 0));
    int expected = 0;
    for (const std::wstring& message : Messages()) {
        if (message.starts_with(L"Connection : ")) {
            EXPECT_EQ(message, L"Connection : " + std::to_wstring(++expected));
        }
    }
    EXPECT_EQ(expected, 25);
    EXPECT_EQ(m_wired.size(), 25U);
    for (const auto& connection : m_connections) {
        EXPECT_EQ(connection->References(), 0);
    }
}

TEST_F(PrintNetworkConnectionsTest, ListThatBreaksOffEndsTheWalk) {
    for (int i = 0; i < 25; ++i) {
        AddConnection(Carrier::kWifi);
    }
    m_manager.enumerator.failure = {2, E_FAIL};

    Print();

    EXPECT_TRUE(Wrote(L"Connection : 20"));
    EXPECT_FALSE(Wrote(L"Connection : 21"));
    EXPECT_THAT(m_log.At(Level::kError), IsEmpty());
}

TEST_F(PrintNetworkConnectionsTest, EmptyPlaceInTheListIsCountedAndPassedOver) {
    AddConnection(Carrier::kWifi);
    m_manager.connections.push_back(nullptr);
    AddConnection(Carrier::kEthernet);

    Print();

    EXPECT_TRUE(Wrote(L"Connection : 3"));
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(2)));
}

TEST_F(PrintNetworkConnectionsTest, ListThatSaysItGaveMoreThanItWasAskedForIsNotBelieved) {
    AddConnection(Carrier::kWifi);
    m_manager.enumerator.boast = 1000;

    Print();

    EXPECT_TRUE(Wrote(L"Connection Id : " + ConnectionText(1)));
    EXPECT_FALSE(Wrote(L"Connection : 21"));
}

/// A step that fails, and the line that is then left out.
struct FailingStep {
    const char* name;
    void (*fail)(FakeConnection&);
    std::wstring missing;
};

class PrintNetworkConnectionsWithout : public PrintNetworkConnectionsTest,
                                       public testing::WithParamInterface<FailingStep> {};

TEST_P(PrintNetworkConnectionsWithout, LeavesOutThatLineAloneAndGoesOn) {
    FakeConnection& broken = AddConnection(Carrier::kWifi);
    GetParam().fail(broken);
    AddConnection(Carrier::kWifi);

    Print();

    std::vector<std::wstring> expected;
    for (const int number : {1, 2}) {
        const auto id = static_cast<unsigned char>(number);
        for (const std::wstring& message :
             {L"Connection : " + std::to_wstring(number), L"Connection Id : " + ConnectionText(id),
              L"Adapter Id : " + AdapterText(id), std::wstring(L"Adapter Info: "),
              std::wstring(L"Connected to Network (Name): Home"),
              std::wstring(L"Is Connected to Network: -1"), std::wstring(L"Is Connected to Internet: 0"),
              std::wstring(L"Detailed connectivity states:")}) {
            if (number == 2 || !message.starts_with(GetParam().missing)) {
                expected.push_back(message);
            }
        }
    }
    expected.insert(expected.begin(), L"Current Connections:");
    EXPECT_EQ(Messages(), expected);
    EXPECT_THAT(m_log.At(Level::kError), IsEmpty());
    EXPECT_EQ(broken.References(), 0);
    EXPECT_EQ(broken.network.References(), 0);
}

constexpr HRESULT kGone = static_cast<HRESULT>(0x80070490);  // ERROR_NOT_FOUND as an HRESULT

INSTANTIATE_TEST_SUITE_P(
    Steps, PrintNetworkConnectionsWithout,
    testing::Values(
        FailingStep{"ConnectionId", [](FakeConnection& c) { c.connectionIdResult = kGone; },
                    L"Connection Id"},
        FailingStep{"AdapterId", [](FakeConnection& c) { c.adapterIdResult = kGone; }, L"Adapter Id"},
        FailingStep{"Network", [](FakeConnection& c) { c.networkResult = kGone; }, L"Connected to Network"},
        FailingStep{"NetworkObject", [](FakeConnection& c) { c.hasNetwork = false; },
                    L"Connected to Network"},
        FailingStep{"NetworkName", [](FakeConnection& c) { c.network.nameResult = kGone; },
                    L"Connected to Network"},
        FailingStep{"IsConnected", [](FakeConnection& c) { c.isConnectedResult = kGone; },
                    L"Is Connected to Network"},
        FailingStep{"IsConnectedToInternet", [](FakeConnection& c) { c.isConnectedToInternetResult = kGone; },
                    L"Is Connected to Internet"}),
    [](const testing::TestParamInfo<FailingStep>& tested) { return tested.param.name; });

TEST_F(PrintNetworkConnectionsTest, ConnectionThatIsGoneAltogetherIsSurvived) {
    FakeConnection& gone = AddConnection(Carrier::kEthernet);
    gone.connectionIdResult = gone.adapterIdResult = gone.networkResult = kGone;
    gone.isConnectedResult = gone.isConnectedToInternetResult = gone.connectivityResult = kGone;

    Print();

    EXPECT_THAT(Messages(), ElementsAre(L"Current Connections:", L"Connection : 1", L"Adapter Info: ",
                                        L"Detailed connectivity states:"));
    EXPECT_THAT(m_log.Of(kState), IsEmpty());
    EXPECT_TRUE(m_log.Contains(Warning("NLMUtils::PrintAdapterInfo", L"Could not find matching adapter")));
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(PrintNetworkConnectionsTest, WiredConnectionWithoutAnIdentifierIsNotAdded) {
    AddConnection(Carrier::kEthernet).connectionIdResult = kGone;

    Print();

    EXPECT_FALSE(Wrote(L"Ethernet Connection - adding to set..."));
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(PrintNetworkConnectionsTest, IdentifiersWithoutTextsAreLeftOut) {
    AddConnection(Carrier::kEthernet);
    const ScopedImport<&::StringFromCLSID> noText{[](auto...) -> HRESULT { return E_OUTOFMEMORY; }};

    Print();

    EXPECT_FALSE(Wrote(L"Connection Id : " + ConnectionText(1)));
    EXPECT_FALSE(Wrote(L"Adapter Id : " + AdapterText(1)));
    EXPECT_TRUE(Wrote(L"Connected to Network (Name): Home"));
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(PrintNetworkConnectionsTest, NetworkWithoutANameIsLoggedAsEmpty) {
    AddConnection(Carrier::kWifi).network.name.reset();

    Print();

    EXPECT_TRUE(Wrote(L"Connected to Network (Name): "));
}

TEST_F(PrintNetworkConnectionsTest, TextsAndNamesAreGivenBack) {
    AddConnection(Carrier::kEthernet);
    int texts = 0;
    int freedTexts = 0;
    int freedNames = 0;
    const ScopedImport<&::StringFromCLSID> gives{[&](REFCLSID id, LPOLESTR* text) {
        ++texts;
        return gives.Original(id, text);
    }};
    const ScopedImport<&::CoTaskMemFree> frees{[&](void* memory) {
        ++freedTexts;
        frees.Original(memory);
    }};
    const ScopedImport<&::SysFreeString> freesNames{[&](BSTR name) {
        ++freedNames;
        freesNames.Original(name);
    }};

    Print();

    EXPECT_EQ(texts, 2);
    EXPECT_EQ(freedTexts, 2);
    EXPECT_EQ(freedNames, 1);
}

TEST_F(PrintNetworkConnectionsTest, ExceptionIsLoggedAndEverythingReleased) {
    FakeConnection& first = AddConnection(Carrier::kEthernet);
    FakeConnection& second = AddConnection(Carrier::kEthernet);
    const ScopedImport<&::StringFromCLSID> throws{
        [](auto...) -> HRESULT { throw std::runtime_error("text"); }};

    Print();

    EXPECT_THAT(m_log.At(Level::kError),
                ElementsAre(Error(kConnections, L"Exception in PrintNetworkConnections()")));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kConnections));
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(second.References(), 0);
    EXPECT_EQ(m_manager.enumerator.References(), 0);
}

TEST_F(PrintNetworkConnectionsTest, SetIsNotTouchedWhileAConnectivityChangeIsHandled) {
    AddConnection(Carrier::kEthernet);
    std::unique_lock change(connectivityChangeLock);
    std::thread startUp([this] { Print(); });
    EXPECT_TRUE(m_log.WaitFor(Information(kConnections, L"Ethernet Connection - adding to set...")));
    EXPECT_THAT(m_wired, IsEmpty());
    EXPECT_FALSE(Wrote(L"Connected to Network (Name): Home"));

    change.unlock();
    startUp.join();

    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
}

}  // namespace
}  // namespace NetworkTests
