#pragma once

#include <iosfwd>

namespace CLI {
class App;
}  // namespace CLI

namespace Doctor {

/// `why`: what the log tells. The exit code is 0 whatever the verdict is, and 2 when nothing could be read.
void AddWhyCommand(CLI::App& app, int& exitCode);

}  // namespace Doctor
