#pragma once

#include <windows.h>

#include "platform/handles.h"

/// A security descriptor in absolute format, with the owner, the group and the access list that it
/// points to. It has no system access list.
class SecurityDescriptor {
  public:
    /// Empty: no owner, no group, no access list.
    SecurityDescriptor();
    SecurityDescriptor(const SecurityDescriptor&) = delete;
    SecurityDescriptor& operator=(const SecurityDescriptor&) = delete;
    ~SecurityDescriptor() = default;

    /// Takes owner and group from the calling thread's token, or from the process's when the
    /// thread has none. When that cannot be done the descriptor is empty afterwards.
    void TakeOwnerAndGroupFromToken();

    /// Appends an access-allowed entry without flags to the access list. When that cannot be done
    /// the list stays as it was.
    void Allow(PSID sid, DWORD accessMask);

    /// Valid as long as this object, which keeps it.
    [[nodiscard]] PSECURITY_DESCRIPTOR Get() noexcept { return &m_descriptor; }

  private:
    void Clear();
    bool SetOwnerAndGroup(HANDLE token);

    SECURITY_DESCRIPTOR m_descriptor{};
    Platform::UniqueLocalMemory m_owner;  ///< what the token says of its user, the SID with it
    Platform::UniqueLocalMemory m_group;
    Platform::UniqueLocalMemory m_accessList;
};
