// Any number of damaged logs, to be run in a build that ends on undefined behaviour:
//
//   damage_logs COUNT [FIRST [FOLDER]]
//
// The folder takes the files, one at a time; one in memory is fastest.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/doctor/damaged_logs.h"

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("damage_logs COUNT [FIRST [FOLDER]]\n", stderr);
        return 2;
    }
    const std::uint64_t logs = std::strtoull(arguments[1], nullptr, 10);
    const std::uint64_t first = count > 2 ? std::strtoull(arguments[2], nullptr, 10) : 0;
    const std::string folder =
        count > 3 ? arguments[3] : (std::filesystem::temp_directory_path() / "damage_logs").string();
    std::filesystem::create_directories(folder);
    const std::string whole = Doctor::WholeLog();
    for (std::uint64_t number = first; number < first + logs; ++number) {
        const std::string wrong = Doctor::TryDamagedLog(folder, whole, number);
        if (!wrong.empty()) {
            std::printf("log %llu: %s\n", static_cast<unsigned long long>(number), wrong.c_str());
            return 1;
        }
        if ((number - first) % 10000 == 9999) {
            std::printf("%llu\n", static_cast<unsigned long long>(number + 1 - first));
            std::fflush(stdout);
        }
    }
    std::printf("%llu damaged logs, each with a verdict and whole reports\n",
                static_cast<unsigned long long>(logs));
    return 0;
}
