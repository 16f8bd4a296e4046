#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/analysis/input_file.h"

namespace Doctor {

enum class Encoding : std::uint8_t {
    kUtf8,
    kUtf16LittleEndian,
    kUtf16BigEndian,
};

/// Reads a text file line by line, as UTF-8 whatever it is written in (UTF-8 or UTF-16, with or
/// without a byte-order mark), in a bounded amount of memory whatever its size. For one thread.
class LineReader {
  public:
    /// A line that is longer is given cut to this; no line of a log is.
    static constexpr std::size_t kLongestLine = std::size_t{64} * 1024;

    explicit LineReader(const std::filesystem::path& path);

    /// Whether the file could be opened.
    [[nodiscard]] bool IsOpen() const { return m_file != nullptr; }
    [[nodiscard]] Encoding TextEncoding() const { return m_encoding; }

    /// The next line without its end (LF, or CR LF), or false at the file's end. The text lives until
    /// the next call.
    bool Next(std::string_view& line);

    /// The number of the line that `Next` gave, from 1.
    [[nodiscard]] std::uint64_t Number() const { return m_number; }
    /// Bytes of the file that have been read so far.
    [[nodiscard]] std::uint64_t Bytes() const { return m_bytes; }

  private:
    void DetectEncoding();
    bool Fill();
    void AppendUtf16(std::size_t bytes);
    void AppendCharacter(char32_t character);
    [[nodiscard]] std::string_view WithoutReturn(std::string_view line) const;

    std::size_t ReadBlock(std::size_t bytes);

    InputFile m_file;
    Encoding m_encoding = Encoding::kUtf8;
    std::vector<char> m_block;
    /// What has been read and not yet given, from `m_begin` on.
    std::string m_text;
    std::size_t m_begin = 0;
    std::uint64_t m_number = 0;
    std::uint64_t m_bytes = 0;
    /// An odd byte or the first half of a pair that the last block of UTF-16 ended with.
    std::string m_oddBytes;
    char32_t m_highHalf = 0;
    bool m_skipsToLineEnd = false;
};

}  // namespace Doctor
