#include "doctor/zip_file.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>

namespace Doctor {
namespace {

constexpr std::uint32_t kEntrySignature = 0x04034b50;
constexpr std::uint32_t kDirectorySignature = 0x02014b50;
constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint16_t kVersion = 20;
constexpr std::uint16_t kNamesAreUtf8 = 1U << 11U;
constexpr std::uint16_t kDeflated = 8;
/// The first of January 1980, the format's beginning: when something was is told inside.
constexpr std::uint16_t kNoTime = 0;
constexpr std::uint16_t kFirstDate = (1U << 5U) | 1U;
constexpr std::uint64_t kMostBytes = std::numeric_limits<std::uint32_t>::max();
constexpr int kDefaultMemory = 8;  // of deflateInit2
constexpr std::size_t kPieceBytes = 64 * 1024;
/// Room is kept for what deflating adds to what cannot be packed.
constexpr std::uint64_t kMostEntryBytes = kMostBytes - kMostBytes / 1024;

/// The format's numbers, lowest byte first.
class Record {
  public:
    Record& Add16(std::uint32_t number) {
        m_bytes += static_cast<char>(number & 0xFFU);
        m_bytes += static_cast<char>((number >> 8U) & 0xFFU);
        return *this;
    }
    Record& Add32(std::uint32_t number) { return Add16(number & 0xFFFFU).Add16(number >> 16U); }
    Record& AddText(const std::string& text) {
        m_bytes += text;
        return *this;
    }
    void WriteTo(std::ostream& stream) const {
        stream.write(m_bytes.data(), static_cast<std::streamsize>(m_bytes.size()));
    }

  private:
    std::string m_bytes;
};

/// A raw deflate stream, without zlib's own header.
class Deflater {
  public:
    Deflater() {
        m_isGood = deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, kDefaultMemory,
                                Z_DEFAULT_STRATEGY) == Z_OK;
    }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
    ~Deflater() { deflateEnd(&m_stream); }

    /// Packs a piece, of which `flush` says whether it is the last. The packed bytes that came of it.
    std::uint64_t Pack(char* piece, std::size_t bytes, int flush, std::ostream& to) {
        std::uint64_t packed = 0;
        m_stream.next_in = reinterpret_cast<Bytef*>(piece);
        m_stream.avail_in = static_cast<uInt>(bytes);
        do {
            m_stream.next_out = m_room.data();
            m_stream.avail_out = static_cast<uInt>(m_room.size());
            if (!m_isGood || deflate(&m_stream, flush) == Z_STREAM_ERROR) {
                to.setstate(std::ios::failbit);
                return packed;
            }
            const std::size_t made = m_room.size() - m_stream.avail_out;
            to.write(reinterpret_cast<const char*>(m_room.data()), static_cast<std::streamsize>(made));
            packed += made;
        } while (m_stream.avail_out == 0);
        return packed;
    }

  private:
    z_stream m_stream{};
    bool m_isGood = false;
    std::array<Bytef, kPieceBytes> m_room{};
};

/// What the entry's own header and its line in the directory have in common.
void AddCommonFields(Record& record, std::size_t nameBytes, std::uint32_t checksum, std::uint32_t packedBytes,
                     std::uint32_t bytes) {
    record.Add16(kVersion).Add16(kNamesAreUtf8).Add16(kDeflated).Add16(kNoTime).Add16(kFirstDate);
    record.Add32(checksum).Add32(packedBytes).Add32(bytes);
    record.Add16(static_cast<std::uint32_t>(nameBytes)).Add16(0);
}

}  // namespace

ZipFile::ZipFile(const wchar_t* path)
    : m_file(std::filesystem::path(path), std::ios::binary | std::ios::trunc) {}

void ZipFile::WriteHeader(const Entry& entry) {
    Record record;
    record.Add32(kEntrySignature);
    AddCommonFields(record, entry.name.size(), entry.checksum, entry.packedBytes, entry.bytes);
    record.AddText(entry.name).WriteTo(m_file);
}

void ZipFile::Add(const std::string& name, std::string_view content) {
    static_cast<void>(Add(name, [&content](char* place, std::size_t bytes) {
        const std::size_t count = content.copy(place, bytes);
        content.remove_prefix(count);
        return static_cast<std::ptrdiff_t>(count);
    }));
}

bool ZipFile::Add(const std::string& name, const Source& source) {
    const auto offset = static_cast<std::uint64_t>(m_file.tellp());
    if (!m_file || offset > kMostBytes) {
        m_file.setstate(std::ios::failbit);
        return false;
    }
    Entry entry{name, 0, 0, 0, static_cast<std::uint32_t>(offset)};
    // Its sums are not known yet: the header is written again when they are.
    WriteHeader(entry);
    const bool isWhole = PackAll(source, entry);
    m_file.seekp(static_cast<std::streamoff>(offset));
    WriteHeader(entry);
    m_file.seekp(0, std::ios::end);
    m_entries.push_back(std::move(entry));
    return isWhole;
}

bool ZipFile::PackAll(const Source& source, Entry& entry) {
    Deflater deflater;
    std::vector<char> piece(kPieceBytes);
    std::uint64_t bytes = 0;
    std::uint64_t packed = 0;
    uLong checksum = crc32(0, nullptr, 0);
    std::ptrdiff_t got = source(piece.data(), piece.size());
    for (; got > 0 && bytes < kMostEntryBytes; got = source(piece.data(), piece.size())) {
        const auto count = static_cast<std::size_t>(got);
        checksum = crc32(checksum, reinterpret_cast<const Bytef*>(piece.data()), static_cast<uInt>(count));
        bytes += count;
        packed += deflater.Pack(piece.data(), count, Z_NO_FLUSH, m_file);
    }
    packed += deflater.Pack(piece.data(), 0, Z_FINISH, m_file);
    entry.checksum = static_cast<std::uint32_t>(checksum);
    entry.bytes = static_cast<std::uint32_t>(bytes);
    entry.packedBytes = static_cast<std::uint32_t>(packed);
    return got == 0;
}

bool ZipFile::Finish() {
    const std::uint64_t offset = static_cast<std::uint64_t>(m_file.tellp());
    for (const Entry& entry : m_entries) {
        Record record;
        record.Add32(kDirectorySignature).Add16(kVersion);
        AddCommonFields(record, entry.name.size(), entry.checksum, entry.packedBytes, entry.bytes);
        // No comment, disk 0, no attributes.
        record.Add16(0).Add16(0).Add16(0).Add32(0).Add32(entry.offset).AddText(entry.name).WriteTo(m_file);
    }
    const std::uint64_t end = static_cast<std::uint64_t>(m_file.tellp());
    const auto count = static_cast<std::uint32_t>(m_entries.size());
    Record record;
    record.Add32(kEndSignature).Add16(0).Add16(0).Add16(count).Add16(count);
    record.Add32(static_cast<std::uint32_t>(end - offset)).Add32(static_cast<std::uint32_t>(offset)).Add16(0);
    record.WriteTo(m_file);
    m_file.close();
    return m_file.good() && end <= kMostBytes;
}

}  // namespace Doctor
