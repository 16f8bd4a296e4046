#include "doctor/analysis/line_reader.h"

#include <algorithm>

namespace Doctor {
namespace {

constexpr std::size_t kBlockBytes = std::size_t{256} * 1024;
constexpr char32_t kReplacement = 0xFFFD;

bool StartsWith(const std::vector<char>& block, std::string_view mark) {
    return block.size() >= mark.size() && std::string_view(block.data(), mark.size()) == mark;
}

/// ASCII in UTF-16 has a zero in every other byte.
bool IsZeroAt(const std::vector<char>& block, std::size_t first) {
    constexpr std::size_t kLooked = 32;
    if (block.size() < kLooked) {
        return false;
    }
    for (std::size_t i = 0; i < kLooked; ++i) {
        if ((block[i] == '\0') != (i % 2 == first)) {
            return false;
        }
    }
    return true;
}

bool IsHighHalf(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool IsLowHalf(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

}  // namespace

LineReader::LineReader(const std::filesystem::path& path) : m_file(OpenForReading(path)) {
    if (m_file) {
        DetectEncoding();
    }
}

void LineReader::DetectEncoding() {
    constexpr std::size_t kLooked = 64;
    m_block.resize(ReadBlock(kLooked));
    long skipped = 0;
    if (StartsWith(m_block, "\xEF\xBB\xBF")) {
        skipped = 3;
    } else if (StartsWith(m_block, "\xFF\xFE")) {
        m_encoding = Encoding::kUtf16LittleEndian;
        skipped = 2;
    } else if (StartsWith(m_block, "\xFE\xFF")) {
        m_encoding = Encoding::kUtf16BigEndian;
        skipped = 2;
    } else if (IsZeroAt(m_block, 1)) {
        m_encoding = Encoding::kUtf16LittleEndian;
    } else if (IsZeroAt(m_block, 0)) {
        m_encoding = Encoding::kUtf16BigEndian;
    }
    std::fseek(m_file.get(), skipped, SEEK_SET);
    m_bytes = static_cast<std::uint64_t>(skipped);
}

std::size_t LineReader::ReadBlock(std::size_t bytes) {
    m_block.resize(bytes);
    return m_file ? std::fread(m_block.data(), 1, bytes, m_file.get()) : 0;
}

/// Reads one more block behind what is still to be given. False when there is none.
bool LineReader::Fill() {
    m_text.erase(0, m_begin);
    m_begin = 0;
    const std::size_t bytes = ReadBlock(kBlockBytes);
    m_bytes += bytes;
    if (bytes == 0) {
        return false;
    }
    if (m_encoding == Encoding::kUtf8) {
        m_text.append(m_block.data(), bytes);
    } else {
        AppendUtf16(bytes);
    }
    return true;
}

void LineReader::AppendUtf16(std::size_t bytes) {
    const std::size_t first = m_encoding == Encoding::kUtf16LittleEndian ? 0 : 1;
    std::string units = m_oddBytes;
    units.append(m_block.data(), bytes);
    const std::size_t whole = units.size() / 2 * 2;
    m_oddBytes = units.substr(whole);
    for (std::size_t i = 0; i < whole; i += 2) {
        const auto low = static_cast<unsigned char>(units[i + first]);
        const auto high = static_cast<unsigned char>(units[i + 1 - first]);
        const char32_t unit = static_cast<char32_t>(high) << 8U | low;
        if (m_highHalf != 0) {
            const char32_t character =
                IsLowHalf(unit) ? 0x10000 + ((m_highHalf - 0xD800) << 10U) + (unit - 0xDC00) : kReplacement;
            m_highHalf = 0;
            AppendCharacter(character);
            if (character != kReplacement) {
                continue;
            }
        }
        if (IsHighHalf(unit)) {
            m_highHalf = unit;
        } else {
            AppendCharacter(IsLowHalf(unit) ? kReplacement : unit);
        }
    }
}

void LineReader::AppendCharacter(char32_t character) {
    const auto append = [this](char32_t byte) { m_text.push_back(static_cast<char>(byte)); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | character >> 6U);
        append(0x80 | (character & 0x3FU));
    } else if (character < 0x10000) {
        append(0xE0 | character >> 12U);
        append(0x80 | (character >> 6U & 0x3FU));
        append(0x80 | (character & 0x3FU));
    } else {
        append(0xF0 | character >> 18U);
        append(0x80 | (character >> 12U & 0x3FU));
        append(0x80 | (character >> 6U & 0x3FU));
        append(0x80 | (character & 0x3FU));
    }
}

std::string_view LineReader::WithoutReturn(std::string_view line) const {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line.substr(0, kLongestLine);
}

bool LineReader::Next(std::string_view& line) {
    std::size_t searched = m_begin;
    while (true) {
        const std::size_t end = m_text.find('\n', searched);
        if (end != std::string::npos) {
            line = WithoutReturn(std::string_view(m_text).substr(m_begin, end - m_begin));
            m_begin = end + 1;
            if (m_skipsToLineEnd) {
                // The rest of a line that was given cut.
                m_skipsToLineEnd = false;
                searched = m_begin;
                continue;
            }
            ++m_number;
            return true;
        }
        if (m_skipsToLineEnd) {
            m_begin = m_text.size();
        } else if (m_text.size() - m_begin > kLongestLine) {
            line = std::string_view(m_text).substr(m_begin, kLongestLine);
            m_begin += kLongestLine;
            m_skipsToLineEnd = true;
            ++m_number;
            return true;
        }
        searched = m_text.size() - m_begin;
        if (!Fill()) {
            break;
        }
    }
    // The last line has no end.
    if (m_begin >= m_text.size() || m_skipsToLineEnd) {
        return false;
    }
    line = WithoutReturn(std::string_view(m_text).substr(m_begin));
    m_begin = m_text.size();
    ++m_number;
    return true;
}

}  // namespace Doctor
