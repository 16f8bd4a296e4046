#pragma once

#include <windows.h>
#include <unknwn.h>

#include <array>
#include <cstddef>

/// For what no import stands in front of.
namespace CoreTests {

/// Sends every call of a function of the executable itself elsewhere, for a scope, by overwriting
/// its first bytes (x64). For functions that cannot fail by themselves and whose failure is looked
/// at all the same. One thread at a time.
class CodePatch {
  public:
    CodePatch(void* function, void* replacement);
    CodePatch(const CodePatch&) = delete;
    CodePatch& operator=(const CodePatch&) = delete;
    ~CodePatch() { Restore(); }

    /// Puts the function back as it was, and in the way again.
    void Restore();
    void Apply();

  private:
    // jmp [rip+0], and the address behind it
    static constexpr std::size_t kJumpBytes = 14;
    using Code = std::array<unsigned char, kJumpBytes>;

    void Write(const Code& code);

    void* m_function;
    Code m_original{};
    Code m_jump{};
};

/// Has `QueryInterface` of every object of `object`'s class fail for one interface, for a scope.
class FailingQuery {
  public:
    FailingQuery(IUnknown& object, const IID& interfaceId, HRESULT result);
    FailingQuery(const FailingQuery&) = delete;
    FailingQuery& operator=(const FailingQuery&) = delete;
    ~FailingQuery();

  private:
    static HRESULT WINAPI Query(IUnknown* object, REFIID interfaceId, void** out);

    static inline FailingQuery* s_current = nullptr;
    const IID m_interfaceId;
    const HRESULT m_result;
    CodePatch m_patch;
};

}  // namespace CoreTests
