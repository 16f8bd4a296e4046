#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"

namespace RadioTests {
namespace {

constexpr char kGet[] = "ServiceUtils::GetRadioInterface";
constexpr char kWwanCheck[] = "ServiceUtils::CheckWwanStatus";

constexpr wchar_t kQueryTryFailed[] = L"GetInterface failed in try %d with !err is 0x";
constexpr wchar_t kQueryGivenUp[] = L"GetInterface failed with error: HRESULT : 0x";

class WwanRadioInterfaceTest : public WwanTest {
  protected:
    ~WwanRadioInterfaceTest() override {
        if (m_radio != nullptr) {
            m_radio->Release();
        }
    }

    IMbnRadio* m_radio = nullptr;
};

TEST_F(WwanRadioInterfaceTest, CallerGetsTheRadioWithAReference) {
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_NE(m_radio, nullptr);
    EXPECT_EQ(References(), 1) << "the interface is released";
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kGet), TraceOut(kGet)));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50));
}

TEST_F(WwanRadioInterfaceTest, ManagerThatFailsForAWhileIsAskedAgain) {
    for (int call = 1; call < 5; ++call) {
        m_notebook.Fail(Call::MbnInterfaceManagerGetInterface, call, E_PENDING);
    }
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_EQ(m_machine.log.From(kWarning), FailedTries(kGet, 4, kQueryTryFailed, L"8000000A"));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50, 50, 50, 50, 50));
}

TEST_F(WwanRadioInterfaceTest, CallThatFailsOrGivesNothingGivesNoRadio) {
    struct Case {
        Call call;
        LONG error;  ///< zero: it gives nothing
        std::vector<LogLine> lines;
    };
    for (const Case& broken :
         {Case{Call::MbnInterfaceManagerGetInterface, E_FAIL,
               FailedTries(kGet, 5, kQueryTryFailed, L"80004005", kQueryGivenUp)},
          Case{Call::MbnInterfaceManagerGetInterface, S_OK,
               FailedTries(kGet, 5, kQueryTryFailed, L"80004003", kQueryGivenUp)},
          Case{Call::MbnInterfaceQueryInterface,
               E_ACCESSDENIED,
               {Error(kGet, L"QueryInterface failed with error: HRESULT : 0x80070005")}},
          Case{Call::MbnInterfaceQueryInterface,
               S_OK,
               {Error(kGet, L"QueryInterface failed with error: HRESULT : 0x80004002")}}}) {
        SetModems(1);
        m_machine.log.Clear();
        m_machine.clock.ForgetRecords();
        const int tries = static_cast<int>(broken.lines.size()) == 1 ? 1 : 5;
        for (int call = 1; call <= tries; ++call) {
            m_notebook.Fail(broken.call, call, broken.error);
        }
        EXPECT_FALSE(GetRadioInterface(&m_radio));
        EXPECT_EQ(m_radio, nullptr);
        EXPECT_EQ(References(), 0);
        EXPECT_EQ(m_machine.log.From(kWarning), broken.lines);
        EXPECT_THAT(m_machine.clock.Sleeps(), AllOf(SizeIs(tries), Each(50)));
    }
}

TEST_F(WwanRadioInterfaceTest, WithoutAManagerThereIsNothingToAsk) {
    WwanState::interfaceManager.store(nullptr);
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.From(kWarning), ElementsAre(Error(kGet, L"IMbnInterfaceManager is NULL")));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WwanRadioInterfaceTest, ManagerThatIsReplacedDuringTheCallStaysHeldUntilItsEnd) {
    // A manager that nobody holds is gone, and a call that is still inside would end the process.
    m_notebook.Before(Call::MbnInterfaceManagerGetInterface, 1,
                      [] { WwanState::interfaceManager.store(nullptr); });
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_EQ(References(), 0) << "the radio is held, the manager is not";
}

using WwanQueryTest = WwanTest;

TEST_F(WwanQueryTest, RadioIsOnOnlyInThatState) {
    for (const std::uint32_t state : {1U, 0U, 7U}) {
        Modem().software = state;
        m_machine.log.Clear();
        m_machine.clock.ForgetRecords();
        EXPECT_EQ(CheckWwanStatus(), state == 1);
        EXPECT_THAT(m_machine.log.Lines(),
                    ElementsAre(TraceIn(kWwanCheck), TraceIn(kGet), TraceOut(kGet),
                                Information(kWwanCheck, state == 1 ? L"Current WWAN status : ON"
                                                                   : L"Current WWAN status : OFF"),
                                TraceOut(kWwanCheck, state == 1 ? L"WWAN Status = 1" : L"WWAN Status = 0")));
        EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50));
        EXPECT_EQ(References(), 0);
    }
}

TEST_F(WwanQueryTest, OfTwoModemsTheRecordedOneIsAsked) {
    SetModems(2);
    Modem(1).software = 0;
    EXPECT_FALSE(CheckWwanStatus());
}

TEST_F(WwanQueryTest, RadioThatCannotBeReachedOrAskedReadsAsOff) {
    const std::pair<Call, const wchar_t*> failures[] = {
        {Call::MbnInterfaceManagerGetInterface, L"GetRadioInterface Failed"},
        {Call::MbnRadioGetSoftwareRadioState, L"get_SoftwareRadioState failed! err is -2147467259"}};
    for (const auto& [call, line] : failures) {
        SetModems(1);
        m_machine.log.Clear();
        m_notebook.FailEach(call, E_FAIL);
        EXPECT_FALSE(CheckWwanStatus());
        m_notebook.AtEach(call, nullptr);
        EXPECT_THAT(m_machine.log.Of(kWwanCheck), ElementsAre(TraceIn(kWwanCheck), Error(kWwanCheck, line),
                                                              TraceOut(kWwanCheck, L"WWAN Status = 0")));
        EXPECT_EQ(References(), 0);
    }
}

}  // namespace
}  // namespace RadioTests
