#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

namespace Orva::Shared {

/// A text that lives in the object itself up to `Places` characters, its end included, and on the
/// heap beyond that. A log entry is made for every line: with texts on the heap, queued calls of four
/// threads miss their bound in `logging_bench`.
template <class Character, std::size_t Places>
class InlineText {
  public:
    using View = std::basic_string_view<Character>;

    explicit InlineText(View text) { Assign(text); }
    InlineText(const InlineText& other) { Assign(other.Text()); }
    InlineText& operator=(const InlineText& other) {
        if (this != &other) {
            Assign(other.Text());
        }
        return *this;
    }
    ~InlineText() = default;

    /// `text` must not be a part of this one.
    void Assign(View text) {
        if (text.size() < Places) {
            m_long.reset();
        } else {
            m_long = std::make_unique<Character[]>(text.size() + 1);
        }
        m_size = text.size();
        *std::copy(text.begin(), text.end(), Data()) = Character();
    }

    /// Terminated, so that its data also serve where a pointer to text is wanted.
    [[nodiscard]] View Text() const noexcept { return {m_long ? m_long.get() : m_short, m_size}; }

  private:
    [[nodiscard]] Character* Data() noexcept { return m_long ? m_long.get() : m_short; }

    std::size_t m_size = 0;
    std::unique_ptr<Character[]> m_long;
    Character m_short[Places];
};

}  // namespace Orva::Shared
