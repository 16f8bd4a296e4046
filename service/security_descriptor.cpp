#include "service/security_descriptor.h"

#include <utility>

using Platform::UniqueHandle;
using Platform::UniqueLocalMemory;

namespace {

/// An empty list and one entry, both without the SID that stands at the entry's end.
constexpr DWORD kListAndEntryBytes = sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD);

UniqueHandle OpenToken() {
    UniqueHandle token;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Put()) != FALSE) {
        return token;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_NO_TOKEN || OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Put()) == FALSE) {
        return {};
    }
    return token;
}

/// What a token says about itself; empty when it cannot be read.
UniqueLocalMemory ReadToken(HANDLE token, TOKEN_INFORMATION_CLASS what) {
    DWORD bytes = 0;
    GetTokenInformation(token, what, nullptr, 0, &bytes);
    UniqueLocalMemory information(LocalAlloc(LPTR, bytes));
    if (!information || GetTokenInformation(token, what, information.Get(), bytes, &bytes) == FALSE) {
        return {};
    }
    return information;
}

/// Number of entries and bytes in use of a list, both 0 when there is none.
bool Measure(ACL* list, ACL_SIZE_INFORMATION& size) {
    size = {};
    return list == nullptr || GetAclInformation(list, &size, sizeof(size), AclSizeInformation) != FALSE;
}

bool CopyEntries(ACL* from, DWORD count, ACL* to) {
    for (DWORD index = 0; index < count; ++index) {
        void* entry = nullptr;
        if (GetAce(from, index, &entry) == FALSE ||
            AddAce(to, ACL_REVISION, MAXDWORD, entry, static_cast<const ACE_HEADER*>(entry)->AceSize) ==
                FALSE) {
            return false;
        }
    }
    return true;
}

/// A list with the entries of `current`, which may be null, and one more; empty on failure.
UniqueLocalMemory ExtendedList(ACL* current, PSID sid, DWORD accessMask) {
    ACL_SIZE_INFORMATION size{};
    if (!Measure(current, size)) {
        return {};
    }
    const DWORD bytes = size.AclBytesInUse + kListAndEntryBytes + GetLengthSid(sid);
    UniqueLocalMemory memory(LocalAlloc(LPTR, bytes));
    auto* const list = static_cast<ACL*>(memory.Get());
    if (list == nullptr || InitializeAcl(list, bytes, ACL_REVISION) == FALSE ||
        !CopyEntries(current, size.AceCount, list) ||
        AddAccessAllowedAce(list, ACL_REVISION, accessMask, sid) == FALSE) {
        return {};
    }
    return memory;
}

}  // namespace

SecurityDescriptor::SecurityDescriptor() {
    Clear();
}

void SecurityDescriptor::Clear() {
    InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION);
    m_owner.Reset();
    m_group.Reset();
    m_accessList.Reset();
}

void SecurityDescriptor::TakeOwnerAndGroupFromToken() {
    const UniqueHandle token = OpenToken();
    if (!token || !SetOwnerAndGroup(token.Get())) {
        Clear();
    }
}

bool SecurityDescriptor::SetOwnerAndGroup(HANDLE token) {
    m_owner = ReadToken(token, TokenUser);
    m_group = ReadToken(token, TokenPrimaryGroup);
    if (!m_owner || !m_group) {
        return false;
    }
    PSID const owner = static_cast<const TOKEN_USER*>(m_owner.Get())->User.Sid;
    PSID const group = static_cast<const TOKEN_PRIMARY_GROUP*>(m_group.Get())->PrimaryGroup;
    return SetSecurityDescriptorOwner(&m_descriptor, owner, FALSE) != FALSE &&
           SetSecurityDescriptorGroup(&m_descriptor, group, FALSE) != FALSE;
}

void SecurityDescriptor::Allow(PSID sid, DWORD accessMask) {
    UniqueLocalMemory list = ExtendedList(static_cast<ACL*>(m_accessList.Get()), sid, accessMask);
    // The old list is freed only when nothing points to it any more.
    if (list &&
        SetSecurityDescriptorDacl(&m_descriptor, TRUE, static_cast<ACL*>(list.Get()), FALSE) != FALSE) {
        m_accessList = std::move(list);
    }
}
