#include "tests/hostile/random.h"

namespace HostileBytes {

namespace {

constexpr std::uint32_t kBorders[] = {
    0,          1,          2,          3,          4,           5,           6,
    7,          8,          16,         19,         63,          64,          65,
    0x7F,       0x80,       0xFF,       0x100,      0x7FFF,      0x8000,      0xFFFF,
    0x10000,    214748364U, 214748365U, 429496729U, 429496730U,  0x7FFFFFFFU, 0x80000000U,
    0x80000001, 0xFFFFFFF0, 0xFFFFFFFE, 0xFFFFFFFF, 0x80004005U, 0x80041002U,
};

void DamageOnce(Random& random, Bytes& bytes) {
    const std::size_t at = bytes.empty() ? 0 : random.Below(bytes.size());
    const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    switch (random.Below(6)) {
        case 0:
            if (!bytes.empty()) {
                *place ^= static_cast<std::byte>(1U << random.Below(8));
            }
            break;
        case 1:
            bytes.resize(at);
            break;
        case 2:
            bytes.erase(bytes.begin(), place);
            break;
        case 3:
            bytes.resize(bytes.size() + random.Below(random.OneIn(8) ? 4000 : 40),
                         static_cast<std::byte>(random.Of({0x00, 0x20, 0x41, 0xFF})));
            break;
        case 4: {
            const Bytes rest(place, bytes.end());
            bytes.insert(bytes.end(), rest.begin(), rest.end());
            break;
        }
        default: {
            const std::uint32_t number = random.Number();
            Copy(bytes.data() + at, &number, std::min(bytes.size() - at, sizeof(number)));
            break;
        }
    }
}

}  // namespace

std::uint64_t Random::Next() {
    // SplitMix64 (Steele, Lea, Flood): each state gives a number of its own, so that any input can be drawn
    // alone.
    m_state += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = m_state;
    mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31U);
}

std::uint32_t Random::Number() {
    return OneIn(4) ? static_cast<std::uint32_t>(Next()) : Of(kBorders);
}

Bytes BytesOfText(const std::wstring& text) {
    const auto* const first = reinterpret_cast<const std::byte*>(text.c_str());
    return {first, first + (text.size() + 1) * sizeof(wchar_t)};
}

std::wstring TextOf(const Bytes& bytes) {
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    Copy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

Bytes Damaged(Random& random, Bytes bytes) {
    for (std::uint32_t damages = random.Below(4); damages != 0; --damages) {
        DamageOnce(random, bytes);
    }
    return bytes;
}

std::wstring Damaged(Random& random, const std::wstring& text) {
    return TextOf(Damaged(random, BytesOfText(text)));
}

}  // namespace HostileBytes
