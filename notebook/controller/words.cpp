#include "notebook/controller/words.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <span>

#include "notebook/state/text.h"

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

/// One piece of a usage: a choice of words, or a group with its alternatives.
struct Item {
    Words words;
    std::vector<std::vector<Item>> alternatives;
    bool isOptional = false;
    bool repeats = false;
};
using Sequence = std::vector<Item>;

/// A usage in its tokens: brackets, bars between alternatives, words.
Words Tokens(std::string_view usage) {
    std::string spaced;
    for (std::size_t i = 0; i < usage.size(); ++i) {
        const bool isBracket = std::string_view("[]()").find(usage[i]) != std::string_view::npos;
        const bool beginsDots = usage[i] == '.' && usage[i - 1] != '.';
        spaced +=
            isBracket ? std::string{' ', usage[i], ' '} : (beginsDots ? " " : "") + std::string(1, usage[i]);
    }
    return SplitWords(spaced);
}

/// Reads alternatives up to their closing bracket, which is left behind.
std::vector<Sequence> ReadAlternatives(std::span<const std::string>& tokens) {
    std::vector<Sequence> all(1);
    while (!tokens.empty()) {
        const std::string token = tokens.front();
        tokens = tokens.subspan(1);
        if (token == "]" || token == ")") {
            break;
        }
        if (token == "|") {
            all.emplace_back();
        } else if (token == "...") {
            all.back().back().repeats = true;
        } else if (token == "[" || token == "(") {
            all.back().push_back({{}, ReadAlternatives(tokens), token == "["});
        } else {
            Item& item = all.back().emplace_back();
            for (std::size_t from = 0, to = 0; to != std::string::npos; from = to + 1) {
                to = token.find('|', from);
                item.words.push_back(token.substr(from, to - from));
            }
        }
    }
    return all;
}

/// Whether a word of a usage stands for a value.
bool IsName(std::string_view word) {
    return std::none_of(word.begin(), word.end(),
                        [](char letter) { return letter >= 'a' && letter <= 'z'; }) &&
           word.front() >= 'A';
}

bool Starts(const Sequence& sequence, const std::string& word, bool byName);

/// Whether an item begins with the word: with itself, or with a name that it may be a value of.
bool Starts(const Item& item, const std::string& word, bool byName) {
    return std::ranges::any_of(item.words,
                               [&](const std::string& own) { return byName ? IsName(own) : own == word; }) ||
           std::ranges::any_of(item.alternatives, [&](const Sequence& alternative) {
               return Starts(alternative, word, byName);
           });
}

bool Starts(const Sequence& sequence, const std::string& word, bool byName) {
    for (const Item& item : sequence) {
        if (Starts(item, word, byName)) {
            return true;
        }
        if (!item.isOptional) {
            return false;
        }
    }
    return false;
}

/// The words with which an item may begin.
std::string Beginnings(const Item& item) {
    std::string text;
    for (const std::string& word : item.words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    for (const Sequence& alternative : item.alternatives) {
        text += (text.empty() ? "" : ", ") + Beginnings(alternative.front());
    }
    return text;
}

}  // namespace

/// Reads words by a usage into arguments.
class Reader {
  public:
    Reader(Arguments& arguments, std::string_view name, const Words& words)
        : m_arguments(arguments), m_key(name), m_words(words) {}

    void Read(const Sequence& sequence) {
        for (std::size_t i = 0; i < sequence.size(); ++i) {
            const Item& item = sequence[i];
            if (item.isOptional) {
                const auto end =
                    std::find_if(sequence.begin() + static_cast<std::ptrdiff_t>(i), sequence.end(),
                                 [](const Item& other) { return !other.isOptional; });
                const auto count = static_cast<std::size_t>(end - sequence.begin()) - i;
                ReadOptional(std::span(sequence).subspan(i, count));
                i += count - 1;
                continue;
            }
            do {
                ReadOne(item);
            } while (item.repeats && !m_words.empty() && Begins(item) && !IsBeginOfNext(sequence, i));
        }
    }

    void End() const {
        if (!m_words.empty()) {
            throw CommandError("not understood: " + m_words.front());
        }
    }

  private:
    [[nodiscard]] bool Begins(const Item& item) const {
        return Starts(item, m_words.front(), false) || Starts(item, m_words.front(), true);
    }
    [[nodiscard]] bool IsBeginOfNext(const Sequence& sequence, std::size_t i) const {
        return i + 1 < sequence.size() && Starts(sequence[i + 1], m_words.front(), false);
    }

    /// Each at most once, in any order; those that have the word itself before those that take any.
    void ReadOptional(std::span<const Item> items) {
        std::set<const Item*> taken;
        const auto next = [&](bool byName) {
            return std::ranges::find_if(items, [&](const Item& item) {
                return !taken.contains(&item) && Starts(item, m_words.front(), byName);
            });
        };
        while (!m_words.empty()) {
            auto found = next(false);
            found = found == items.end() ? next(true) : found;
            if (found == items.end()) {
                return;
            }
            taken.insert(&*found);
            ReadOne(*found);
        }
    }

    void ReadOne(const Item& item) {
        for (const bool byName : {false, true}) {
            for (const Sequence& alternative : item.alternatives) {
                if (!m_words.empty() && Starts(alternative, m_words.front(), byName)) {
                    return Read(alternative);
                }
            }
            for (const std::string& word : item.words) {
                if (!m_words.empty() && (byName ? IsName(word) : word == m_words.front())) {
                    return Take(word, item.words.size() > 1 || byName);
                }
            }
        }
        const std::string beginnings = Beginnings(item);
        const std::string wanted = (beginnings.find(',') == std::string::npos ? "" : "one of ") + beginnings;
        throw CommandError(m_words.empty() ? "missing: " + wanted : wanted + ", not " + m_words.front());
    }

    void Take(const std::string& word, bool isValue) {
        const std::string given = m_words.front();
        m_words = m_words.subspan(1);
        if (isValue) {
            m_arguments.m_values[m_key].push_back(given);
        } else {
            m_key = word;
        }
        m_arguments.m_values[word];
        if (IsName(word)) {
            m_arguments.m_values[word].push_back(given);
        }
    }

    Arguments& m_arguments;
    std::string m_key;
    std::span<const std::string> m_words;
};

Words SplitWords(std::string_view line) {
    Words words;
    std::size_t at = 0;
    while (true) {
        while (at < line.size() && IsBlank(line[at])) {
            ++at;
        }
        if (at >= line.size() || line[at] == '#') {
            return words;
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
        words.push_back(std::move(word));
    }
}

Arguments::Arguments(std::string_view name, std::string_view usage, const Words& words) {
    const Words tokens = Tokens(usage);
    std::span<const std::string> unread(tokens);
    const std::vector<Sequence> alternatives = ReadAlternatives(unread);
    Reader reader(*this, name, words);
    if (alternatives.size() == 1) {
        reader.Read(alternatives.front());
    } else {
        reader.Read({{{}, alternatives}});
    }
    reader.End();
}

const std::string& Arguments::Text(std::string_view key) const {
    const auto found = m_values.find(key);
    if (found == m_values.end() || found->second.empty()) {
        throw CommandError("missing: " + std::string(key));
    }
    return found->second.back();
}

std::string Arguments::Text(std::string_view key, std::string_view otherwise) const {
    return Has(key) ? Text(key) : std::string(otherwise);
}

std::uint32_t Arguments::Number(std::string_view key) const {
    const std::string& text = Text(key);
    const std::size_t prefix = text.starts_with("0x") ? 2 : 0;
    const char* const end = text.data() + text.size();
    std::uint32_t value = 0;
    const auto [read, error] = std::from_chars(text.data() + prefix, end, value, prefix != 0 ? 16 : 10);
    if (error != std::errc() || read != end) {
        throw CommandError("no number: " + text);
    }
    return value;
}

std::uint32_t Arguments::Number(std::string_view key, std::uint32_t otherwise) const {
    return Has(key) ? Number(key) : otherwise;
}

std::uint32_t Arguments::Count(std::string_view key, std::string_view always) const {
    return Text(key) == always ? UINT32_MAX : Number(key);
}

Words Arguments::All(std::string_view key) const {
    const auto found = m_values.find(key);
    return found == m_values.end() ? Words() : found->second;
}

std::string Quoted(std::string_view word) {
    const bool plain = !word.empty() && word.find_first_of(" \t\r\n\"\\#") == std::string_view::npos;
    return plain ? std::string(word) : InQuotes(word);
}

}  // namespace Notebook
