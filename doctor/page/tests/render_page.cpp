// Makes the page of a report: reads the JSON from standard input, writes the page to standard output.

#include "doctor/page/page.h"

#include <iostream>
#include <iterator>
#include <string>

int main() {
    const std::string json{std::istreambuf_iterator<char>{std::cin}, {}};
    std::cout << Doctor::RenderPage(json) << std::flush;
    return std::cout ? 0 : 1;
}
