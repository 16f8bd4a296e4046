#include "service/com_security.h"

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/service/fake_com.h"
#include "tests/service/service_test.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/ledger.h"

namespace ServiceTests {
namespace {

using testing::Optional;
using Bytes = std::vector<std::byte>;

constexpr char kInitializeSecurity[] = "InitializeSecurity";
constexpr int kCallers = 3;  // system, administrators, users
using Calls = std::vector<std::string>;
const Calls kWholeStep{"CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage", "CoUninitialize"};

LogLine Outcome(const std::wstring& result) {
    return Information(kInitializeSecurity, L"InitializeSecurity : HRESULT: " + result);
}
LogLine NotHeld(const std::wstring& error) {
    return Error(kInitializeSecurity, L"CoIncrementMTAUsage failed. Error: " + error +
                                          L". Events may stay away when the start has ended.");
}
const LogLine kNotSecured = Error(kInitializeSecurity, L"CoInitializeSecurity failed. Error: 0x80004005");
const LogLine kOutcome = Outcome(L"0x80004005");

Bytes Copy(const void* data, std::size_t count) {
    const auto* const bytes = static_cast<const std::byte*>(data);
    return {bytes, bytes + count};
}
std::optional<Bytes> CopySid(PSID sid) {
    return sid != nullptr ? std::optional(Copy(sid, GetLengthSid(sid))) : std::nullopt;
}

/// A security descriptor in absolute format, as it is at the moment of the call.
struct Descriptor {
    BYTE revision = 0;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    std::optional<Bytes> owner;
    std::optional<Bytes> group;
    std::optional<Bytes> accessList;  ///< as long as its own size says
    bool hasSystemAccessList = false;
};

class ComSecurityTest : public testing::Test {
  protected:
    ComSecurityTest() {
        com.atSecurity = [this](const SECURITY_DESCRIPTOR& given) {
            ++timesSecured;
            descriptor = {given.Revision,       given.Control, CopySid(given.Owner), CopySid(given.Group), {},
                          given.Sacl != nullptr};
            if (given.Dacl != nullptr) {
                descriptor.accessList = Copy(given.Dacl, given.Dacl->AclSize);
            }
        };
    }

    /// The descriptor of one run.
    const Descriptor& Secure() {
        log.Clear();
        InitializeSecurity();
        EXPECT_TRUE(ledger.Balanced());
        return descriptor;
    }
    void ExpectNoOtherLines() { EXPECT_THAT(log.From(kVerbose), ElementsAre(kNotSecured, kOutcome)); }

    LogRecorder log;
    Rig::Ledger ledger;
    FakeCom com;
    int timesSecured = 0;
    Descriptor descriptor;
};

// --- The steps -------------------------------------------------------------------------------------

TEST_F(ComSecurityTest, FailedStepIsLoggedAndTheApartmentIsLeftInAnyCase) {
    struct Case {
        HRESULT entered;
        HRESULT secured;
        HRESULT held;
        HRESULT result;
        Calls calls;
        std::vector<LogLine> lines;
    };
    const LogLine tooLate = Error(kInitializeSecurity, L"CoInitializeSecurity failed. Error: 0x80010119");
    for (const Case& step :
         {Case{S_OK, RPC_E_TOO_LATE, S_OK, RPC_E_TOO_LATE, kWholeStep, {tooLate, Outcome(L"0x80010119")}},
          // An apartment that was entered before is no failure, and a failure is tried again.
          Case{S_FALSE, E_FAIL, S_OK, E_FAIL, kWholeStep, {kNotSecured, kOutcome}},
          Case{RPC_E_CHANGED_MODE,
               S_OK,
               S_OK,
               RPC_E_CHANGED_MODE,
               {"CoInitializeEx 2", "CoIncrementMTAUsage", "CoUninitialize"},
               {Error(kInitializeSecurity, L"CoInitializeEx failed. Error: 0x80010106"),
                Outcome(L"0x80010106")}},
          Case{S_OK,
               RPC_E_TOO_LATE,
               E_OUTOFMEMORY,
               RPC_E_TOO_LATE,
               kWholeStep,
               {tooLate, NotHeld(L"0x8007000E"), Outcome(L"0x80010119")}}}) {
        com.enterResult = step.entered;
        com.secureResult = step.secured;
        com.holdResult = step.held;
        com.calls.clear();
        log.Clear();
        EXPECT_EQ(InitializeSecurity(), step.result);
        EXPECT_EQ(com.calls, step.calls);
        EXPECT_EQ(log.Lines(), step.lines);
        EXPECT_TRUE(ledger.Balanced());
    }
}

TEST_F(ComSecurityTest, WindowsThatCannotHoldAnApartmentIsLoggedAndNothingElseChanges) {
    const Rig::ScopedProcAddress missing{"CoIncrementMTAUsage", nullptr};
    Secure();
    EXPECT_THAT(com.calls, ElementsAre("CoInitializeEx 2", "CoInitializeSecurity", "CoUninitialize"));
    EXPECT_THAT(log.Lines(), ElementsAre(kNotSecured, NotHeld(L"0x8007007F"), kOutcome));
}

TEST_F(ComSecurityTest, SidBufferIsFreedBeforeComIsCalledAndTheDescriptorAfterTheClosingLine) {
    const void* buffer = nullptr;
    std::vector<const void*> parts;
    const ScopedImport<&::CreateWellKnownSid> create{
        [&](WELL_KNOWN_SID_TYPE type, PSID domain, PSID sid, DWORD* bytes) {
            buffer = sid;
            return create.Original(type, domain, sid, bytes);
        }};
    com.atSecurity = [&](const SECURITY_DESCRIPTOR& given) {
        parts = {given.Owner, given.Group, given.Dacl};
    };
    const ScopedImport<&::LocalFree> free{[&](HLOCAL memory) {
        if (memory == buffer) {
            com.calls.emplace_back("free buffer");
        }
        const auto* const begin = static_cast<const std::byte*>(memory);
        const auto* const end = begin + (memory == nullptr ? 0 : LocalSize(memory));
        for (const void* const part : parts) {
            if (part >= begin && part < end) {
                com.calls.emplace_back("free part");
            }
        }
        return free.Original(memory);
    }};
    const Rig::AtEachLogLine lines{[&](const auto& entry) {
        if (entry.GetLevel() == Orva::Shared::Level::kInformation) {
            com.calls.emplace_back("closing line");
        }
    }};
    InitializeSecurity();
    EXPECT_THAT(com.calls,
                ElementsAre("free buffer", "CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage",
                            "CoUninitialize", "closing line", "free part", "free part", "free part"));
}

// --- In a process of its own, which is secured for good --------------------------------------------

/// The real COM behind the step, whose thread has entered nothing yet, and a worker that leaves the
/// multithreaded apartment again: what it has made there is still in its apartment.
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
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

[[noreturn]] void SecureTwice() {
    {
        LogRecorder log;
        const Rig::Ledger ledger;
        FakeCom com;
        const ScopedWatch<&::CreateWellKnownSid> sids;
        com.secureResult = S_OK;
        // The second time the descriptor is built all the same; it is only not handed over.
        for (const int times : {1, 2}) {
            EXPECT_EQ(InitializeSecurity(), S_OK);
            EXPECT_EQ(com.calls, times == 1 ? kWholeStep : Calls{});
            EXPECT_EQ(sids.Calls(), times * kCallers);
            EXPECT_THAT(log.Lines(), ElementsAre(Outcome(L"0x00000000")));
            log.Clear();
            com.calls.clear();
        }
        EXPECT_TRUE(ledger.Balanced());
    }
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(ComSecurityDeathTest, MultithreadedApartmentOutlivesEveryThreadThatWasInIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(SecureAndLeave(), testing::ExitedWithCode(0), "");
}

TEST(ComSecurityDeathTest, SecondCallAfterASuccessCallsNothingOfCom) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(SecureTwice(), testing::ExitedWithCode(0), "");
}

// --- The descriptor as COM receives it, byte by byte -----------------------------------------------

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes MakeBytes(std::initializer_list<int> values) {
    Bytes bytes;
    for (const int value : values) {
        bytes.push_back(static_cast<std::byte>(value));
    }
    return bytes;
}

/// A list's head: revision 2, its size and its number of entries.
Bytes Head(int size, int entries) {
    return MakeBytes({2, 0, size, 0, entries, 0, 0, 0});
}
/// Places behind the last entry. The list of a single entry has none.
const Bytes kSpare = Bytes(8);

// Access-allowed entries without flags, for execution (mask 1).
const Bytes kSystemEntry =  // S-1-5-18
    MakeBytes({0, 0, 20, 0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0});
const Bytes kAdministratorsEntry =  // S-1-5-32-544
    MakeBytes({0, 0, 24, 0, 1, 0, 0, 0, 1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0});
const Bytes kUsersEntry =  // S-1-5-32-545
    MakeBytes({0, 0, 24, 0, 1, 0, 0, 0, 1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x21, 2, 0, 0});

const Bytes kWholeList = Head(84, 3) + kSystemEntry + kAdministratorsEntry + kUsersEntry + kSpare;
/// What is left when one of the three cannot be let in.
const Bytes kWithout[] = {
    Head(64, 2) + kAdministratorsEntry + kUsersEntry + kSpare,
    Head(60, 2) + kSystemEntry + kUsersEntry + kSpare,
    Head(60, 2) + kSystemEntry + kAdministratorsEntry + kSpare,
};

/// What the process's own token says.
std::optional<Bytes> TokenSid(TOKEN_INFORMATION_CLASS what) {
    alignas(void*) std::byte buffer[256] = {};
    HANDLE token = nullptr;
    DWORD bytes = 0;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_TRUE(GetTokenInformation(token, what, buffer, sizeof(buffer), &bytes));
    CloseHandle(token);
    // Both structures begin with the pointer to the SID.
    return CopySid(*reinterpret_cast<PSID*>(buffer));
}

TEST_F(ComSecurityTest, SystemAdministratorsAndUsersMayCallInThisOrderAndNothingIsDefaulted) {
    Secure();
    EXPECT_THAT(descriptor.accessList, Optional(kWholeList));
    EXPECT_EQ(descriptor.revision, SECURITY_DESCRIPTOR_REVISION);
    EXPECT_EQ(descriptor.control, SE_DACL_PRESENT);
    EXPECT_FALSE(descriptor.hasSystemAccessList);
    EXPECT_EQ(descriptor.owner, TokenSid(TokenUser));
    EXPECT_EQ(descriptor.group, TokenSid(TokenPrimaryGroup));
    ExpectNoOtherLines();
}

TEST_F(ComSecurityTest, TokensAreOpenedForQueryOnlyAndTheirSidsSetAsNotDefaulted) {
    const ScopedImport<&::OpenThreadToken> thread{[&](HANDLE handle, DWORD access, BOOL, PHANDLE) -> BOOL {
        EXPECT_EQ(handle, GetCurrentThread());
        EXPECT_EQ(access, DWORD{TOKEN_QUERY});
        SetLastError(ERROR_NO_TOKEN);
        return FALSE;
    }};
    const ScopedWatch<&::OpenProcessToken> process;
    const ScopedWatch<&::SetSecurityDescriptorOwner> owner;
    const ScopedWatch<&::SetSecurityDescriptorGroup> group;
    EXPECT_TRUE(Secure().owner);
    EXPECT_EQ(thread.Calls(), 1);
    EXPECT_THAT(process.Arguments(), ElementsAre(FieldsAre(GetCurrentProcess(), DWORD{TOKEN_QUERY}, _)));
    EXPECT_THAT(owner.Arguments(), ElementsAre(FieldsAre(_, _, FALSE)));
    EXPECT_THAT(group.Arguments(), ElementsAre(FieldsAre(_, _, FALSE)));
}

TEST_F(ComSecurityTest, ThreadsOwnTokenComesFirst) {
    const ScopedImport<&::OpenThreadToken> thread{[](HANDLE, DWORD access, BOOL, PHANDLE token) -> BOOL {
        return OpenProcessToken(GetCurrentProcess(), access, token);
    }};
    const ScopedResult<&::OpenProcessToken> process{TRUE, AtCall{2, 1000}};
    EXPECT_TRUE(Secure().owner);
    EXPECT_EQ(process.Calls(), 1);
}

/// A call that fails, for a scope.
using Trouble = std::function<std::shared_ptr<void>()>;
template <auto Function, class... Arguments>
Trouble Failing(Arguments... arguments) {
    return [=] { return std::make_shared<ScopedResult<Function>>(FALSE, arguments...); };
}

TEST_F(ComSecurityTest, WithoutOwnerOrGroupOnlyTheAccessListIsThere) {
    const Trouble noGroup = [] {
        return std::make_shared<ScopedImport<&::GetTokenInformation>>(
            [](HANDLE, TOKEN_INFORMATION_CLASS what, auto...) { return what == TokenPrimaryGroup; },
            [](auto...) -> BOOL { return FALSE; });
    };
    for (const Trouble& fail : {Failing<&::OpenProcessToken>(ERROR_ACCESS_DENIED),
                                // The process's is no substitute for one that may not be read.
                                Failing<&::OpenThreadToken>(ERROR_ACCESS_DENIED),
                                Failing<&::GetTokenInformation>(ERROR_ACCESS_DENIED), noGroup,
                                Failing<&::SetSecurityDescriptorOwner>(ERROR_INVALID_SECURITY_DESCR),
                                Failing<&::SetSecurityDescriptorGroup>(ERROR_INVALID_SECURITY_DESCR)}) {
        const std::shared_ptr<void> fails = fail();
        Secure();
        EXPECT_EQ(descriptor.owner, std::nullopt);
        EXPECT_EQ(descriptor.group, std::nullopt);
        EXPECT_EQ(descriptor.control, SE_DACL_PRESENT);
        EXPECT_THAT(descriptor.accessList, Optional(kWholeList));
        ExpectNoOtherLines();
    }
}

TEST_F(ComSecurityTest, EverySidGetsTheWholeBuffer) {
    std::vector<WELL_KNOWN_SID_TYPE> types;
    const ScopedImport<&::CreateWellKnownSid> create{
        [&](WELL_KNOWN_SID_TYPE type, PSID domain, PSID sid, DWORD* bytes) -> BOOL {
            EXPECT_EQ(domain, nullptr);
            EXPECT_EQ(*bytes, 68U);
            EXPECT_EQ(LocalSize(sid), 68U);
            types.push_back(type);
            return create.Original(type, domain, sid, bytes);
        }};
    Secure();
    EXPECT_THAT(types, ElementsAre(WinLocalSystemSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid));
}

TEST_F(ComSecurityTest, SidThatCannotBeMadeIsLoggedAndTheOthersAreLetIn) {
    constexpr const wchar_t* kLines[] = {
        L"CreateWellKnownSid with WinLocalSystemSid failed. Error: 0x00000057",
        L"CreateWellKnownSid with WinBuiltinAdministratorsSid failed.  Error: 0x00000057",
        L"CreateWellKnownSid with WinBuiltinUsersSid failed.  Error: 0x00000057",
    };
    for (int caller = 0; caller < kCallers; ++caller) {
        const ScopedResult<&::CreateWellKnownSid> fails{FALSE, ERROR_INVALID_PARAMETER, AtCall{caller + 1}};
        EXPECT_THAT(Secure().accessList, Optional(kWithout[caller]));
        EXPECT_THAT(log.From(kVerbose),
                    ElementsAre(Error(kInitializeSecurity, kLines[caller]), kNotSecured, kOutcome));
    }
}

/// A step whose failure leaves the list as it was before one caller, without a word.
TEST_F(ComSecurityTest, EntryThatCannotBeMadeLeavesItsCallerOut) {
    // Steps that only lists with entries take: the third caller is the last such.
    std::vector<std::pair<Trouble, std::size_t>> failures{
        {Failing<&::GetAclInformation>(ERROR_INVALID_ACL, AtCall{2}), 2},
        {Failing<&::GetAce>(ERROR_INVALID_PARAMETER, AtCall{3}), 2},
        {Failing<&::AddAce>(ERROR_ALLOTTED_SPACE_EXCEEDED, AtCall{2}), 2}};
    for (std::size_t caller = 0; caller < kCallers; ++caller) {
        const AtCall call{static_cast<int>(caller) + 1};
        failures.emplace_back(Failing<&::InitializeAcl>(ERROR_INVALID_PARAMETER, call), caller);
        failures.emplace_back(Failing<&::AddAccessAllowedAce>(ERROR_ALLOTTED_SPACE_EXCEEDED, call), caller);
        failures.emplace_back(Failing<&::SetSecurityDescriptorDacl>(ERROR_INVALID_ACL, call), caller);
    }
    for (const auto& [fail, caller] : failures) {
        SCOPED_TRACE(caller);
        const std::shared_ptr<void> fails = fail();
        EXPECT_THAT(Secure().accessList, Optional(kWithout[caller]));
        ExpectNoOtherLines();
    }
}

TEST_F(ComSecurityTest, WithoutAnySidTheAccessListIsLeftOutAndEachIsLogged) {
    const std::vector<Trouble> failures{Failing<&::CreateWellKnownSid>(ERROR_INVALID_PARAMETER),
                                        // No buffer for them.
                                        [] {
                                            return std::make_shared<ScopedResult<&::LocalAlloc>>(
                                                nullptr, ERROR_NOT_ENOUGH_MEMORY, AtCall{1});
                                        }};
    for (const Trouble& fail : failures) {
        const std::shared_ptr<void> fails = fail();
        Secure();
        EXPECT_EQ(descriptor.control, 0);
        EXPECT_EQ(descriptor.accessList, std::nullopt);
        EXPECT_EQ(log.At(Orva::Shared::Level::kError).size(), kCallers + 1U);
    }
}

TEST_F(ComSecurityTest, SecurityIsSetWhateverMemoryIsMissing) {
    int allocations = 0;
    {
        const ScopedWatch<&::LocalAlloc> counted;
        Secure();
        allocations = counted.Calls();
    }
    ASSERT_GT(allocations, 5);
    for (int call = 1; call <= allocations; ++call) {
        const ScopedResult<&::LocalAlloc> fails{nullptr, ERROR_NOT_ENOUGH_MEMORY, AtCall{call}};
        timesSecured = 0;
        Secure();
        EXPECT_EQ(fails.Answered(), 1) << call;
        EXPECT_EQ(timesSecured, 1) << call;
    }
}

}  // namespace
}  // namespace ServiceTests
