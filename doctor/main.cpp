#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <string>
#include <vector>

#include "doctor/command_line.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

/// CLI11 wants the arguments without the program, and the last one first.
int Run(const std::vector<std::string>& arguments) {
    CLI::App app("What the Linkvane service did, and why", "LinkvaneDoctor");
    app.require_subcommand(1);
    app.set_version_flag("--version", LINKVANE_VERSION);
    int exitCode = 0;
    Doctor::AddWhyCommand(app, exitCode);
#ifdef _WIN32
    Doctor::AddStatusCommand(app, exitCode);
    Doctor::AddCheckCommand(app, exitCode);
    Doctor::AddCollectCommand(app, exitCode);
#endif
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return exitCode;
}

}  // namespace

#ifdef _WIN32

int wmain(int count, wchar_t** arguments) {
    // A library that Windows does not have (wlanapi.dll on a server) is not looked for where somebody may
    // have put one: in the current folder and the search path.
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    SetConsoleOutputCP(CP_UTF8);
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) {
        const int bytes = WideCharToMultiByte(CP_UTF8, 0, arguments[i], -1, nullptr, 0, nullptr, nullptr);
        std::string text(bytes > 0 ? static_cast<std::size_t>(bytes) : 1, '\0');
        WideCharToMultiByte(CP_UTF8, 0, arguments[i], -1, text.data(), bytes, nullptr, nullptr);
        text.pop_back();
        texts.push_back(std::move(text));
    }
    return Run(texts);
}

#else

int main(int count, char** arguments) {
    return Run({arguments + 1, arguments + count});
}

#endif
