#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>

namespace Doctor {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
/// A file that is open for reading, or nothing.
using InputFile = std::unique_ptr<std::FILE, CloseFile>;

/// Opens a file to read its bytes. Whoever writes it can go on writing, rename and delete it meanwhile:
/// the service rotates its log while it is read. Nothing where it cannot be opened.
InputFile OpenForReading(const std::filesystem::path& path);

}  // namespace Doctor
