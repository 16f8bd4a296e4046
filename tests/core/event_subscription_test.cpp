#include "core/event_subscription.h"

#include <netlistmgr.h>

#include <array>

#include "logging/log_scope.h"
#include "tests/core/core_test.h"

namespace CoreTests {
namespace {

using Microsoft::WRL::ComPtr;

constexpr char kSubscriber[] = "Test::Subscribe";

/// Refuses its interface from one query on.
class Sink final
    : public Notebook::ComObject<Notebook::As<INetworkConnectionEvents, IID_INetworkConnectionEvents>> {
  public:
    int queriesLeft = 1 << 30;

    /// Besides the test's own.
    [[nodiscard]] ULONG References() {
        AddRef();
        return Release() - 1;
    }

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        if (interfaceId == IID_INetworkConnectionEvents && --queriesLeft < 0) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        return ComObject::QueryInterface(interfaceId, object);
    }
    HRESULT WINAPI NetworkConnectionConnectivityChanged(GUID, NLM_CONNECTIVITY) override { return S_OK; }
    HRESULT WINAPI NetworkConnectionPropertyChanged(GUID, NLM_CONNECTION_PROPERTY_CHANGE) override {
        return S_OK;
    }
};

/// A manager that has no connection points.
class ManagerWithoutContainer final : public Notebook::ComObject<Notebook::As<IUnknown>> {
  public:
    explicit ManagerWithoutContainer(HRESULT answer) : m_answer(answer) {}
    HRESULT WINAPI QueryInterface(REFIID /*interfaceId*/, void** object) override {
        *object = nullptr;
        return m_answer;
    }

  private:
    HRESULT m_answer;
};

template <class Object, class... Arguments>
ComPtr<Object> Made(Arguments... arguments) {
    ComPtr<Object> object;
    *object.GetAddressOf() = new Object(arguments...);
    return object;
}

/// One sink, subscribed twice to the events of connections.
class EventSubscriptionTest : public CoreTest {
  protected:
    ~EventSubscriptionTest() override { TakeBack(); }

    void Subscribe(IUnknown* manager, bool keepsSink) {
        log.Clear();
        const LogScope scope(kSubscriber);
        SubscribeToEvents(scope, manager,
                          {{IID_INetworkConnectionEvents, L"find 1: 0x%08X", L"query 1: 0x%08X", m_points[0],
                            m_cookies[0], keepsSink},
                           {IID_INetworkConnectionEvents, L"find 2: 0x%08X", L"query 2: 0x%08X", m_points[1],
                            m_cookies[1], keepsSink}},
                          [this] {
                              ++m_sinksMade;
                              return ComPtr<IUnknown>(m_sink.Get());
                          });
    }
    void TakeBack() {
        for (std::size_t i = 0; i < m_points.size(); ++i) {
            if (m_cookies.at(i) != 0) {
                EXPECT_EQ(m_points.at(i)->Unadvise(std::exchange(m_cookies.at(i), 0)), S_OK);
            }
            m_points.at(i).Reset();
        }
    }
    [[nodiscard]] int PointsKept() const { return (m_points[0] ? 1 : 0) + (m_points[1] ? 1 : 0); }
    [[nodiscard]] int Subscriptions() const { return (m_cookies[0] ? 1 : 0) + (m_cookies[1] ? 1 : 0); }

    ComPtr<Sink> m_sink = Made<Sink>();
    int m_sinksMade = 0;
    ComPtr<INetworkListManager> m_manager =
        notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
    std::array<ComPtr<IConnectionPoint>, 2> m_points;
    std::array<DWORD, 2> m_cookies{};
};

/// Up to the first failure. The sink is held by the device alone, or by nobody to be released: then it has a
/// reference more for each subscription that was asked for.
TEST_F(EventSubscriptionTest, OneSinkIsSubscribedToEachKindUpToItsFirstFailure) {
    struct Case {
        std::optional<Call> failing;  ///< none: the sink's query
        int nth;
        const wchar_t* line;  ///< null: all goes well
        int points;
        int subscriptions;
        int queries;  ///< that gave the sink
    };
    for (const Case& step :
         {Case{{}, 0, nullptr, 2, 2, 2},  //
          Case{{}, 0, L"query 1: 0x80004002", 1, 0, 0}, Case{{}, 0, L"query 2: 0x80004002", 2, 1, 1},
          Case{Call::Advise, 1, L"Advise failed with error: 0x80010108", 1, 0, 1},
          Case{Call::Advise, 2, L"Advise failed with error: 0x80010108", 2, 1, 2},
          Case{Call::FindConnectionPoint, 1, L"find 1: 0x80010108", 0, 0, 0},
          Case{Call::FindConnectionPoint, 2, L"find 2: 0x80010108", 1, 1, 1}}) {
        for (const bool keepsSink : {false, true}) {
            SCOPED_TRACE(testing::Message() << step.points << step.subscriptions << keepsSink);
            // The device asks the sink, too.
            m_sink->queriesLeft =
                step.failing || step.line == nullptr ? 100 : step.queries + step.subscriptions;
            if (step.failing) {
                notebook.Fail(*step.failing, step.nth, RPC_E_DISCONNECTED);
            }
            m_sinksMade = 0;
            Subscribe(m_manager.Get(), keepsSink);
            EXPECT_EQ(LinesOf(kSubscriber), step.line == nullptr
                                                ? std::vector<LogLine>{}
                                                : std::vector<LogLine>{Error(kSubscriber, step.line)});
            EXPECT_EQ(PointsKept(), step.points);
            EXPECT_EQ(Subscriptions(), step.subscriptions);
            EXPECT_EQ(m_sinksMade, step.points == 0 ? 0 : 1);
            const int kept = keepsSink ? step.queries : 0;
            EXPECT_EQ(m_sink->References(), static_cast<ULONG>(step.subscriptions + kept));
            // Those that nobody releases are the test's in the end.
            for (int i = 0; i < kept; ++i) {
                m_sink->Release();
            }
            TakeBack();
        }
    }
}

TEST_F(EventSubscriptionTest, MissingManagerOrContainerIsAFailedQuery) {
    const auto without = Made<ManagerWithoutContainer>(E_NOINTERFACE);
    const auto lost = Made<ManagerWithoutContainer>(S_OK);
    for (const auto& [manager, error] : {std::pair<IUnknown*, const wchar_t*>{nullptr, L"0x80004003"},
                                         {without.Get(), L"0x80004002"},
                                         {lost.Get(), L"0x80004003"}}) {
        Subscribe(manager, true);
        EXPECT_THAT(
            LinesOf(kSubscriber),
            ElementsAre(Error(
                kSubscriber,
                std::wstring(L"IID_IConnectionPointContainer QueryInterface failed with error: ") + error)));
        EXPECT_EQ(PointsKept(), 0);
        EXPECT_EQ(m_sinksMade, 0);
    }
}

}  // namespace
}  // namespace CoreTests
