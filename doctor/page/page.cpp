#include "doctor/page/page.h"

#include "doctor/page/page_template.h"

#include <string>
#include <string_view>

namespace Doctor {
namespace {

// In JSON these three stand only inside strings, where an escape says the same; without them the data
// can end neither its script element nor begin a comment.
void AppendEscaped(std::string& page, const std::string& json) {
    constexpr std::string_view kMarkup = "<>&";
    std::string::size_type begin = 0;
    for (;;) {
        const auto end = json.find_first_of(kMarkup, begin);
        page.append(json, begin, end == std::string::npos ? end : end - begin);
        if (end == std::string::npos) {
            return;
        }
        page += json[end] == '<' ? "\\u003c" : json[end] == '>' ? "\\u003e" : "\\u0026";
        begin = end + 1;
    }
}

}  // namespace

std::string RenderPage(const std::string& json) {
    const std::string_view before = PageBeforeData();
    const std::string_view after = PageAfterData();
    std::string page;
    page.reserve(before.size() + json.size() + json.size() / 8 + after.size());
    page += before;
    AppendEscaped(page, json);
    page += after;
    return page;
}

}  // namespace Doctor
