#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

/// What the programs share that play much from a seed.
namespace LongRun {

/// A seed that no run before had, short enough to be typed.
inline std::uint64_t FreshSeed() {
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    return static_cast<std::uint64_t>(counter.QuadPart) % 1'000'000'000;
}

/// "crashed: 0xc0000005 at 0000000140012345", for an unhandled exception's filter.
inline std::string CrashText(const EXCEPTION_POINTERS& pointers) {
    char text[64];
    std::snprintf(text, sizeof(text), "crashed: 0x%08lx at %p", pointers.ExceptionRecord->ExceptionCode,
                  pointers.ExceptionRecord->ExceptionAddress);
    return text;
}

/// What `run` makes of the command line, as the program's status; 2 when it throws, the reason being printed.
/// Nothing that is printed is held back, and a crash asks nobody.
inline int RunProgram(int argc, wchar_t** argv, int (*run)(int, wchar_t**)) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    testing::InitGoogleTest();
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::printf("%s\n", error.what());
        return 2;
    }
}

}  // namespace LongRun
