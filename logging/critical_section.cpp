#include "logging/critical_section.h"

namespace Orva::Shared {
namespace {

constexpr int kLooks = 64;
constexpr int kTurnsForOthers = 256;

}  // namespace

void CriticalSection::EnterPatiently() noexcept {
    for (int turn = 0; turn < kTurnsForOthers; ++turn) {
        for (int look = 0; look < kLooks; ++look) {
            if (TryEnterCriticalSection(&m_section) != FALSE) {
                return;
            }
            YieldProcessor();
        }
        SwitchToThread();
    }
    Enter();
}

}  // namespace Orva::Shared
