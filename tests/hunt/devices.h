#pragma once

#include "notebook/state/layout.h"
#include "tests/hunt/command.h"

namespace RandomEvents {

/// What a command does to the devices of a notebook; nothing where it is about something else. (Those of the
/// service get it from the notebook's controller.)
void CarryToDevices(const Command& command, Notebook::Machine& machine, Notebook::Micros now);

}  // namespace RandomEvents
