#include "notebook/controller/words.h"

#include <charconv>
#include <cstdio>

namespace Notebook {

namespace {

bool IsBlank(char letter) {
    return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n';
}

int HexDigit(char letter) {
    if (letter >= '0' && letter <= '9') {
        return letter - '0';
    }
    if (letter >= 'a' && letter <= 'f') {
        return letter - 'a' + 10;
    }
    if (letter >= 'A' && letter <= 'F') {
        return letter - 'A' + 10;
    }
    throw CommandError("\\x needs two hexadecimal digits");
}

/// Reads one escape behind its backslash; `at` is left behind it.
char ReadEscape(std::string_view line, std::size_t& at) {
    if (at >= line.size()) {
        throw CommandError("a backslash at the end of the line");
    }
    const char letter = line[at++];
    switch (letter) {
        case 'n':
            return '\n';
        case 't':
            return '\t';
        case 'r':
            return '\r';
        case 'x': {
            if (at + 2 > line.size()) {
                throw CommandError("\\x needs two hexadecimal digits");
            }
            const int value = HexDigit(line[at]) * 16 + HexDigit(line[at + 1]);
            at += 2;
            return static_cast<char>(value);
        }
        default:
            return letter;
    }
}

std::string ReadQuoted(std::string_view line, std::size_t& at) {
    std::string word;
    while (at < line.size() && line[at] != '"') {
        const char letter = line[at++];
        word.push_back(letter == '\\' ? ReadEscape(line, at) : letter);
    }
    if (at >= line.size()) {
        throw CommandError("a quote is missing");
    }
    ++at;
    return word;
}

}  // namespace

Words::Words(std::string_view line) {
    std::size_t at = 0;
    while (true) {
        while (at < line.size() && IsBlank(line[at])) {
            ++at;
        }
        if (at >= line.size() || line[at] == '#') {
            return;
        }
        std::string word;
        while (at < line.size() && !IsBlank(line[at])) {
            const char letter = line[at++];
            if (letter == '"') {
                word += ReadQuoted(line, at);
            } else {
                word.push_back(letter);
            }
        }
        m_words.push_back(std::move(word));
    }
}

std::string_view Words::Peek() const {
    return Empty() ? std::string_view() : std::string_view(m_words[m_next]);
}

std::string Words::Take(std::string_view what) {
    if (Empty()) {
        throw CommandError("missing: " + std::string(what));
    }
    return m_words[m_next++];
}

bool Words::TakeIf(std::string_view word) {
    if (Empty() || m_words[m_next] != word) {
        return false;
    }
    ++m_next;
    return true;
}

void Words::TakeThe(std::string_view word) {
    if (!TakeIf(word)) {
        throw CommandError("missing: " + std::string(word) + (Empty() ? "" : " before " + m_words[m_next]));
    }
}

std::uint32_t Words::TakeNumber(std::string_view what) {
    const std::int64_t value = TakeInteger(what);
    if (value < 0 || value > UINT32_MAX) {
        throw CommandError("out of range: " + std::string(what));
    }
    return static_cast<std::uint32_t>(value);
}

std::int64_t Words::TakeInteger(std::string_view what) {
    const std::string word = Take(what);
    std::string_view digits = word;
    const bool negative = !digits.empty() && digits.front() == '-';
    digits.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = digits.substr(0, 2) == "0x";
    digits.remove_prefix(hexadecimal ? 2 : 0);
    std::int64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw CommandError("no number: " + word);
    }
    return negative ? -value : value;
}

std::optional<std::uint32_t> Words::TakeNumberIf() {
    const std::string_view next = Peek();
    if (next.empty() || next.front() < '0' || next.front() > '9') {
        return std::nullopt;
    }
    return TakeNumber("number");
}

bool Words::TakeOnOff() {
    static constexpr std::pair<std::string_view, bool> kTable[] = {{"on", true}, {"off", false}};
    return TakeOneOf(kTable);
}

void Words::End() const {
    if (!Empty()) {
        throw CommandError("not understood: " + m_words[m_next]);
    }
}

std::string Words::Rest() const {
    std::string rest;
    for (std::size_t i = m_next; i < m_words.size(); ++i) {
        rest += (rest.empty() ? "" : " ") + Quoted(m_words[i]);
    }
    return rest;
}

std::string Quoted(std::string_view word) {
    const bool plain = !word.empty() && word.find_first_of(" \t\r\n\"\\#") == std::string_view::npos;
    if (plain) {
        return std::string(word);
    }
    std::string quoted = "\"";
    for (const char letter : word) {
        const auto code = static_cast<unsigned char>(letter);
        if (letter == '"' || letter == '\\') {
            quoted += '\\';
            quoted += letter;
        } else if (code < ' ') {
            char text[8];
            std::snprintf(text, sizeof(text), "\\x%02x", code);
            quoted += text;
        } else {
            quoted += letter;
        }
    }
    return quoted + '"';
}

}  // namespace Notebook
