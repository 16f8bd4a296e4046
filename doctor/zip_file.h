#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Doctor {

/// A zip file that is written entry after entry ("APPNOTE.TXT - .ZIP File Format Specification", version
/// 2.0: deflated entries, names in UTF-8). The deflating is zlib's.
class ZipFile {
  public:
    /// Begins the file; one that is there is overwritten. `IsGood` tells whether that worked. `path` is
    /// UTF-16 on Windows.
    explicit ZipFile(const wchar_t* path);
    ZipFile(const ZipFile&) = delete;
    ZipFile& operator=(const ZipFile&) = delete;
    ~ZipFile() = default;

    /// Adds an entry of that content. Names use "/"; they have to differ.
    void Add(const std::string& name, std::string_view content);

    /// Reads at most `bytes` bytes to `place`. How many; 0 at the end, -1 on failure.
    using Source = std::function<std::ptrdiff_t(char* place, std::size_t bytes)>;

    /// The same for what `source` gives, of which the format takes just under 4 GB. False when it is
    /// longer, or reading fails: the entry then holds what came before.
    bool Add(const std::string& name, const Source& source);

    /// Writes the directory, without which it is no zip file. Whether everything was written.
    bool Finish();

    [[nodiscard]] bool IsGood() const { return m_file.good(); }

  private:
    struct Entry {
        std::string name;
        std::uint32_t checksum = 0;
        std::uint32_t packedBytes = 0;
        std::uint32_t bytes = 0;
        std::uint32_t offset = 0;
    };

    void WriteHeader(const Entry& entry);
    /// Writes what the source gives and notes its sums. Whether that was everything.
    bool PackAll(const Source& source, Entry& entry);

    std::ofstream m_file;
    std::vector<Entry> m_entries;
};

}  // namespace Doctor
