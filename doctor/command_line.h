#pragma once

#include <cstdio>
#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace Doctor {

/// Writes a text to the standard output as it is.
inline void Print(const std::string& text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
}

/// `why`: what the log tells. The exit code is 0 whatever the verdict is, and 2 when nothing could be read.
void AddWhyCommand(CLI::App& app, int& exitCode);

// Of the machine that the program runs on, which has to be a Windows one.

/// `status`: what this machine is like, for the service. The exit code is 0 whatever it is like.
void AddStatusCommand(CLI::App& app, int& exitCode);

/// `check`: the same, judged. The exit code is that of Inspection::ExitCode.
void AddCheckCommand(CLI::App& app, int& exitCode);

/// `collect OUT.zip`: everything that a supporter asks for. 0, or 1 when the file cannot be written.
void AddCollectCommand(CLI::App& app, int& exitCode);

}  // namespace Doctor
