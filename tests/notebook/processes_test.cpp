// The state as two processes see it: this one with the hardware, and the controller.

#include <windows.h>

#include <gmock/gmock.h>

#include <string>

#include "tests/notebook/hardware.h"

namespace Notebook::Tests {

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ProcessesTest : public NotebookTest {};

TEST_F(ProcessesTest, StateOutlivesTheProcessThatMadeIt) {
    EXPECT_THAT(RunController("plug cable 2"), StartsWith("ERROR no port for cable 2"));
    {
        LockedMachine machine;
        CablePort(*machine, 2);
    }
    EXPECT_EQ("OK", RunController("plug cable 2"));
    EXPECT_EQ("OK cables=1:out,2:in", RunController("get cables"));
}

TEST_F(ProcessesTest, WaitThatIsNotMetSaysWhatItFound) {
    EXPECT_THAT(RunController("wait wifi=off within 1"), HasSubstr("ERROR not within 1 ms: wifi=on"));
}

TEST_F(ProcessesTest, CommandThatIsNotUnderstoodIsAnError) {
    EXPECT_THAT(RunController("levitate"), StartsWith("ERROR no such command: levitate"));
    EXPECT_THAT(RunController("plug sideways"), StartsWith("ERROR not understood: sideways"));
    EXPECT_EQ("ERROR one of here, remote, not sideways", RunController("reset devices sideways"));
    EXPECT_EQ("ERROR one of kill, run, not bury", RunController("devices bury"));
    EXPECT_EQ("ERROR no process of their own serves the devices", RunController("devices kill"));
}

}  // namespace

}  // namespace Notebook::Tests
