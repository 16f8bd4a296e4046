#include "tests/support/log_recorder.h"

#include <gmock/gmock.h>

#include <thread>

#include "logging/log_scope.h"
#include "tests/support/run_on_thread.h"

namespace Rig {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::CorvaLogger;
using Orva::Shared::GetLogger;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

void WriteOneOfEach() {
    LogScope log("Utils::Work", L"for %s", L"nobody");
    log.Information(L"number %d", 7);
    log.Error(L"failed");
}

TEST(LogRecorder, KeepsLevelFunctionAndMessageInOrder) {
    const LogRecorder log;
    WriteOneOfEach();
    EXPECT_THAT(log.Lines(),
                ElementsAre(Lines::TraceIn("Utils::Work", L"for nobody"),
                            Lines::Information("Utils::Work", L"number 7"),
                            Lines::Error("Utils::Work", L"failed"), Lines::TraceOut("Utils::Work")));
}

TEST(LogRecorder, FromLeavesLowerLevelsOut) {
    const LogRecorder log;
    WriteOneOfEach();
    EXPECT_THAT(log.From(Level::kInformation),
                ElementsAre(Line(Level::kInformation, "Utils::Work", HasSubstr(L"7")),
                            Line(Level::kError, _, L"failed")));
    EXPECT_THAT(log.At(Level::kError), ElementsAre(Lines::Error("Utils::Work", L"failed")));
}

TEST(LogRecorder, OfKeepsOneOperation) {
    const LogRecorder log;
    GetLogger().Write(Level::kWarning, "Other::Work", L"x");
    WriteOneOfEach();
    EXPECT_THAT(log.Of("Other::Work"), ElementsAre(Lines::Warning("Other::Work", L"x")));
}

TEST(LogRecorder, ContainsAndCountLookAtWholeLines) {
    LogRecorder log;
    GetLogger().Write(Level::kWarning, "A::B", L"x");
    GetLogger().Write(Level::kWarning, "A::B", L"x");
    EXPECT_EQ(log.Count(Lines::Warning("A::B", L"x")), 2);
    EXPECT_TRUE(log.Contains(Lines::Warning("A::B", L"x")));
    EXPECT_FALSE(log.Contains(Lines::Error("A::B", L"x")));
    log.Clear();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(LogRecorder, FormerLogComesBackAtTheEnd) {
    const CorvaLogger* const before = &GetLogger();
    {
        const LogRecorder log;
        EXPECT_NE(&GetLogger(), before);
    }
    EXPECT_EQ(&GetLogger(), before);
}

TEST(LogRecorder, InnerRecorderTakesTheLines) {
    const LogRecorder outer;
    {
        const LogRecorder inner;
        WriteOneOfEach();
        EXPECT_THAT(inner.Lines(), SizeIs(4));
    }
    EXPECT_THAT(outer.Lines(), IsEmpty());
}

TEST(LogRecorder, WritingAfterTheEndIsHarmless) {
    CorvaLogger* kept = nullptr;
    {
        const LogRecorder log;
        kept = &GetLogger();
    }
    kept->Write(Level::kError, "A::B", L"late");
    const LogRecorder next;
    EXPECT_THAT(next.Lines(), IsEmpty());
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
}

TEST(LogRecorder, OperationsAreTimedOnRequest) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    WriteOneOfEach();
    EXPECT_TRUE(GetLogger().TimingEnabled());
    EXPECT_THAT(log.At(Level::kDiag),
                ElementsAre(Line(Level::kDiag, "Utils::Work", HasSubstr(L"Elapsed time"))));
}

TEST(LogRecorder, OperationsAreNotTimedOtherwise) {
    const LogRecorder log;
    EXPECT_FALSE(GetLogger().TimingEnabled());
    GetLogger().Write(Level::kDiag, "A::B", L"not taken");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(LogRecorder, LinesPrintReadably) {
    EXPECT_EQ(testing::PrintToString(Lines::Error("A::B", L"text")), "Error A::B L\"text\"");
    EXPECT_EQ(testing::PrintToString(LogLine{42, "A::B", L""}), "level 42 A::B L\"\"");
}

}  // namespace
}  // namespace Rig
