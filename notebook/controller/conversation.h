#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "notebook/controller/words.h"

namespace Notebook {

/// What a command answers: lines of data, then one line that ends the answer,
///
///     | data
///     OK text         or       ERROR text
struct Answer {
    std::string text;
    std::vector<std::string> lines;
};

/// One command. It throws `CommandError` when it cannot be carried out.
struct Command {
    /// `function` may take the arguments or nothing, and give an answer or nothing.
    template <class Function>
    Command(std::string_view itsName, std::string_view itsUsage, std::string_view itsMeaning,
            Function function, bool itLooksOnly = false)
        : name(itsName),
          usage(itsUsage),
          meaning(itsMeaning),
          run([function](const Arguments& given) -> Answer {
              if constexpr (std::is_invocable_r_v<Answer, Function, const Arguments&>) {
                  return function(given);
              } else if constexpr (std::is_invocable_v<Function, const Arguments&>) {
                  function(given);
                  return Answer{};
              } else if constexpr (std::is_invocable_r_v<Answer, Function>) {
                  return function();
              } else {
                  function();
                  return Answer{};
              }
          }),
          looksOnly(itLooksOnly) {}

    std::string_view name;
    std::string_view usage;    ///< what may follow the name, as `Arguments` reads it
    std::string_view meaning;  ///< one sentence
    std::function<Answer(const Arguments&)> run;
    /// Only looks or waits: the notebook may be settled in spite of it.
    bool looksOnly;
};

/// The commands, by what they are about.
const std::vector<Command>& DeviceCommands();
const std::vector<Command>& SystemCommands();
const std::vector<Command>& CallCommands();
const std::vector<Command>& ConversationCommands();

/// Carries out one command and prints its answer. Returns whether it was carried out. No words do nothing
/// and answer nothing.
bool Perform(const Words& words);

/// Reads commands until the input ends or `quit` comes.
void Converse();

/// Waits for what still runs in the background.
void JoinBackground();

}  // namespace Notebook
