// The notebook's controller. With words behind its name it carries out that one command; without, it
// reads commands from its input, a line each.

#include <windows.h>

#include <string>
#include <vector>

#include "notebook/controller/conversation.h"
#include "notebook/state/text.h"

int wmain(int argc, wchar_t** argv) {
    using namespace Notebook;
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    Words words;
    for (int i = 1; i < argc; ++i) {
        words.push_back(Narrow(argv[i]));
    }
    bool done = true;
    if (words.empty()) {
        Converse();
    } else {
        done = Perform(words);
    }
    JoinBackground();
    return done ? 0 : 1;
}
