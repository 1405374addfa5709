// The questions for the job, the memory, and the scratch limit.
#include <algorithm>

#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

// A question and the facts that are particular to it. The job limit has no notice and no closing
// block.
struct Kind {
    const char* name;
    void (CInstallBase::*prompt)();
    int CInstallBase::*result;
    std::string (*question)(int offered);
    std::string (*notice)(int previous);
    std::string complaint;
    std::string (*closing)(int limit);
};

const Kind job = {"job limit",
                  &CInstallBase::PromptJobLimit,
                  &CInstallBase::m_jobLimit,
                  &JobQuestion,
                  nullptr,
                  JobComplaint,
                  nullptr};
const Kind memory = {"memory limit",
                     &CInstallBase::PromptMemoryLimit,
                     &CInstallBase::m_memoryLimitMB,
                     &MemoryQuestion,
                     &MemoryNotice,
                     Complaint,
                     &MemoryClosing};
const Kind scratch = {"scratch limit",
                      &CInstallBase::PromptScratchLimit,
                      &CInstallBase::m_scratchLimitGB,
                      &ScratchQuestion,
                      &ScratchNotice,
                      Complaint,
                      &ScratchClosing};

// The state before a question.
struct Given {
    bool notice = false;        // of the previous limit
    std::string previous = {};  // QueueLimits file
    Words options = {};
    int jobLimit = 8;
    int cores = 8;
    int ramMB = 32000;
    const char* directory = "/tmp";
    const char* freeBlocks = "524288000";  // 500 GB
    std::string atPause = "3\n";           // typed, but not an answer
};

// A conversation. Without an introduction, the question is skipped.
struct Case {
    std::string introduction;
    int offered;
    int expected;
    Words typed = {"\n"};  // all but the last are invalid
    Given given = {};
};

bool Ends(const std::string& typed) {
    return typed.ends_with(End);
}

std::vector<Turn> TurnsOf(const Kind& kind, const Case& test) {
    const Given& given = test.given;
    const bool reads = std::find(given.options.begin(), given.options.end(), "--cluster-node") ==
                       given.options.end();
    const bool ends = std::any_of(test.typed.begin(), test.typed.end(), Ends);
    std::vector<Turn> turns = {{test.introduction}};
    if (!test.introduction.empty()) {
        const std::string question =
            (given.notice ? kind.notice(test.offered) : "") + kind.question(test.offered);
        turns.back().output += question + (reads ? "" : std::to_string(test.offered) + "\n");
        for (size_t i = 0; reads && i < test.typed.size(); ++i) {
            if (i > 0) {
                turns.push_back({kind.complaint + Pause, ends ? "" : given.atPause});
                turns.push_back({question});
            }
            turns.back().typed = test.typed[i];
        }
    }
    const bool pauses = reads && !ends && !Ends(given.atPause) && test.typed.back().size() <= 1023;
    if (kind.closing != nullptr)
        turns.push_back({kind.closing(test.expected) + (reads ? Pause : ""), pauses ? "\n" : ""});
    return turns;
}

class Limits : public PromptTest {
protected:
    void Ask(const Kind& kind, const Case& test) {
        const Given& given = test.given;
        SCOPED_TRACE(std::string(kind.name) + " " + testing::PrintToString(test.typed));
        PreviousSetup(given.previous);
        if (given.previous.empty())
            std::filesystem::remove(m_home / "QueueLimits");
        FreeBlocks(given.freeBlocks);
        m_options = given.options;
        Converse(TurnsOf(kind, test), [&](CInstallBase& run) {
            run.m_coreCount = given.cores;
            run.m_ramMB = given.ramMB;
            run.m_jobLimit = given.jobLimit;
            run.m_scratchDir = QString::fromUtf8(given.directory);
            const int previous[] = {run.m_prevJobLimit, run.m_prevMemoryLimitMB,
                                    run.m_prevScratchLimitGB};
            (run.*kind.prompt)();
            EXPECT_EQ(run.*kind.result, test.expected);
            if (kind.result != job.result) {
                EXPECT_EQ(run.m_jobLimit, given.jobLimit);
            }
            EXPECT_EQ(run.m_scratchDir, given.directory);
            EXPECT_EQ(run.m_prevJobLimit, previous[0]);
            EXPECT_EQ(run.m_prevMemoryLimitMB, previous[1]);
            EXPECT_EQ(run.m_prevScratchLimitGB, previous[2]);
        });
    }

    void AskAll(const Kind& kind, const std::vector<Case>& cases) {
        for (const Case& test : cases)
            Ask(kind, test);
    }

    // Asks for all three limits. 0 is the offered value, which differs.
    void AskEach(const Words& typed, int expected, const std::string& atPause = "3\n") {
        const auto orOffered = [expected](int offered) {
            return expected == 0 ? offered : expected;
        };
        m_unread = typed.back().size() > 1023 ? "7\n" : "";
        Ask(job, {JobIntroduction(8), 8, orOffered(8), typed, {.atPause = atPause}});
        m_unread = "";
        Ask(memory, {MemoryIntroduction(32000, 8, 4000),
                     4000,
                     orOffered(4000),
                     typed,
                     {.atPause = atPause}});
        Ask(scratch,
            {ScratchIntroduction(500, 8, 62), 62, orOffered(62), typed, {.atPause = atPause}});
    }

    bool DfWasRun() const { return std::filesystem::exists(m_home / "df_arguments"); }
};
HX_OVER_BOTH_CONSOLES(Limits);

TEST_P(Limits, AcceptPositiveIntegers) {
    const std::pair<std::string, int> answers[] = {{"1\n", 1},
                                                   {"+5\n", 5},
                                                   {"0012\n", 12},
                                                   {"2147483647\n", 2147483647},
                                                   {"\t 2048\v\f\n", 2048},
                                                   {std::string("9\0x1\n", 5), 9},
                                                   {std::string(1020, ' ') + "57\n", 57},
                                                   {"5" + End, 5}};
    for (const auto& [typed, expected] : answers)
        AskEach({typed}, expected);
}

TEST_P(Limits, OfferDefaultForEmptyAnswer) {
    for (const std::string& typed : {std::string("\n"), std::string("   \n"), std::string("\t\n"),
                                     std::string("\0007\n", 3), End})
        AskEach({typed}, 0);
}

TEST_P(Limits, AskAgainAfterInvalidAnswer) {
    AskEach({"512MB\n", "512 MB\n", "x\n", "0x10\n", "1.5\n", "1e3\n", "1,000\n", "5-\n", "77\n"},
            77);
    AskEach({"0\n", "-1\n", "-0\n", "+\n", "-\n", "--1\n", "+ 5\n", "1 2\n", "77\n"}, 77);
    AskEach({"2147483648\n", "4294967297\n", "18446744073709551617\n", "-4294967295\n", "77\n"},
            77);
}

TEST_P(Limits, OfferDefaultForInvalidAnswerAtEndOfInput) {
    AskEach({"none" + End, ""}, 0);
    AskEach({"none\n", ""}, 0, End);
}

// The rest of the line answers the pause, which the job limit does not have.
TEST_P(Limits, UseFirst1023BytesOfLongLine) {
    AskEach({std::string(1022, ' ') + "57\n"}, 5);
}

TEST_P(Limits, OfferCoresAsJobLimit) {
    const std::string previous = "MaxThreads: 4\nMemoryPerThreadMB: 2000\n";
    AskAll(job, {{JobIntroduction(8), 8, 64, {"64\n"}},
                 {JobIntroduction(-1), -1, -1, {"\n"}, {.cores = -1}},
                 {JobIntroduction(8), 8, 8, {"\n"}, {.options = {"--cluster-node"}}},
                 {JobIntroduction(8), 8, 8, {"\n"}, {.previous = previous}}});
}

TEST_P(Limits, OfferShareOfMemory) {
    const std::string usual = MemoryIntroduction(32000, 8, 4000);
    AskAll(memory,
           {{MemoryIntroduction(32000, 3, 10666), 10666, 10666, {"\n"}, {.jobLimit = 3}},
            {usual, 4000, 64000, {"64000\n"}},
            {MemoryIntroduction(32000, -1, -32000), -32000, -32000, {"\n"}, {.jobLimit = -1}},
            // 0 is offered, but cannot be typed.
            {MemoryIntroduction(4, 8, 0), 0, 0, {"0\n", "\n"}, {.ramMB = 4}},
            {usual, 4000, 4000, {"\n"}, {.options = {"--memory-limit", "0"}}},
            {usual, 4000, 4000, {"\n"}, {.options = {"--memory-limit", "-5"}}},
            {usual, 4000, 4000, {"\n"}, {.options = {"--cluster-node"}}},
            {usual, 4000, 4000, {"\n"}, {.previous = "MaxThreads: 8\nMemoryPerThreadMB: much\n"}}});
}

TEST_P(Limits, OfferPreviousMemoryLimitWithSameJobLimit) {
    const std::string usual = MemoryIntroduction(32000, 8, 4000);
    const std::string previous = "MaxThreads: 8\nMemoryPerThreadMB: 2000\n";
    AskAll(memory,
           {{MemoryIntroduction(4000, 8, 500),
             2000,
             2000,
             {"\n"},
             {.notice = true, .previous = previous, .ramMB = 4000}},
            {usual, 2000, 1024, {"1024\n"}, {.notice = true, .previous = previous}},
            {usual, 2000, 3000, {"2GB\n", "3000\n"}, {.notice = true, .previous = previous}},
            {usual,
             2000,
             2000,
             {"\n"},
             {.notice = true, .previous = previous, .options = {"--cluster-node"}}},
            {usual, 1024, 1024, {"\n"}, {.notice = true, .previous = "8"}},
            {MemoryIntroduction(48000, 16, 3000),
             3000,
             3000,
             {"\n"},
             {.previous = previous, .jobLimit = 16, .ramMB = 48000}}});
}

TEST_P(Limits, SkipMemoryQuestionWithOption) {
    const std::string previous = "MaxThreads: 8\nMemoryPerThreadMB: 2000\n";
    AskAll(memory,
           {{"", 0, 4000, {"\n"}, {.previous = previous, .options = {"--memory-limit", "4000"}}},
            {"", 0, 4000, {"\n"}, {.previous = previous, .options = {"-m", "4000"}}},
            {"", 0, 4000, {"\n"}, {.options = {"-m", "4000"}, .jobLimit = 0}},
            {"", 0, 4000, {"\n"}, {.options = {"--cluster-node", "--memory-limit", "4000"}}}});
}

TEST_P(Limits, OfferShareOfFreeSpace) {
    const std::string usual = ScratchIntroduction(500, 8, 62);
    AskAll(scratch,
           {{ScratchIntroduction(500, 3, 166), 166, 166, {"\n"}, {.jobLimit = 3}},
            {ScratchIntroduction(500, 500, 1), 1, 1, {"\n"}, {.jobLimit = 500}},
            {usual, 62, 9999, {"9999\n"}},
            // 0 is offered, but cannot be typed.
            {ScratchIntroduction(5, 8, 0), 0, 0, {"0\n", "\n"}, {.freeBlocks = "5242880"}},
            {ScratchIntroduction(1, 1, 1), 1, 1, {"\n"}, {.jobLimit = 1, .freeBlocks = "1048576"}},
            {usual, 62, 62, {"\n"}, {.options = {"--scratch-limit", "0"}}},
            {usual, 62, 62, {"\n"}, {.options = {"--scratch-limit", "-5"}}},
            {usual, 62, 62, {"\n"}, {.options = {"--cluster-node"}}},
            {usual, 62, 62, {"\n"}, {.previous = "MaxThreads: 8\nDiskPerThreadGB: none\n"}}});
    EXPECT_TRUE(DfWasRun());
}

TEST_P(Limits, OfferOneGigabyteWithoutMeasurement) {
    for (const char* blocks : {"1048575", "-", "-2097152", "2147483648"})
        Ask(scratch, {UnmeasuredIntroduction, 1, 1, {"\n"}, {.freeBlocks = blocks}});
    for (const int jobLimit : {0, -1})
        Ask(scratch, {UnmeasuredIntroduction, 1, 1, {"\n"}, {.jobLimit = jobLimit}});
    AddProgram("df", "echo 'df: /tmp: No such file or directory' >&2; exit 1\n");
    Converse(
        {{UnmeasuredIntroduction + ScratchQuestion(1), "\n"}, {ScratchClosing(1) + Pause, "\n"}},
        [](CInstallBase& run) {
            run.m_jobLimit = 8;
            run.PromptScratchLimit();
            EXPECT_EQ(run.m_scratchLimitGB, 1);
        });
}

TEST_P(Limits, OfferPreviousScratchLimitWithSameSettings) {
    const std::string usual = ScratchIntroduction(500, 8, 62);
    const std::string previous = "MaxThreads: 8\nScratch: /data/scr\nDiskPerThreadGB: 40\n";
    AskAll(
        scratch,
        {{usual, 40, 40, {"\n"}, {.notice = true, .previous = previous, .directory = "/data/scr"}},
         {usual,
          40,
          50,
          {"50GB\n", "50\n"},
          {.notice = true, .previous = previous, .directory = "/data/scr"}},
         {usual,
          40,
          40,
          {"\n"},
          {.notice = true,
           .previous = previous,
           .options = {"--cluster-node"},
           .directory = "/data/scr"}},
         {UnmeasuredIntroduction,
          40,
          40,
          {"\n"},
          {.notice = true, .previous = previous, .directory = "/data/scr", .freeBlocks = "0"}},
         {ScratchIntroduction(500, 9, 55),
          55,
          55,
          {"\n"},
          {.previous = previous, .jobLimit = 9, .directory = "/data/scr"}},
         {usual, 1, 1, {"\n"}, {.notice = true, .previous = "8"}}});
    for (const char* directory : {"/fast", "/data/scr/", "/data//scr", "/Data/scr", ""})
        Ask(scratch, {usual, 62, 62, {"\n"}, {.previous = previous, .directory = directory}});
}

TEST_P(Limits, MeasureScratchDirectory) {
    Ask(scratch,
        {ScratchIntroduction(500, 8, 62), 62, 62, {"\n"}, {.directory = "/my scratch/données"}});
    EXPECT_EQ(ReadFile(m_home / "df_arguments"), "-P\n/my scratch/données\n");
}

TEST_P(Limits, SkipScratchQuestionWithOption) {
    const std::string previous = "MaxThreads: 8\nDiskPerThreadGB: 40\n";
    AskAll(scratch,
           {{"", 0, 100, {"\n"}, {.previous = previous, .options = {"--scratch-limit", "100"}}},
            {"", 0, 100, {"\n"}, {.previous = previous, .options = {"-s", "100"}}},
            {"", 0, 100, {"\n"}, {.options = {"--cluster-node", "--scratch-limit", "100"}}}});
    EXPECT_FALSE(DfWasRun());
}

}  // namespace
}  // namespace hx_test
