#include <gmock/gmock.h>

#include <stdexcept>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kWarning;
using ServiceUtils::CheckWwanStatus;
using ServiceUtils::GetRadioInterface;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kGet[] = "ServiceUtils::GetRadioInterface";
constexpr char kCheck[] = "ServiceUtils::CheckWwanStatus";

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
    m_notebook.Fail(Call::MbnInterfaceManagerGetInterface, 1, E_PENDING);
    m_notebook.Fail(Call::MbnInterfaceManagerGetInterface, 2, E_PENDING);
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kGet), Warning(kGet, L"GetInterface failed in try 0 with !err is 0x8000000A"),
                    Warning(kGet, L"GetInterface failed in try 1 with !err is 0x8000000A"), TraceOut(kGet)));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50, 50, 50));
}

TEST_F(WwanRadioInterfaceTest, ManagerThatFailsFiveTimesIsGivenUp) {
    m_notebook.FailEach(Call::MbnInterfaceManagerGetInterface, E_FAIL);
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_EQ(m_radio, nullptr);
    EXPECT_THAT(m_machine.log.From(kWarning),
                ElementsAre(Warning(kGet, L"GetInterface failed in try 0 with !err is 0x80004005"),
                            Warning(kGet, L"GetInterface failed in try 1 with !err is 0x80004005"),
                            Warning(kGet, L"GetInterface failed in try 2 with !err is 0x80004005"),
                            Warning(kGet, L"GetInterface failed in try 3 with !err is 0x80004005"),
                            Warning(kGet, L"GetInterface failed in try 4 with !err is 0x80004005"),
                            Error(kGet, L"GetInterface failed with error: HRESULT : 0x80004005")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50, 50, 50, 50, 50));
}

TEST_F(WwanRadioInterfaceTest, ModemThatIsGoneIsAFailure) {
    Modem().present = 0;
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kGet, L"GetInterface failed with error: HRESULT : 0x80070490")));
}

TEST_F(WwanRadioInterfaceTest, SuccessWithoutAnInterfaceIsAFailure) {
    m_notebook.GiveNothing(Call::MbnInterfaceManagerGetInterface);
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kGet, L"GetInterface failed with error: HRESULT : 0x80004003")));
}

TEST_F(WwanRadioInterfaceTest, AdapterWithoutARadioIsAFailure) {
    m_notebook.FailEach(Call::MbnInterfaceQueryInterface, E_NOINTERFACE);
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_EQ(m_radio, nullptr);
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kGet), Error(kGet, L"QueryInterface failed with error: HRESULT : 0x80004002"),
                    TraceOut(kGet)));
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanRadioInterfaceTest, SuccessWithoutARadioIsAFailure) {
    m_notebook.GiveNothing(Call::MbnInterfaceQueryInterface);
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kGet, L"QueryInterface failed with error: HRESULT : 0x80004002")));
}

TEST_F(WwanRadioInterfaceTest, WithoutAManagerThereIsNothingToAsk) {
    WwanState::interfaceManager.store(nullptr);
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kGet, L"IMbnInterfaceManager is NULL")));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WwanRadioInterfaceTest, ExceptionOfTheManagerIsLogged) {
    m_notebook.AtEach(Call::MbnInterfaceManagerGetInterface,
                      []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kGet), Error(kGet, L"Exception in GetRadioInterface()"), TraceOut(kGet)));
}

TEST_F(WwanRadioInterfaceTest, ExceptionOfTheAdapterReleasesIt) {
    m_notebook.AtEach(Call::MbnInterfaceQueryInterface, []() -> DWORD { throw DWORD{ERROR_CRC}; });
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kGet, L"Exception in GetRadioInterface()")));
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanRadioInterfaceTest, ManagerThatIsReplacedDuringTheCallStaysHeldUntilItsEnd) {
    // A manager that nobody holds is gone, and a call that is still inside would end the process.
    m_notebook.At(Call::MbnInterfaceManagerGetInterface, 1, [] {
        WwanState::interfaceManager.store(nullptr);
        return std::nullopt;
    });
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_EQ(References(), 0) << "the radio is held, the manager is not";
}

class WwanQueryTest : public WwanTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kCheck); }
};

TEST_F(WwanQueryTest, RadioThatIsOn) {
    EXPECT_TRUE(CheckWwanStatus());
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kCheck), TraceIn(kGet), TraceOut(kGet),
                                                   Information(kCheck, L"Current WWAN status : ON"),
                                                   TraceOut(kCheck, L"WWAN Status = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50));
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanQueryTest, RadioThatIsOff) {
    Modem().software = 0;
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck), Information(kCheck, L"Current WWAN status : OFF"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
}

TEST_F(WwanQueryTest, OfTwoModemsTheRecordedOneIsAsked) {
    SetModems(2);
    Modem(1).software = 0;
    EXPECT_FALSE(CheckWwanStatus());
}

TEST_F(WwanQueryTest, WithoutADeviceNothingIsAsked) {
    WwanState::devicePresent = false;
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"WWAN Device is not available."),
                            TraceOut(kCheck, L"WWAN Status = 0")));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
}

TEST_F(WwanQueryTest, RadioThatCannotBeReachedReadsAsOff) {
    m_notebook.FailEach(Call::MbnInterfaceManagerGetInterface, E_FAIL);
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck), Error(kCheck, L"GetRadioInterface Failed"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
}

TEST_F(WwanQueryTest, FailedQueryReadsAsOffAndReleasesTheRadio) {
    m_notebook.FailEach(Call::MbnRadioGetSoftwareRadioState, E_FAIL);
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck),
                                     Error(kCheck, L"get_SoftwareRadioState failed! err is -2147467259"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanQueryTest, StateOutOfRangeReadsAsOff) {
    Modem().software = 7;
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), testing::Contains(Information(kCheck, L"Current WWAN status : OFF")));
}

TEST_F(WwanQueryTest, ExceptionOfTheRadioReadsAsOffAndReleasesIt) {
    m_notebook.AtEach(Call::MbnRadioGetSoftwareRadioState,
                      []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck), Error(kCheck, L"Exception in CheckWwanStatus()"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
    EXPECT_EQ(References(), 0);
}

}  // namespace
}  // namespace RadioTests
