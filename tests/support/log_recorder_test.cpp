#include "tests/support/log_recorder.h"

#include <thread>

#include "logging/log_scope.h"
#include "tests/support/words.h"

namespace Rig {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::CorvaLogger;
using Orva::Shared::GetLogger;
using namespace Words;

void WriteOneOfEach() {
    LogScope log("Utils::Work", L"for %s", L"nobody");
    log.Information(L"number %d", 7);
    log.Error(L"failed");
}

TEST(LogRecorder, KeepsLevelFunctionAndMessageInOrderUpToErrorsAndTimesNothing) {
    const LogRecorder log;
    WriteOneOfEach();
    GetLogger().Write(Level::kDiag, "A::B", L"not taken");
    EXPECT_FALSE(GetLogger().TimingEnabled());
    EXPECT_THAT(log.Lines(),
                ElementsAre(Lines::TraceIn("Utils::Work", L"for nobody"),
                            Lines::Information("Utils::Work", L"number 7"),
                            Lines::Error("Utils::Work", L"failed"), Lines::TraceOut("Utils::Work")));
}

TEST(LogRecorder, OperationsAreTimedOnRequest) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    WriteOneOfEach();
    EXPECT_TRUE(GetLogger().TimingEnabled());
    EXPECT_THAT(log.At(Level::kDiag),
                ElementsAre(Line(Level::kDiag, "Utils::Work", HasSubstr(L"Elapsed time"))));
}

TEST(LogRecorder, LinesAreChosenByLevelOperationOrWhole) {
    LogRecorder log;
    GetLogger().Write(Level::kWarning, "Other::Work", L"x");
    WriteOneOfEach();
    GetLogger().Write(Level::kWarning, "Other::Work", L"x");
    const LogLine warning = Lines::Warning("Other::Work", L"x");
    EXPECT_THAT(log.From(Level::kWarning),
                ElementsAre(warning, Line(Level::kError, _, HasSubstr(L"fail")), warning));
    EXPECT_THAT(log.At(Level::kError), ElementsAre(Lines::Error("Utils::Work", L"failed")));
    EXPECT_THAT(log.Of("Other::Work"), ElementsAre(warning, warning));
    EXPECT_EQ(log.Count(warning), 2);
    EXPECT_TRUE(log.Contains(warning));
    EXPECT_FALSE(log.Contains(Lines::Error("Other::Work", L"x")));
    log.Clear();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(LogRecorder, InnerRecorderTakesTheLinesUntilItsEndAndThoseOfLateWritersAreLost) {
    const CorvaLogger* const before = &GetLogger();
    {
        const LogRecorder outer;
        CorvaLogger* kept = nullptr;
        {
            const LogRecorder inner;
            WriteOneOfEach();
            EXPECT_THAT(inner.Lines(), SizeIs(4));
            kept = &GetLogger();
        }
        kept->Write(Level::kError, "A::B", L"late");
        EXPECT_THAT(outer.Lines(), IsEmpty());
    }
    EXPECT_EQ(&GetLogger(), before);
}

TEST(LogRecorder, ManyThreadsWriteAtOnce) {
    const LogRecorder log;
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([] {
            for (int j = 0; j < 250; ++j) {
                GetLogger().Write(Level::kVerbose, "A::B", L"%d", j);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_THAT(log.Lines(), SizeIs(1000));
}

TEST(LogRecorder, WaitForSeesALineOfAnotherThread) {
    const LogRecorder log;
    std::thread writer([] { GetLogger().Write(Level::kError, "A::B", L"there"); });
    EXPECT_TRUE(log.WaitFor(Lines::Error("A::B", L"there")));
    writer.join();
    EXPECT_FALSE(log.WaitFor(Lines::Error("A::B", L"never"), std::chrono::milliseconds(10)));
    EXPECT_EQ(testing::PrintToString(log.Lines().front()), "Error A::B L\"there\"");
}

}  // namespace
}  // namespace Rig
