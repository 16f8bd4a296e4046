#include "core/event_subscription.h"

#include <netlistmgr.h>
#include <olectl.h>

#include <array>
#include <ostream>

#include "logging/log_scope.h"
#include "tests/core/core_test.h"
#include "tests/support/fake_unknown.h"

namespace CoreTests {
namespace {

using Microsoft::WRL::ComPtr;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kSubscriber[] = "Test::Subscribe";

/// Refuses its interface from one query on.
class Sink : public Rig::FakeUnknown<INetworkConnectionEvents> {
  public:
    Sink() : FakeUnknown("sink") {}
    int queriesLeft = 1 << 30;

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        if (interfaceId == IID_INetworkConnectionEvents && --queriesLeft < 0) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        return FakeUnknown::QueryInterface(interfaceId, object);
    }
    HRESULT WINAPI NetworkConnectionConnectivityChanged(GUID, NLM_CONNECTIVITY) override { return S_OK; }
    HRESULT WINAPI NetworkConnectionPropertyChanged(GUID, NLM_CONNECTION_PROPERTY_CHANGE) override {
        return S_OK;
    }
};

/// A manager that has no connection points.
class ManagerWithoutContainer : public Rig::FakeUnknown<IUnknown> {
  public:
    explicit ManagerWithoutContainer(HRESULT answer) : FakeUnknown("manager"), m_answer(answer) {}
    HRESULT WINAPI QueryInterface(REFIID /*interfaceId*/, void** object) override {
        *object = nullptr;
        return m_answer;
    }

  private:
    HRESULT m_answer;
};

/// One sink, subscribed twice to the events of connections.
class EventSubscriptionTest : public CoreTest {
  protected:
    ~EventSubscriptionTest() override {
        for (std::size_t i = 0; i < m_points.size(); ++i) {
            if (m_cookies.at(i) != 0) {
                EXPECT_EQ(m_points.at(i)->Unadvise(m_cookies.at(i)), S_OK);
            }
        }
    }

    void Subscribe(IUnknown* manager, bool keepsSink) {
        const LogScope scope(kSubscriber);
        SubscribeToEvents(scope, manager,
                          {{IID_INetworkConnectionEvents, L"find 1: 0x%08X", L"query 1: 0x%08X", m_points[0],
                            m_cookies[0], keepsSink},
                           {IID_INetworkConnectionEvents, L"find 2: 0x%08X", L"query 2: 0x%08X", m_points[1],
                            m_cookies[1], keepsSink}},
                          [this] {
                              ++m_sinksMade;
                              ComPtr<IUnknown> sink;
                              if (m_hasSink) {
                                  m_sink.HandOut(IID_IUnknown, reinterpret_cast<void**>(sink.GetAddressOf()));
                              }
                              return sink;
                          });
    }
    [[nodiscard]] int PointsKept() const { return (m_points[0] ? 1 : 0) + (m_points[1] ? 1 : 0); }
    [[nodiscard]] int Subscriptions() const { return (m_cookies[0] ? 1 : 0) + (m_cookies[1] ? 1 : 0); }
    /// The references that nobody releases are the test's in the end.
    void ReleaseKept(int references) {
        for (int i = 0; i < references; ++i) {
            m_sink.Release();
        }
    }

    Sink m_sink;
    bool m_hasSink = true;
    int m_sinksMade = 0;
    ComPtr<INetworkListManager> m_manager =
        notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
    std::array<ComPtr<IConnectionPoint>, 2> m_points;
    std::array<DWORD, 2> m_cookies{};
};

TEST_F(EventSubscriptionTest, OneSinkIsSubscribedToEachKindAndHeldByTheDeviceAlone) {
    Subscribe(m_manager.Get(), false);
    EXPECT_EQ(Subscriptions(), 2);
    EXPECT_NE(m_cookies[0], m_cookies[1]);
    EXPECT_EQ(m_sinksMade, 1);
    EXPECT_EQ(m_sink.References(), 2);
    EXPECT_THAT(LinesOf(kSubscriber), IsEmpty());
}

TEST_F(EventSubscriptionTest, SinkThatIsKeptHasAReferenceMoreForEachKind) {
    Subscribe(m_manager.Get(), true);
    EXPECT_EQ(Subscriptions(), 2);
    EXPECT_EQ(m_sink.References(), 4);
    ReleaseKept(2);
}

TEST_F(EventSubscriptionTest, MissingManagerOrContainerIsAFailedQuery) {
    ManagerWithoutContainer without(E_NOINTERFACE);
    ManagerWithoutContainer lost(S_OK);
    struct Case {
        IUnknown* manager;
        const wchar_t* error;
    };
    for (const Case& broken :
         {Case{nullptr, L"0x80004003"}, Case{&without, L"0x80004002"}, Case{&lost, L"0x80004003"}}) {
        log.Clear();
        Subscribe(broken.manager, true);
        EXPECT_THAT(LinesOf(kSubscriber),
                    testing::ElementsAre(Rig::Lines::Error(
                        kSubscriber, std::wstring(L"IID_IConnectionPointContainer QueryInterface failed with "
                                                  L"error: ") +
                                         broken.error)));
        EXPECT_EQ(PointsKept(), 0);
        EXPECT_EQ(m_sinksMade, 0);
    }
}

TEST_F(EventSubscriptionTest, MissingSinkEndsTheSubscriptionWithoutALineOfItsOwn) {
    m_hasSink = false;
    Subscribe(m_manager.Get(), true);
    EXPECT_THAT(LinesOf(kSubscriber), IsEmpty());
    EXPECT_EQ(PointsKept(), 1);
    EXPECT_EQ(m_sinksMade, 1);
    EXPECT_EQ(notebook.Count(Call::Advise), 0);
}

/// A step that fails for one of the two, and what was made until then.
struct FailingStep {
    const char* name;
    std::optional<Call> call;  ///< none: the sink's query
    int nth;
    HRESULT error;  ///< S_OK: a success that gives nothing
    const wchar_t* line;
    int points;
    int subscriptions;
    int queries;  ///< that gave the sink
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.name;
}

class FailingSubscription : public EventSubscriptionTest,
                            public testing::WithParamInterface<std::tuple<FailingStep, bool>> {};

TEST_P(FailingSubscription, LogsOneLineAndKeepsWhatWasMade) {
    const auto& [step, keepsSink] = GetParam();
    if (step.call) {
        notebook.Fail(*step.call, step.nth, step.error);
    } else {
        // The device asks the sink, too.
        m_sink.queriesLeft = step.queries + step.subscriptions;
    }
    Subscribe(m_manager.Get(), keepsSink);
    EXPECT_THAT(LinesOf(kSubscriber), testing::ElementsAre(Rig::Lines::Error(kSubscriber, step.line)));
    EXPECT_EQ(PointsKept(), step.points);
    EXPECT_EQ(Subscriptions(), step.subscriptions);
    const int kept = keepsSink ? step.queries : 0;
    EXPECT_EQ(m_sink.References(), step.subscriptions + kept);
    ReleaseKept(kept);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailingSubscription,
    testing::Combine(
        testing::Values(FailingStep{"FirstPoint", Call::FindConnectionPoint, 1, CONNECT_E_NOCONNECTION,
                                    L"find 1: 0x80040200", 0, 0, 0},
                        FailingStep{"FirstPointLost", Call::FindConnectionPoint, 1, S_OK,
                                    L"find 1: 0x80004003", 0, 0, 0},
                        FailingStep{"FirstQuery", {}, 0, E_NOINTERFACE, L"query 1: 0x80004002", 1, 0, 0},
                        FailingStep{"FirstAdvise", Call::Advise, 1, E_ACCESSDENIED,
                                    L"Advise failed with error: 0x80070005", 1, 0, 1},
                        FailingStep{"SecondPoint", Call::FindConnectionPoint, 2, E_OUTOFMEMORY,
                                    L"find 2: 0x8007000E", 1, 1, 1},
                        FailingStep{"SecondPointLost", Call::FindConnectionPoint, 2, S_OK,
                                    L"find 2: 0x80004003", 1, 1, 1},
                        FailingStep{"SecondQuery", {}, 0, E_NOINTERFACE, L"query 2: 0x80004002", 2, 1, 1},
                        FailingStep{"SecondAdvise", Call::Advise, 2, RPC_E_DISCONNECTED,
                                    L"Advise failed with error: 0x80010108", 2, 1, 2}),
        testing::Bool()),
    [](const testing::TestParamInfo<std::tuple<FailingStep, bool>>& parameter) {
        return std::string(std::get<0>(parameter.param).name) +
               (std::get<1>(parameter.param) ? "OfASinkThatIsKept" : "");
    });

}  // namespace
}  // namespace CoreTests
