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

/// A SID of our own; empty when there is no memory or nothing to copy.
UniqueLocalMemory CopyOf(PSID sid) {
    const DWORD bytes = GetLengthSid(sid);
    UniqueLocalMemory copy(LocalAlloc(LPTR, bytes));
    if (!copy || CopySid(bytes, copy.Get(), sid) == FALSE) {
        return {};
    }
    return copy;
}

UniqueLocalMemory UserOf(HANDLE token) {
    const UniqueLocalMemory information = ReadToken(token, TokenUser);
    return information ? CopyOf(static_cast<const TOKEN_USER*>(information.Get())->User.Sid)
                       : UniqueLocalMemory();
}

UniqueLocalMemory PrimaryGroupOf(HANDLE token) {
    const UniqueLocalMemory information = ReadToken(token, TokenPrimaryGroup);
    return information ? CopyOf(static_cast<const TOKEN_PRIMARY_GROUP*>(information.Get())->PrimaryGroup)
                       : UniqueLocalMemory();
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
    m_owner = UserOf(token);
    m_group = PrimaryGroupOf(token);
    return m_owner && m_group && SetSecurityDescriptorOwner(&m_descriptor, m_owner.Get(), FALSE) != FALSE &&
           SetSecurityDescriptorGroup(&m_descriptor, m_group.Get(), FALSE) != FALSE;
}

void SecurityDescriptor::Allow(PSID sid, DWORD accessMask) {
    UniqueLocalMemory list = ExtendedList(static_cast<ACL*>(m_accessList.Get()), sid, accessMask);
    // The old list is freed only when nothing points to it any more.
    if (list &&
        SetSecurityDescriptorDacl(&m_descriptor, TRUE, static_cast<ACL*>(list.Get()), FALSE) != FALSE) {
        m_accessList = std::move(list);
    }
}
