// The parts of a repair's plan that need no machine.
#include <gtest/gtest.h>

#include "answers/AnswersFile.h"
#include "record/Manifest.h"
#include "record/SetupRecord.h"
#include "repair/RepairPlan.h"

namespace {

struct EditedLimits {
    const char* text;
    const char* repaired;
};

const EditedLimits editedLimits[] = {
    {"MaxThreads: 2\nScratch: /tmp\n", "MaxThreads: 2\nScratch: /tmp\n"},
    {"MaxThreads: 99\nScratch: /tmp\n", "MaxThreads: 2\nScratch: /tmp\n"},
    {"# mine\nScratch:   /tmp \nThreadsPerMolecule: 4\nmaxthreads:2",
     "# mine\nScratch:   /tmp \nThreadsPerMolecule: 4\nmaxthreads:2\n"},
    {"MaxThreads: 1\nScratch: /srv\nMaxThreads: 3\n",
     "MaxThreads: 2\nScratch: /tmp\nMaxThreads: 2\n"},
    {"MaxThreadsPerJob: 7\nScratch\n",
     "MaxThreadsPerJob: 7\nScratch\nMaxThreads: 2\nScratch: /tmp\n"},
    {"", "MaxThreads: 2\nScratch: /tmp\n"},
};

TEST(RepairedLimits, KeepOtherLines) {
    for (const EditedLimits& row : editedLimits) {
        EXPECT_EQ(WithLimits(row.text, {{"MaxThreads", QStringLiteral("2")},
                                        {"Scratch", QStringLiteral("/tmp")}}),
                  row.repaired)
            << row.text;
    }
}

// A repair writes the recorded answers again from it.
TEST(Manifest, ContainsWhichAnswersWereChosen) {
    Manifest manifest;
    manifest.facts = {QStringLiteral("26.0.0"),
                      QStringLiteral("2026-11-22T14:05:09Z"),
                      QStringLiteral("host"),
                      {},
                      QStringLiteral("ann"),
                      QStringLiteral("/var/corvane"),
                      QStringLiteral("cv_install --setup")};
    manifest.answers.Set(AnswerId::JobLimit, AnswerValue(2), AnswerSource::Typed);
    manifest.answers.Set(AnswerId::MemoryLimit, AnswerValue(600), AnswerSource::Default);
    const std::optional<Manifest> parsed = ParseManifest(WriteManifest(manifest));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(RecordedAnswersText(parsed->facts, parsed->answers),
              RecordedAnswersText(manifest.facts, manifest.answers));
}

}  // namespace
