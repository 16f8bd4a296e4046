#pragma once

#include <string>
#include <string_view>
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
    std::string_view name;
    std::string_view usage;    ///< what may follow the name, as `Arguments` reads it
    std::string_view meaning;  ///< one sentence
    Answer (*run)(const Arguments& given);
    /// Only looks or waits: the notebook may be settled in spite of it.
    bool looksOnly = false;
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
