// The security descriptor as COM receives it, byte by byte.
#include <gmock/gmock.h>

#include <windows.h>

#include <initializer_list>
#include <memory>
#include <optional>
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

/// A descriptor without owner and group, with everybody let in, and not a word about it.
#define EXPECT_ONLY_THE_ACCESS_LIST(descriptor)             \
    do {                                                    \
        const DescriptorCopy copy = (descriptor);           \
        EXPECT_EQ(copy.owner, std::nullopt);                \
        EXPECT_EQ(copy.group, std::nullopt);                \
        EXPECT_EQ(copy.control, SE_DACL_PRESENT);           \
        EXPECT_THAT(copy.accessList, Optional(kWholeList)); \
        ExpectNoOtherLines();                               \
        EXPECT_TRUE(ledger.Balanced());                     \
    } while (false)

TEST_F(ComAccessListTest, ThreadTokenThatMayNotBeReadIsNotReplacedByTheProcesss) {
    const ScopedResult<&::OpenThreadToken> thread{FALSE, ERROR_ACCESS_DENIED};
    const ScopedResult<&::OpenProcessToken> process{FALSE, ERROR_ACCESS_DENIED};
    EXPECT_ONLY_THE_ACCESS_LIST(Secure());
    EXPECT_EQ(process.Calls(), 0);
}

TEST_F(ComAccessListTest, NoTokenAtAllLeavesOwnerAndGroupOut) {
    const ScopedResult<&::OpenProcessToken> process{FALSE, ERROR_ACCESS_DENIED};
    EXPECT_ONLY_THE_ACCESS_LIST(Secure());
}

TEST_F(ComAccessListTest, TokenThatCannotBeReadLeavesOwnerAndGroupOut) {
    const ScopedResult<&::GetTokenInformation> fails{FALSE, ERROR_ACCESS_DENIED};
    EXPECT_ONLY_THE_ACCESS_LIST(Secure());
}

TEST_F(ComAccessListTest, GroupThatCannotBeReadTakesTheOwnerWithIt) {
    const ScopedImport<&::GetTokenInformation> fails{
        [](HANDLE, TOKEN_INFORMATION_CLASS what, auto...) { return what == TokenPrimaryGroup; },
        [](auto...) -> BOOL { return FALSE; }};
    EXPECT_ONLY_THE_ACCESS_LIST(Secure());
}

TEST_F(ComAccessListTest, SidThatCannotBeCopiedLeavesOwnerAndGroupOut) {
    for (const int call : {1, 2}) {
        SCOPED_TRACE(call);
        log.Clear();
        const ScopedResult<&::CopySid> fails{FALSE, ERROR_INVALID_SID, AtCall{call}};
        EXPECT_ONLY_THE_ACCESS_LIST(Secure());
    }
}

TEST_F(ComAccessListTest, OwnerThatIsRefusedLeavesOwnerAndGroupOut) {
    const ScopedResult<&::SetSecurityDescriptorOwner> fails{FALSE, ERROR_INVALID_SECURITY_DESCR};
    EXPECT_ONLY_THE_ACCESS_LIST(Secure());
}

TEST_F(ComAccessListTest, GroupThatIsRefusedTakesTheOwnerWithIt) {
    const ScopedResult<&::SetSecurityDescriptorGroup> fails{FALSE, ERROR_INVALID_SECURITY_DESCR};
    EXPECT_ONLY_THE_ACCESS_LIST(Secure());
}

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

class ComAccessListWithoutOneTest : public ComAccessListTest, public testing::WithParamInterface<int> {
  protected:
    /// Checks the list without the parameter's entry.
    void ExpectListWithoutOne() {
        EXPECT_THAT(Secure().accessList, Optional(kWithout[GetParam() - 1]));
        EXPECT_TRUE(ledger.Balanced());
    }
    /// The same, when it is missing without a word.
    void ExpectSilentListWithoutOne() {
        ExpectListWithoutOne();
        ExpectNoOtherLines();
    }
};

INSTANTIATE_TEST_SUITE_P(Callers, ComAccessListWithoutOneTest, testing::Values(1, 2, 3));

TEST_P(ComAccessListWithoutOneTest, SidThatCannotBeMadeIsLoggedAndTheOthersAreLetIn) {
    constexpr const wchar_t* kLines[] = {
        L"CreateWellKnownSid with WinLocalSystemSid failed. Error: 0x00000057",
        L"CreateWellKnownSid with WinBuiltinAdministratorsSid failed.  Error: 0x00000057",
        L"CreateWellKnownSid with WinBuiltinUsersSid failed.  Error: 0x00000057",
    };
    const ScopedResult<&::CreateWellKnownSid> fails{FALSE, ERROR_INVALID_PARAMETER, AtCall{GetParam()}};
    ExpectListWithoutOne();
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kName, kLines[GetParam() - 1]),
                            Error(kName, L"CoInitializeSecurity failed. Error: 0x80004005"),
                            Information(kName, L"InitializeSecurity : HRESULT: 0x80004005")));
}

TEST_P(ComAccessListWithoutOneTest, ListThatCannotBeMadeIsLeftAsItWas) {
    const ScopedResult<&::InitializeAcl> fails{FALSE, ERROR_INVALID_PARAMETER, AtCall{GetParam()}};
    ExpectSilentListWithoutOne();
}

TEST_P(ComAccessListWithoutOneTest, ListThatCannotTakeTheEntryIsLeftAsItWas) {
    const ScopedResult<&::AddAccessAllowedAce> fails{FALSE, ERROR_ALLOTTED_SPACE_EXCEEDED,
                                                     AtCall{GetParam()}};
    ExpectSilentListWithoutOne();
}

TEST_P(ComAccessListWithoutOneTest, ListThatTheDescriptorRefusesIsLeftAsItWas) {
    const ScopedResult<&::SetSecurityDescriptorDacl> fails{FALSE, ERROR_INVALID_ACL, AtCall{GetParam()}};
    ExpectSilentListWithoutOne();
}

/// Steps that only lists with entries take: the third caller is the last such.
TEST_F(ComAccessListTest, ListThatCannotBeMeasuredIsLeftAsItWas) {
    const ScopedResult<&::GetAclInformation> fails{FALSE, ERROR_INVALID_ACL, AtCall{2}};
    EXPECT_THAT(Secure().accessList, Optional(kWithout[2]));
    ExpectNoOtherLines();
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComAccessListTest, EntryThatCannotBeReadLeavesTheListAsItWas) {
    const ScopedResult<&::GetAce> fails{FALSE, ERROR_INVALID_PARAMETER, AtCall{3}};
    EXPECT_THAT(Secure().accessList, Optional(kWithout[2]));
    ExpectNoOtherLines();
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ComAccessListTest, EntryThatCannotBeCopiedLeavesTheListAsItWas) {
    const ScopedResult<&::AddAce> fails{FALSE, ERROR_ALLOTTED_SPACE_EXCEEDED, AtCall{2}};
    EXPECT_THAT(Secure().accessList, Optional(kWithout[2]));
    ExpectNoOtherLines();
    EXPECT_TRUE(ledger.Balanced());
}

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
