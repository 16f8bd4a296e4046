#include <windows.h>

#include <gmock/gmock.h>

/// Runs the tests. No dialog may wait for someone to press a button.
int wmain(int argc, wchar_t** argv) {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
