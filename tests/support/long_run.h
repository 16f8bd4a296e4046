#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>

/// What the programs share that play much from a seed.
namespace LongRun {

/// A seed that no run before had, short enough to be typed.
inline std::uint64_t FreshSeed() {
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    return static_cast<std::uint64_t>(counter.QuadPart) % 1'000'000'000;
}

using Taker = std::function<void(const std::string& value)>;

/// Takes an option's value into a text or a whole number, which must outlive it.
template <class Value>
Taker Into(Value& target) {
    return [&target](const std::string& value) {
        if constexpr (std::is_same_v<Value, std::string>) {
            target = value;
        } else {
            target = static_cast<Value>(std::stoull(value));
        }
    };
}

/// Hands on the values of `options`, each of which stands behind its name. `takeWord` is asked about every
/// other word. Throws at the first one that is not understood.
inline void ReadOptions(
    int count, wchar_t** words, const std::map<std::string, Taker>& options,
    const std::function<bool(const std::string&)>& takeWord = [](const std::string&) { return false; }) {
    const auto textOf = [](const std::wstring& text) { return std::string(text.begin(), text.end()); };
    for (int i = 1; i < count; ++i) {
        const std::string word = textOf(words[i]);
        const auto option = options.find(word);
        if (option != options.end() && i + 1 < count && words[i + 1][0] != L'\0') {
            option->second(textOf(words[++i]));
        } else if (!takeWord(word)) {
            throw std::runtime_error("not understood: " + word);
        }
    }
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
