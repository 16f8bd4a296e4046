#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

namespace HostileBytes {

using Bytes = std::vector<std::byte>;

/// What one input is drawn from: the same for the same seed and number, whatever came before.
class Random {
  public:
    Random(std::uint64_t seed, std::uint64_t number) : m_state(seed * 0x9E3779B97F4A7C15U + number) {
        Next();
    }

    std::uint64_t Next();
    /// From 0 on, less than `end`.
    std::uint32_t Below(std::size_t end) { return static_cast<std::uint32_t>(Next() % end); }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }
    template <class T>
    T Of(std::initializer_list<T> choices) {
        return std::data(choices)[Below(choices.size())];
    }
    template <class T, std::size_t Size>
    const T& Of(const T (&choices)[Size]) {
        return choices[Below(Size)];
    }
    /// Small, at a border, or anything.
    std::uint32_t Number();

  private:
    std::uint64_t m_state;
};

/// `std::memcpy`, which may also copy nothing from nowhere.
inline void Copy(void* to, const void* from, std::size_t bytes) {
    std::copy_n(static_cast<const std::byte*>(from), bytes, static_cast<std::byte*>(to));
}
/// The bytes of a record.
template <class Record>
[[nodiscard]] Bytes BytesOf(const Record& record) {
    Bytes bytes(sizeof(record));
    Copy(bytes.data(), &record, sizeof(record));
    return bytes;
}
/// The bytes of a text, with its end.
[[nodiscard]] Bytes BytesOfText(const std::wstring& text);
[[nodiscard]] std::wstring TextOf(const Bytes& bytes);

/// Something sound, as it is or with a few damages: flipped, cut, doubled, extended, overwritten with numbers
/// at their borders.
[[nodiscard]] Bytes Damaged(Random& random, Bytes bytes);
[[nodiscard]] std::wstring Damaged(Random& random, const std::wstring& text);

}  // namespace HostileBytes
