#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Notebook {

/// A command that cannot be carried out; the message is the answer to whoever gave it.
class CommandError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The words of one command, taken one after the other.
class Words {
  public:
    /// Splits a line at blanks. A word in double quotes may hold blanks and the escapes \", \\, \n,
    /// \t and \xHH.
    explicit Words(std::string_view line);
    explicit Words(std::vector<std::string> words) : m_words(std::move(words)) {}

    [[nodiscard]] bool Empty() const { return m_next >= m_words.size(); }
    /// The next word without taking it; empty at the end.
    [[nodiscard]] std::string_view Peek() const;
    /// The next word; `what` names what is missing when there is none.
    std::string Take(std::string_view what);
    /// Takes the next word if it is that one.
    bool TakeIf(std::string_view word);
    /// Takes the next word, which must be that one.
    void TakeThe(std::string_view word);
    std::uint32_t TakeNumber(std::string_view what);
    /// A number that may be negative or hexadecimal (0x...).
    std::int64_t TakeInteger(std::string_view what);
    std::optional<std::uint32_t> TakeNumberIf();
    bool TakeOnOff();
    /// The value that the next word stands for in a table of (name, value) pairs.
    template <class Value, std::size_t N>
    Value TakeOneOf(const std::pair<std::string_view, Value> (&table)[N]) {
        std::string names;
        for (const auto& [name, value] : table) {
            if (TakeIf(name)) {
                return value;
            }
            names += (names.empty() ? "" : ", ") + std::string(name);
        }
        throw CommandError("one of " + names + (Empty() ? "" : ", not " + m_words[m_next]));
    }
    /// Nothing may follow.
    void End() const;
    /// The words that are left, as one line that splits into the same words.
    [[nodiscard]] std::string Rest() const;

  private:
    std::vector<std::string> m_words;
    std::size_t m_next = 0;
};

/// A word as a command line needs it: in quotes, with escapes, where it holds blanks or quotes.
std::string Quoted(std::string_view word);

}  // namespace Notebook
