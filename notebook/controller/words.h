#pragma once

#include <cstdint>
#include <map>
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

using Words = std::vector<std::string>;

/// Splits a line at blanks. A word in double quotes may hold blanks and the escapes \", \\, \n, \t, \r
/// and \xHH; a # that begins a word begins a comment.
Words SplitWords(std::string_view line);

/// A word as a command line needs it: in quotes, with escapes, where it holds blanks or quotes.
std::string Quoted(std::string_view word);

/// What was given to a command, read as its usage says. A usage is made of
///
///     word        this word; the values behind it are its own
///     NAME        any word, a value
///     a|b|NAME    one of them, a value
///     [...]       what may be missing; several that follow one another come in any order
///     (x | y)     one of them, told apart by the first word
///     ...         behind one of these: the same once or more
class Arguments {
  public:
    /// Reads the words behind a command's name. Throws `CommandError` where they are not as the usage says.
    Arguments(std::string_view name, std::string_view usage, const Words& words);

    /// Whether the word was given, or a value of the name.
    [[nodiscard]] bool Has(std::string_view key) const { return m_values.contains(key); }
    /// The last value of a word or a name; `CommandError` when there is none.
    [[nodiscard]] const std::string& Text(std::string_view key) const;
    [[nodiscard]] std::string Text(std::string_view key, std::string_view otherwise) const;
    /// The same as a number, decimal or hexadecimal (0x...).
    [[nodiscard]] std::uint32_t Number(std::string_view key) const;
    [[nodiscard]] std::uint32_t Number(std::string_view key, std::uint32_t otherwise) const;
    /// The same, where `always` may stand for a number that is never used up.
    [[nodiscard]] std::uint32_t Count(std::string_view key, std::string_view always) const;
    [[nodiscard]] bool IsOn(std::string_view key) const { return Text(key) == "on"; }
    /// All values, in their order.
    [[nodiscard]] Words All(std::string_view key) const;

    /// The value of the word that was given, in a table of (word, value) pairs.
    template <class Value, std::size_t kCount>
    [[nodiscard]] Value OneOf(const std::pair<std::string_view, Value> (&table)[kCount]) const {
        for (const auto& [word, value] : table) {
            if (Has(word)) {
                return value;
            }
        }
        throw CommandError("missing: one word of a table");
    }

  private:
    friend class Reader;
    std::map<std::string, Words, std::less<>> m_values;
};

}  // namespace Notebook
