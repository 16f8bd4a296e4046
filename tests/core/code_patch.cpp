#include "tests/core/code_patch.h"

#include <cstring>

namespace CoreTests {

namespace {

/// The first slot of an object's virtual table.
void* FirstSlotOf(IUnknown& object) {
    return **reinterpret_cast<void***>(&object);
}

}  // namespace

CodePatch::CodePatch(void* function, void* replacement) : m_function(function) {
    std::memcpy(m_original.data(), function, kJumpBytes);
    constexpr std::array<unsigned char, 6> kJump{0xFF, 0x25, 0, 0, 0, 0};
    std::memcpy(m_jump.data(), kJump.data(), kJump.size());
    std::memcpy(m_jump.data() + kJump.size(), &replacement, sizeof(replacement));
    Apply();
}

void CodePatch::Restore() {
    Write(m_original);
}

void CodePatch::Apply() {
    Write(m_jump);
}

void CodePatch::Write(const Code& code) {
    DWORD protection = 0;
    VirtualProtect(m_function, kJumpBytes, PAGE_EXECUTE_READWRITE, &protection);
    std::memcpy(m_function, code.data(), kJumpBytes);
    VirtualProtect(m_function, kJumpBytes, protection, &protection);
    FlushInstructionCache(GetCurrentProcess(), m_function, kJumpBytes);
}

FailingQuery::FailingQuery(IUnknown& object, const IID& interfaceId, HRESULT result)
    : m_interfaceId(interfaceId),
      m_result(result),
      m_patch(FirstSlotOf(object), reinterpret_cast<void*>(&Query)) {
    s_current = this;
}

FailingQuery::~FailingQuery() {
    s_current = nullptr;
}

HRESULT FailingQuery::Query(IUnknown* object, REFIID interfaceId, void** out) {
    if (interfaceId == s_current->m_interfaceId) {
        *out = nullptr;
        return s_current->m_result;
    }
    s_current->m_patch.Restore();
    const HRESULT result = object->QueryInterface(interfaceId, out);
    s_current->m_patch.Apply();
    return result;
}

}  // namespace CoreTests
