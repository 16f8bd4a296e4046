#include "service/com_security.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <thread>
#include <vector>

#include "tests/service/fake_com.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"

namespace {

using Rig::AtEachLogLine;
using Rig::Ledger;
using Rig::LogRecorder;
using Rig::ScopedImport;
using ServiceTests::FakeCom;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace Rig::Lines;

constexpr char kName[] = "InitializeSecurity";
constexpr int kCallers = 3;  // system, administrators, users

class ComSecurityTest : public testing::Test {
  protected:
    LogRecorder log;
    Ledger ledger;
    FakeCom com;
};

TEST_F(ComSecurityTest, FailedSecurityIsLoggedAndTheApartmentIsLeft) {
    com.secureResult = RPC_E_TOO_LATE;
    EXPECT_EQ(InitializeSecurity(), RPC_E_TOO_LATE);
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                                       "CoUninitialize"));
    EXPECT_THAT(log.Lines(), ElementsAre(Error(kName, L"CoInitializeSecurity failed. Error: 0x80010119"),
                                         Information(kName, L"InitializeSecurity : HRESULT: 0x80010119")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComSecurityTest, FailedApartmentIsLoggedAndLeftAllTheSame) {
    com.enterResult = RPC_E_CHANGED_MODE;
    EXPECT_EQ(InitializeSecurity(), RPC_E_CHANGED_MODE);
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoIncrementMTAUsage", "CoUninitialize"));
    EXPECT_THAT(log.Lines(), ElementsAre(Error(kName, L"CoInitializeEx failed. Error: 0x80010106"),
                                         Information(kName, L"InitializeSecurity : HRESULT: 0x80010106")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComSecurityTest, ApartmentThatWasEnteredBeforeIsNoFailure) {
    com.enterResult = S_FALSE;
    EXPECT_EQ(InitializeSecurity(), E_FAIL);
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                                       "CoUninitialize"));
}

TEST_F(ComSecurityTest, FailureIsTriedAgainByTheNextCall) {
    InitializeSecurity();
    com.calls.clear();
    InitializeSecurity();
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                                       "CoUninitialize"));
}

TEST_F(ComSecurityTest, ApartmentThatCannotBeHeldIsLoggedAndNothingElseChanges) {
    com.secureResult = RPC_E_TOO_LATE;
    com.holdResult = E_OUTOFMEMORY;
    EXPECT_EQ(InitializeSecurity(), RPC_E_TOO_LATE);
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                                       "CoUninitialize"));
    EXPECT_THAT(log.Lines(), ElementsAre(Error(kName, L"CoInitializeSecurity failed. Error: 0x80010119"),
                                         Error(kName,
                                               L"CoIncrementMTAUsage failed. Error: 0x8007000E. "
                                               L"Events may stay away when the start has ended."),
                                         Information(kName, L"InitializeSecurity : HRESULT: 0x80010119")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComSecurityTest, WindowsThatCannotHoldAnApartmentIsLoggedAndNothingElseChanges) {
    const Rig::ScopedProcAddress missing{"CoIncrementMTAUsage", nullptr};
    EXPECT_EQ(InitializeSecurity(), E_FAIL);
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoUninitialize"));
    EXPECT_THAT(log.At(Orva::Shared::Level::kError),
                Contains(Error(kName,
                               L"CoIncrementMTAUsage failed. Error: 0x8007007F. Events may stay away "
                               L"when the start has ended.")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComSecurityTest, SidBufferIsFreedBeforeComIsCalled) {
    const void* buffer = nullptr;
    const ScopedImport<&::CreateWellKnownSid> create{
        [&](WELL_KNOWN_SID_TYPE type, PSID domain, PSID sid, DWORD* bytes) {
            buffer = sid;
            return create.Original(type, domain, sid, bytes);
        }};
    const ScopedImport<&::LocalFree> free{[&](HLOCAL memory) {
        if (memory == buffer) {
            com.calls.emplace_back("free");
        }
        return free.Original(memory);
    }};
    InitializeSecurity();
    EXPECT_THAT(com.calls, ElementsAre("free", "CoInitializeEx 2", "CoInitializeSecurity",
                                       "CoIncrementMTAUsage", "CoUninitialize"));
}

TEST_F(ComSecurityTest, DescriptorIsFreedAfterTheClosingLine) {
    std::vector<const void*> parts;
    const ScopedImport<&::CoInitializeSecurity> secure{[&](PSECURITY_DESCRIPTOR descriptor, auto... rest) {
        const auto& fields = *static_cast<const SECURITY_DESCRIPTOR*>(descriptor);
        parts = {fields.Owner, fields.Group, fields.Dacl};
        return secure.Original(descriptor, rest...);
    }};
    const ScopedImport<&::LocalFree> free{[&](HLOCAL memory) {
        const auto* const begin = static_cast<const std::byte*>(memory);
        const auto* const end = begin + (memory == nullptr ? 0 : LocalSize(memory));
        for (const void* const part : parts) {
            if (part >= begin && part < end) {
                com.calls.emplace_back("free");
            }
        }
        return free.Original(memory);
    }};
    const AtEachLogLine lines{[&](const auto& entry) {
        if (entry.GetLevel() == Orva::Shared::Level::kInformation) {
            com.calls.emplace_back("closing line");
        }
    }};
    InitializeSecurity();
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                                       "CoUninitialize", "closing line", "free", "free", "free"));
}

/// The real COM behind the step, whose thread has entered nothing yet, and a worker that leaves the
/// multithreaded apartment again: what it has made there is still in its apartment. Secures its process for
/// good, so it takes one of its own.
[[noreturn]] void SecureAndLeave() {
    {
        const LogRecorder log;
        EXPECT_EQ(InitializeSecurity(), S_OK);
        EXPECT_THAT(log.At(Orva::Shared::Level::kError), IsEmpty());
        std::thread([] {
            EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
            CoUninitialize();
        }).join();
        std::thread([] {
            APTTYPE type = APTTYPE_CURRENT;
            APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
            EXPECT_EQ(CoGetApartmentType(&type, &qualifier), S_OK);
            EXPECT_EQ(type, APTTYPE_MTA);
            EXPECT_EQ(qualifier, APTTYPEQUALIFIER_IMPLICIT_MTA);
        }).join();
        // The step's own thread may enter any apartment, as the BIOS reader does on it after a resume.
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        CoUninitialize();
    }
    ExitProcess(testing::Test::HasFailure() ? 1 : 0);
}

TEST(ComSecurityDeathTest, MultithreadedApartmentOutlivesEveryThreadThatWasInIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(SecureAndLeave(), testing::ExitedWithCode(0), "");
}

/// Secures its process for good, so it takes one of its own.
[[noreturn]] void SecureTwice() {
    {
        LogRecorder log;
        const Ledger ledger;
        FakeCom com;
        const ScopedImport<&::CreateWellKnownSid> sids{
            [&](auto... arguments) { return sids.Original(arguments...); }};
        com.secureResult = S_OK;
        EXPECT_EQ(InitializeSecurity(), S_OK);
        EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                                           "CoUninitialize"));
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Information(kName, L"InitializeSecurity : HRESULT: 0x00000000")));
        EXPECT_EQ(sids.Calls(), kCallers);
        log.Clear();
        com.calls.clear();
        EXPECT_EQ(InitializeSecurity(), S_OK);
        EXPECT_THAT(com.calls, IsEmpty());
        // The descriptor is built all the same; it is only not handed over.
        EXPECT_EQ(sids.Calls(), 2 * kCallers);
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Information(kName, L"InitializeSecurity : HRESULT: 0x00000000")));
        EXPECT_TRUE(ledger.Balanced());
    }
    ExitProcess(testing::Test::HasFailure() ? 1 : 0);
}

TEST(ComSecurityDeathTest, SecondCallAfterASuccessCallsNothingOfCom) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(SecureTwice(), testing::ExitedWithCode(0), "");
}

}  // namespace
