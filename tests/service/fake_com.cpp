#include "tests/service/fake_com.h"

namespace ServiceTests {
namespace {

std::vector<std::byte> Bytes(const void* data, std::size_t count) {
    const auto* const bytes = static_cast<const std::byte*>(data);
    return {bytes, bytes + count};
}

}  // namespace

std::vector<std::byte> CopySidBytes(PSID sid) {
    return Bytes(sid, GetLengthSid(sid));
}

DescriptorCopy CopyDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    const auto& fields = *static_cast<const SECURITY_DESCRIPTOR*>(descriptor);
    DescriptorCopy copy;
    copy.revision = fields.Revision;
    copy.control = fields.Control;
    if (fields.Owner != nullptr) {
        copy.owner = CopySidBytes(fields.Owner);
    }
    if (fields.Group != nullptr) {
        copy.group = CopySidBytes(fields.Group);
    }
    if (fields.Dacl != nullptr) {
        copy.accessList = Bytes(fields.Dacl, fields.Dacl->AclSize);
    }
    copy.hasSystemAccessList = fields.Sacl != nullptr;
    return copy;
}

}  // namespace ServiceTests
