#include <windows.h>

#include <gmock/gmock.h>

#include <array>

namespace {

/// Leaves a mark for whoever started the tests and wants to know whether they came that far.
void NoteStart() {
    std::array<wchar_t, MAX_PATH> mark{};
    if (GetEnvironmentVariableW(L"LINKVANE_START_MARK", mark.data(), MAX_PATH) != 0) {
        CloseHandle(CreateFileW(mark.data(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    }
}

}  // namespace

/// Runs the tests of one executable. No dialog may wait for someone to press a button.
int wmain(int argc, wchar_t** argv) {
    NoteStart();
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
