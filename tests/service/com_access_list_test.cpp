// The security descriptor as COM receives it, byte by byte.
#include <gmock/gmock.h>

#include <windows.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "service/com_security.h"
#include "tests/service/fake_com.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"

namespace {

using Orva::Shared::Level::kVerbose;
using Rig::AtCall;
using Rig::Ledger;
using Rig::LogRecorder;
using Rig::ScopedImport;
using Rig::ScopedResult;
using ServiceTests::CopySidBytes;
using ServiceTests::DescriptorCopy;
using ServiceTests::FakeCom;
using testing::ElementsAre;
using testing::Optional;
using namespace Rig::Lines;

constexpr char kName[] = "InitializeSecurity";

using Bytes = std::vector<std::byte>;

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

class ComAccessListTest : public testing::Test {
  protected:
    /// The descriptor of one run.
    DescriptorCopy Secure() {
        InitializeSecurity();
        return com.descriptors.empty() ? DescriptorCopy() : com.descriptors.back();
    }

    /// Nothing but the outcome was logged.
    void ExpectNoOtherLines() {
        EXPECT_THAT(log.From(kVerbose),
                    ElementsAre(Error(kName, L"CoInitializeSecurity failed. Error: 0x80004005"),
                                Information(kName, L"InitializeSecurity : HRESULT: 0x80004005")));
    }

    LogRecorder log;
    Ledger ledger;
    FakeCom com;
};

/// What the process's own token says.
Bytes TokenSid(TOKEN_INFORMATION_CLASS what) {
    alignas(void*) std::byte buffer[256] = {};
    HANDLE token = nullptr;
    DWORD bytes = 0;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_TRUE(GetTokenInformation(token, what, buffer, sizeof(buffer), &bytes));
    CloseHandle(token);
    // Both structures begin with the pointer to the SID.
    return CopySidBytes(*reinterpret_cast<PSID*>(buffer));
}

TEST_F(ComAccessListTest, SystemAdministratorsAndUsersMayCallInThisOrder) {
    EXPECT_THAT(Secure().accessList, Optional(kWholeList));
    ExpectNoOtherLines();
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComAccessListTest, DescriptorIsAbsoluteAndNothingInItIsDefaulted) {
    const DescriptorCopy descriptor = Secure();
    EXPECT_EQ(descriptor.revision, SECURITY_DESCRIPTOR_REVISION);
    EXPECT_EQ(descriptor.control, SE_DACL_PRESENT);
    EXPECT_FALSE(descriptor.hasSystemAccessList);
}

TEST_F(ComAccessListTest, OwnerAndGroupAreTheProcesss) {
    const Bytes user = TokenSid(TokenUser);
    const Bytes group = TokenSid(TokenPrimaryGroup);
    const DescriptorCopy descriptor = Secure();
    EXPECT_THAT(descriptor.owner, Optional(user));
    EXPECT_THAT(descriptor.group, Optional(group));
}

TEST_F(ComAccessListTest, TokensAreOpenedForQueryOnly) {
    const ScopedImport<&::OpenThreadToken> thread{[&](HANDLE handle, DWORD access, BOOL, PHANDLE) -> BOOL {
        EXPECT_EQ(handle, GetCurrentThread());
        EXPECT_EQ(access, DWORD{TOKEN_QUERY});
        SetLastError(ERROR_NO_TOKEN);
        return FALSE;
    }};
    const ScopedImport<&::OpenProcessToken> process{[&](HANDLE handle, DWORD access, PHANDLE token) -> BOOL {
        EXPECT_EQ(handle, GetCurrentProcess());
        EXPECT_EQ(access, DWORD{TOKEN_QUERY});
        return process.Original(handle, access, token);
    }};
    EXPECT_TRUE(Secure().owner);
    EXPECT_EQ(thread.Calls(), 1);
    EXPECT_EQ(process.Calls(), 1);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComAccessListTest, ThreadsOwnTokenComesFirst) {
    const ScopedImport<&::OpenThreadToken> thread{[](HANDLE, DWORD access, BOOL, PHANDLE token) -> BOOL {
        return OpenProcessToken(GetCurrentProcess(), access, token);
    }};
    const ScopedResult<&::OpenProcessToken> process{TRUE, AtCall{2, 1000}};
    EXPECT_TRUE(Secure().owner);
    EXPECT_EQ(process.Calls(), 1);
    EXPECT_TRUE(ledger.Balanced());
}

/// A call without which owner and group are left out, both, without a word.
struct MissingStep {
    const char* name;
    std::function<std::shared_ptr<void>()> fail;
};

void PrintTo(const MissingStep& step, std::ostream* out) {
    *out << step.name;
}

template <auto Function, class... Arguments>
std::function<std::shared_ptr<void>()> Failing(Arguments... arguments) {
    return [=] { return std::make_shared<ScopedResult<Function>>(FALSE, arguments...); };
}

class ComOwnerTest : public ComAccessListTest, public testing::WithParamInterface<MissingStep> {};

TEST_P(ComOwnerTest, WithoutTheStepOnlyTheAccessListIsThere) {
    const std::shared_ptr<void> fails = GetParam().fail();
    const DescriptorCopy copy = Secure();
    EXPECT_EQ(copy.owner, std::nullopt);
    EXPECT_EQ(copy.group, std::nullopt);
    EXPECT_EQ(copy.control, SE_DACL_PRESENT);
    EXPECT_THAT(copy.accessList, Optional(kWholeList));
    ExpectNoOtherLines();
    EXPECT_TRUE(ledger.Balanced());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ComOwnerTest,
    testing::Values(
        MissingStep{"ProcessToken", Failing<&::OpenProcessToken>(ERROR_ACCESS_DENIED)},
        // The process's is no substitute for one that may not be read.
        MissingStep{"ThreadToken", Failing<&::OpenThreadToken>(ERROR_ACCESS_DENIED)},
        MissingStep{"TokenInformation", Failing<&::GetTokenInformation>(ERROR_ACCESS_DENIED)},
        MissingStep{"GroupInformation",
                    [] {
                        return std::make_shared<ScopedImport<&::GetTokenInformation>>(
                            [](HANDLE, TOKEN_INFORMATION_CLASS what, auto...) {
                                return what == TokenPrimaryGroup;
                            },
                            [](auto...) -> BOOL { return FALSE; });
                    }},
        MissingStep{"Owner", Failing<&::SetSecurityDescriptorOwner>(ERROR_INVALID_SECURITY_DESCR)},
        MissingStep{"Group", Failing<&::SetSecurityDescriptorGroup>(ERROR_INVALID_SECURITY_DESCR)}));

TEST_F(ComAccessListTest, OwnerAndGroupAreSetAsNotDefaulted) {
    const ScopedImport<&::SetSecurityDescriptorOwner> owner{
        [&](PSECURITY_DESCRIPTOR descriptor, PSID sid, BOOL defaulted) {
            EXPECT_EQ(defaulted, FALSE);
            return owner.Original(descriptor, sid, defaulted);
        }};
    const ScopedImport<&::SetSecurityDescriptorGroup> group{
        [&](PSECURITY_DESCRIPTOR descriptor, PSID sid, BOOL defaulted) {
            EXPECT_EQ(defaulted, FALSE);
            return group.Original(descriptor, sid, defaulted);
        }};
    Secure();
    EXPECT_EQ(owner.Calls(), 1);
    EXPECT_EQ(group.Calls(), 1);
}

TEST_F(ComAccessListTest, EverySidGetsTheWholeBuffer) {
    std::vector<WELL_KNOWN_SID_TYPE> types;
    const ScopedImport<&::CreateWellKnownSid> create{
        [&](WELL_KNOWN_SID_TYPE type, PSID domain, PSID sid, DWORD* bytes) -> BOOL {
            EXPECT_EQ(domain, nullptr);
            EXPECT_EQ(*bytes, 68U);
            types.push_back(type);
            return create.Original(type, domain, sid, bytes);
        }};
    Secure();
    EXPECT_THAT(types, ElementsAre(WinLocalSystemSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid));
}

/// What is left when one of the three cannot be let in.
const Bytes kWithout[] = {
    Head(64, 2) + kAdministratorsEntry + kUsersEntry + kSpare,
    Head(60, 2) + kSystemEntry + kUsersEntry + kSpare,
    Head(60, 2) + kSystemEntry + kAdministratorsEntry + kSpare,
};

TEST_F(ComAccessListTest, SidThatCannotBeMadeIsLoggedAndTheOthersAreLetIn) {
    constexpr const wchar_t* kLines[] = {
        L"CreateWellKnownSid with WinLocalSystemSid failed. Error: 0x00000057",
        L"CreateWellKnownSid with WinBuiltinAdministratorsSid failed.  Error: 0x00000057",
        L"CreateWellKnownSid with WinBuiltinUsersSid failed.  Error: 0x00000057",
    };
    for (int caller = 0; caller < 3; ++caller) {
        log.Clear();
        const ScopedResult<&::CreateWellKnownSid> fails{FALSE, ERROR_INVALID_PARAMETER, AtCall{caller + 1}};
        EXPECT_THAT(Secure().accessList, Optional(kWithout[caller]));
        EXPECT_THAT(log.From(kVerbose),
                    ElementsAre(Error(kName, kLines[caller]),
                                Error(kName, L"CoInitializeSecurity failed. Error: 0x80004005"),
                                Information(kName, L"InitializeSecurity : HRESULT: 0x80004005")));
        EXPECT_TRUE(ledger.Balanced());
    }
}

/// A step whose failure leaves the list as it was before one caller, without a word.
struct MissingEntry {
    const char* name;
    std::function<std::shared_ptr<void>()> fail;
    std::size_t caller;  ///< from 0
};

void PrintTo(const MissingEntry& entry, std::ostream* out) {
    *out << entry.name << ' ' << entry.caller;
}

class ComAccessListWithoutOneTest : public ComAccessListTest,
                                    public testing::WithParamInterface<MissingEntry> {};

TEST_P(ComAccessListWithoutOneTest, TheOthersAreLetIn) {
    const std::shared_ptr<void> fails = GetParam().fail();
    EXPECT_THAT(Secure().accessList, Optional(kWithout[GetParam().caller]));
    ExpectNoOtherLines();
    EXPECT_TRUE(ledger.Balanced());
}

std::vector<MissingEntry> MissingEntries() {
    // Steps that only lists with entries take: the third caller is the last such.
    std::vector<MissingEntry> entries{
        {"Measure", Failing<&::GetAclInformation>(ERROR_INVALID_ACL, AtCall{2}), 2},
        {"Read", Failing<&::GetAce>(ERROR_INVALID_PARAMETER, AtCall{3}), 2},
        {"Copy", Failing<&::AddAce>(ERROR_ALLOTTED_SPACE_EXCEEDED, AtCall{2}), 2},
    };
    for (std::size_t caller = 0; caller < 3; ++caller) {
        const AtCall call{static_cast<int>(caller) + 1};
        entries.push_back({"Make", Failing<&::InitializeAcl>(ERROR_INVALID_PARAMETER, call), caller});
        entries.push_back(
            {"Add", Failing<&::AddAccessAllowedAce>(ERROR_ALLOTTED_SPACE_EXCEEDED, call), caller});
        entries.push_back({"Set", Failing<&::SetSecurityDescriptorDacl>(ERROR_INVALID_ACL, call), caller});
    }
    return entries;
}

INSTANTIATE_TEST_SUITE_P(Steps, ComAccessListWithoutOneTest, testing::ValuesIn(MissingEntries()));

TEST_F(ComAccessListTest, NoSidAtAllLeavesTheAccessListOut) {
    const ScopedResult<&::CreateWellKnownSid> fails{FALSE, ERROR_INVALID_PARAMETER};
    const DescriptorCopy descriptor = Secure();
    EXPECT_EQ(descriptor.control, 0);
    EXPECT_EQ(descriptor.accessList, std::nullopt);
    EXPECT_EQ(log.At(Orva::Shared::Level::kError).size(), 4U);
}

TEST_F(ComAccessListTest, NoBufferForSidsIsLoggedForEachAndNothingIsWrittenNowhere) {
    const ScopedResult<&::LocalAlloc> fails{nullptr, ERROR_NOT_ENOUGH_MEMORY, AtCall{1}};
    EXPECT_EQ(Secure().accessList, std::nullopt);
    EXPECT_EQ(log.At(Orva::Shared::Level::kError).size(), 4U);
}

TEST_F(ComAccessListTest, SidBufferHasRoomForEverySid) {
    std::vector<SIZE_T> sizes;
    const ScopedImport<&::LocalAlloc> allocate{[&](UINT flags, SIZE_T bytes) {
        sizes.push_back(bytes);
        return allocate.Original(flags, bytes);
    }};
    Secure();
    ASSERT_FALSE(sizes.empty());
    EXPECT_EQ(sizes.front(), 68U);
}

TEST_F(ComAccessListTest, SecurityIsSetWhateverMemoryIsMissing) {
    int allocations = 0;
    {
        const ScopedImport<&::LocalAlloc> counted{[&](UINT flags, SIZE_T bytes) {
            ++allocations;
            return counted.Original(flags, bytes);
        }};
        Secure();
    }
    ASSERT_GT(allocations, 5);
    for (int call = 1; call <= allocations; ++call) {
        const ScopedResult<&::LocalAlloc> fails{nullptr, ERROR_NOT_ENOUGH_MEMORY, AtCall{call}};
        com.descriptors.clear();
        Secure();
        EXPECT_EQ(fails.Answered(), 1) << call;
        EXPECT_EQ(com.descriptors.size(), 1U) << call;
        EXPECT_TRUE(ledger.Balanced()) << call;
    }
}

}  // namespace
