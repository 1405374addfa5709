// What counts as an answer, which is the same for the job, the memory and the scratch limit.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

struct Limit {
    std::string name;
    void (CInstallBase::*prompt)();
    int CInstallBase::*result;
    int offered;
    std::string introduction;
    std::string question;
    std::string complaint;
    std::string (*closing)(int limit);  // null: the prompt ends without a word
};

// With 8 cores, a job limit of 8, 32000 MB of memory and 500 GB of free space.
std::vector<Limit> AllLimits() {
    return {{"job limit", &CInstallBase::PromptJobLimit, &CInstallBase::m_jobLimit, 8,
             JobIntroduction(8), JobQuestion(8), JobComplaint, nullptr},
            {"memory limit", &CInstallBase::PromptMemoryLimit, &CInstallBase::m_memoryLimitMB, 4000,
             MemoryIntroduction(32000, 8, 4000), MemoryQuestion(4000), Complaint, MemoryClosing},
            {"scratch limit", &CInstallBase::PromptScratchLimit, &CInstallBase::m_scratchLimitGB,
             62, ScratchIntroduction(500, 8, 62), ScratchQuestion(62), Complaint, ScratchClosing}};
}

class LimitAnswers : public PromptTest {
protected:
    LimitAnswers() { FreeBlocks("524288000"); }

    // Asks for the limit; `turns` are those before the closing block.
    void Ask(const Limit& limit, int expected, std::vector<Turn> turns,
             const std::string& typedAtPause) {
        if (limit.closing != nullptr)
            turns.push_back({limit.closing(expected) + Pause, typedAtPause});
        Converse(turns, [&](CInstallBase& run) {
            run.m_coreCount = run.m_jobLimit = 8;
            run.m_ramMB = 32000;
            (run.*limit.prompt)();
            EXPECT_EQ(run.*limit.result, expected);
        });
    }

    void ExpectAccepted(const std::string& line, int expected) {
        for (const Limit& limit : AllLimits()) {
            SCOPED_TRACE(limit.name + " " + line);
            Ask(limit, expected, {{limit.introduction + limit.question, line}}, "\n");
        }
    }

    void ExpectRefused(const std::vector<std::string>& lines) {
        for (const Limit& limit : AllLimits()) {
            SCOPED_TRACE(limit.name);
            std::vector<Turn> turns = {{limit.introduction}};
            for (const std::string& line : lines) {
                turns.back().says += limit.question;
                turns.back().typed = line;
                turns.push_back({limit.complaint + Pause, "3\n"});
                turns.push_back({""});
            }
            turns.back() = {limit.question, "77\n"};
            Ask(limit, 77, turns, "\n");
        }
    }
};
HX_OVER_BOTH_CONSOLES(LimitAnswers);

TEST_P(LimitAnswers, AnIntegerOfOneOrMoreIsTaken) {
    ExpectAccepted("1\n", 1);
    ExpectAccepted("+5\n", 5);
    ExpectAccepted("0012\n", 12);
    ExpectAccepted("2147483647\n", 2147483647);
}

TEST_P(LimitAnswers, WhiteSpaceAroundTheNumberIsCutOff) {
    ExpectAccepted(" 2048 \n", 2048);
    ExpectAccepted("\t 2048\v\f\n", 2048);
}

TEST_P(LimitAnswers, AnythingElseThanAPositiveIntegerIsAskedForAgain) {
    ExpectRefused({"512MB\n", "512 MB\n", "x\n", "0x10\n", "1.5\n", "1e3\n", "1,000\n", "5-\n"});
    ExpectRefused({"0\n", "-1\n", "-0\n", "+\n", "-\n", "--1\n", "+ 5\n", "1 2\n"});
}

TEST_P(LimitAnswers, ANumberTooBigFor32BitsIsAskedForAgain) {
    ExpectRefused({"2147483648\n", "4294967297\n", "18446744073709551617\n", "-4294967295\n"});
}

TEST_P(LimitAnswers, ABlankLineTakesWhatIsOffered) {
    for (const Limit& limit : AllLimits()) {
        SCOPED_TRACE(limit.name);
        for (const std::string line : {"\n", "   \n", "\t\n"})
            Ask(limit, limit.offered, {{limit.introduction + limit.question, line}}, "\n");
    }
}

TEST_P(LimitAnswers, AZeroByteEndsTheAnswer) {
    ExpectAccepted(std::string("9\0x1\n", 5), 9);
    for (const Limit& limit : AllLimits()) {
        SCOPED_TRACE(limit.name);
        Ask(limit, limit.offered,
            {{limit.introduction + limit.question, std::string("\0007\n", 3)}}, "\n");
    }
}

TEST_P(LimitAnswers, TheFirst1023BytesOfALongLineAreTheAnswer) {
    const std::string line = std::string(1022, ' ') + "57\n";
    for (const Limit& limit : AllLimits()) {
        SCOPED_TRACE(limit.name);
        // The job limit has no pause, which takes the rest of the line elsewhere.
        m_unread = limit.closing == nullptr ? "7\n" : "";
        Ask(limit, 5, {{limit.introduction + limit.question, line}}, "");
    }
}

TEST_P(LimitAnswers, ALineThatJustFitsIsTakenWhole) {
    ExpectAccepted(std::string(1020, ' ') + "57\n", 57);
}

TEST_P(LimitAnswers, AClosedConsoleTakesWhatIsOffered) {
    for (const Limit& limit : AllLimits()) {
        SCOPED_TRACE(limit.name);
        Ask(limit, limit.offered, {{limit.introduction + limit.question, End}}, "");
    }
}

TEST_P(LimitAnswers, ALastAnswerNeedsNoLineEnd) {
    for (const Limit& limit : AllLimits()) {
        SCOPED_TRACE(limit.name);
        Ask(limit, 5, {{limit.introduction + limit.question, "5" + End}}, "");
    }
}

TEST_P(LimitAnswers, ALastAnswerThatIsRefusedEndsInWhatIsOffered) {
    for (const Limit& limit : AllLimits()) {
        SCOPED_TRACE(limit.name);
        Ask(limit, limit.offered,
            {{limit.introduction + limit.question, "none" + End},
             {limit.complaint + Pause},
             {limit.question}},
            "");
        Ask(limit, limit.offered,
            {{limit.introduction + limit.question, "none\n"},
             {limit.complaint + Pause, End},
             {limit.question}},
            "");
    }
}

}  // namespace
}  // namespace hx_test
