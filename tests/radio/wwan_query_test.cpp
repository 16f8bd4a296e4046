#include <gmock/gmock.h>

#include <stdexcept>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/fake_modem.h"
#include "tests/radio/machine.h"

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

class WwanRadioInterfaceTest : public testing::Test {
  protected:
    ~WwanRadioInterfaceTest() override {
        if (m_radio != nullptr) {
            m_radio->Release();
        }
    }

    Machine m_machine;
    RadioLedger m_ledger;
    FakeModems m_modems{{MBN_RADIO_ON}};
    IMbnRadio* m_radio = nullptr;
};

TEST_F(WwanRadioInterfaceTest, CallerGetsTheRadioWithAReference) {
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_EQ(m_radio, &m_modems.Radio());
    EXPECT_EQ(m_modems.Radio().References(), 1);
    EXPECT_EQ(m_modems.interfaces[0].References(), 0);
    EXPECT_THAT(m_modems.manager.asked, ElementsAre(kFirstModem));
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kGet), TraceOut(kGet)));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50));
}

TEST_F(WwanRadioInterfaceTest, ManagerThatFailsForAWhileIsAskedAgain) {
    m_modems.manager.onGetInterface = [](int call) { return call < 3 ? E_PENDING : S_OK; };
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kGet), Warning(kGet, L"GetInterface failed in try 0 with !err is 0x8000000A"),
                    Warning(kGet, L"GetInterface failed in try 1 with !err is 0x8000000A"), TraceOut(kGet)));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50, 50, 50));
}

TEST_F(WwanRadioInterfaceTest, ManagerThatFailsFiveTimesIsGivenUp) {
    m_modems.manager.onGetInterface = [](int) { return E_FAIL; };
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
    m_modems.interfaces.clear();
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kGet, L"GetInterface failed with error: HRESULT : 0x80070057")));
}

TEST_F(WwanRadioInterfaceTest, SuccessWithoutAnInterfaceIsAFailure) {
    m_modems.manager.givesNoInterface = true;
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kGet, L"GetInterface failed with error: HRESULT : 0x80004003")));
}

TEST_F(WwanRadioInterfaceTest, AdapterWithoutARadioIsAFailure) {
    m_modems.interfaces[0].onRadio = [](void** radio) {
        *radio = nullptr;
        return E_NOINTERFACE;
    };
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_EQ(m_radio, nullptr);
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kGet), Error(kGet, L"QueryInterface failed with error: HRESULT : 0x80004002"),
                    TraceOut(kGet)));
    EXPECT_EQ(m_modems.interfaces[0].References(), 0);
}

TEST_F(WwanRadioInterfaceTest, SuccessWithoutARadioIsAFailure) {
    m_modems.interfaces[0].onRadio = [](void** radio) {
        *radio = nullptr;
        return S_OK;
    };
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
    m_modems.manager.onGetInterface = [](int) -> HRESULT { throw std::runtime_error("out of order"); };
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kGet), Error(kGet, L"Exception in GetRadioInterface()"), TraceOut(kGet)));
}

TEST_F(WwanRadioInterfaceTest, ExceptionOfTheAdapterReleasesIt) {
    m_modems.interfaces[0].onRadio = [](void**) -> HRESULT { throw DWORD{ERROR_CRC}; };
    EXPECT_FALSE(GetRadioInterface(&m_radio));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kGet, L"Exception in GetRadioInterface()")));
    EXPECT_EQ(m_modems.interfaces[0].References(), 0);
}

TEST_F(WwanRadioInterfaceTest, ManagerThatIsReplacedDuringTheCallStaysHeldUntilItsEnd) {
    m_modems.manager.onGetInterface = [this](int) {
        WwanState::interfaceManager.store(nullptr);
        EXPECT_EQ(m_modems.manager.References(), 1);
        return S_OK;
    };
    EXPECT_TRUE(GetRadioInterface(&m_radio));
    EXPECT_EQ(m_modems.manager.References(), 0);
}

class WwanQueryTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kCheck); }

    Machine m_machine;
    RadioLedger m_ledger;
    FakeModems m_modems{{MBN_RADIO_ON}};
};

TEST_F(WwanQueryTest, RadioThatIsOn) {
    EXPECT_TRUE(CheckWwanStatus());
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kCheck), TraceIn(kGet), TraceOut(kGet),
                                                   Information(kCheck, L"Current WWAN status : ON"),
                                                   TraceOut(kCheck, L"WWAN Status = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50));
    EXPECT_EQ(m_modems.Radio().References(), 0);
}

TEST_F(WwanQueryTest, RadioThatIsOff) {
    m_modems.Radio().state = MBN_RADIO_OFF;
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck), Information(kCheck, L"Current WWAN status : OFF"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
}

TEST_F(WwanQueryTest, OfTwoModemsTheRecordedOneIsAsked) {
    const FakeModems modems{{MBN_RADIO_ON, MBN_RADIO_OFF}};
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(modems.manager.asked, ElementsAre(kSecondModem));
    // What this test's own modem published is gone.
    WwanState::devicePresent = false;
}

TEST_F(WwanQueryTest, WithoutADeviceNothingIsAsked) {
    WwanState::devicePresent = false;
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"WWAN Device is not available."),
                            TraceOut(kCheck, L"WWAN Status = 0")));
    EXPECT_THAT(m_modems.manager.asked, IsEmpty());
}

TEST_F(WwanQueryTest, RadioThatCannotBeReachedReadsAsOff) {
    m_modems.manager.onGetInterface = [](int) { return E_FAIL; };
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck), Error(kCheck, L"GetRadioInterface Failed"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
}

TEST_F(WwanQueryTest, FailedQueryReadsAsOffAndReleasesTheRadio) {
    m_modems.Radio().onGet = [](MBN_RADIO*) { return E_FAIL; };
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck),
                                     Error(kCheck, L"get_SoftwareRadioState failed! err is -2147467259"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
    EXPECT_EQ(m_modems.Radio().References(), 0);
}

TEST_F(WwanQueryTest, StateOutOfRangeReadsAsOff) {
    m_modems.Radio().onGet = [](MBN_RADIO* state) {
        *reinterpret_cast<int*>(state) = 7;
        return S_OK;
    };
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), testing::Contains(Information(kCheck, L"Current WWAN status : OFF")));
}

TEST_F(WwanQueryTest, ExceptionOfTheRadioReadsAsOffAndReleasesIt) {
    m_modems.Radio().onGet = [](MBN_RADIO*) -> HRESULT { throw std::runtime_error("out of order"); };
    EXPECT_FALSE(CheckWwanStatus());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kCheck), Error(kCheck, L"Exception in CheckWwanStatus()"),
                                     TraceOut(kCheck, L"WWAN Status = 0")));
    EXPECT_EQ(m_modems.Radio().References(), 0);
}

}  // namespace
}  // namespace RadioTests
