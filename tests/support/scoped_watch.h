#pragma once

#include <memory>
#include <tuple>
#include <type_traits>
#include <vector>

#include "tests/support/scoped_import.h"

namespace Rig {

/// Looks on while the code under test calls a function, for a scope: every call goes on to what was there.
///
///     const ScopedWatch<&::CreateEventW> events;
///     CodeUnderTest();
///     EXPECT_THAT(events.Arguments(), ElementsAre(FieldsAre(nullptr, FALSE, FALSE, nullptr)));
///
/// `Calls` tells how many there were. Not for functions that block: the scope's end waits for them.
template <auto Function>
class ScopedWatch;

template <class R, class... Args, R(WINAPI* Target)(Args...)>
class ScopedWatch<Target> final : public ScopedImport<Target> {
  public:
    using Call = std::tuple<std::decay_t<Args>...>;

    ScopedWatch() : ScopedWatch(std::make_shared<Record>()) {}

    /// What each call so far was given, in order. A pointer is kept as it is: what it led to may be gone.
    [[nodiscard]] std::vector<Call> Arguments() const {
        const Detail::RigLockHolder hold(m_record->lock);
        return m_record->calls;
    }

  private:
    struct Record {
        Detail::RigLock lock;
        std::vector<Call> calls;
    };

    explicit ScopedWatch(const std::shared_ptr<Record>& record)
        : ScopedImport<Target>(kWrapping,
                               [record](const auto& self, Args... args) -> R {
                                   {
                                       const Detail::LastErrorKeeper keep;
                                       const Detail::RigLockHolder hold(record->lock);
                                       record->calls.emplace_back(args...);
                                   }
                                   return self.Original(args...);
                               }),
          m_record(record) {}

    std::shared_ptr<Record> m_record;
};

}  // namespace Rig
