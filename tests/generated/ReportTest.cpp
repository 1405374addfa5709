// What the writers tell on stdout: a separator, their lines if the run reports, and a pause.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "generated/EveryWriter.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

const std::string pause = "[Press \"Enter\" key to continue]";

class Report : public testing::Test {
protected:
    Report() { MakeDirectory(m_home / "install", 0755); }

    std::string Of(Writer writer, const RunBody& settings = {}) {
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            if (settings)
                settings(run);
            EXPECT_EQ((run.*writer)(), 1);
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return result.out;
    }

    void ExpectCreatedThenUpdated(Writer writer, const std::string& created,
                                  const std::string& updated, const std::string& path) {
        const std::string second = "    \"install/" + path + "\"\n";
        EXPECT_EQ(Of(writer), kSeparator + "\n" + created + "\n" + second);
        EXPECT_EQ(Of(writer), kSeparator + "\n" + updated + "\n" + second);
    }

    TempDir m_home;
};

TEST_F(Report, TheRunScriptIsCreatedAndThenUpdated) {
    ExpectCreatedThenUpdated(&CInstallBase::WriteCorvaneOLD, "  Corvane run script created...",
                             "  Corvane run script updated...", "corvane26");
}

TEST_F(Report, TheSnapshotScriptHasNoDotsAndOneBlankTooMany) {
    ExpectCreatedThenUpdated(&CInstallBase::WriteCorvaneSnapshot,
                             "  Corvane snapshot  script created",
                             "  Corvane snapshot script updated", "corvane26_snapshot");
}

TEST_F(Report, TheSubmissionScriptsNameTheirPathTwice) {
    ExpectCreatedThenUpdated(&CInstallBase::WriteCorvaneSamba,
                             "  install/corvane26_samba script created...",
                             "  install/corvane26_samba script updated...", "corvane26_samba");
    ExpectCreatedThenUpdated(&CInstallBase::WriteCorvaneSsh,
                             "  install/corvane26_ssh script created...",
                             "  install/corvane26_ssh script updated...", "corvane26_ssh");
}

TEST_F(Report, AFileThatHadToBeRemovedIsUpdated) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(m_home / "install/corvane26", "old", 0444);
    const auto result =
        WithWriter(m_home.path(), &CInstallBase::WriteCorvaneOLD, As(World::Identity::User));
    EXPECT_EQ(result.out, kSeparator +
                              "\n  Corvane run script updated...\n    "
                              "\"install/corvane26\"\n");
}

TEST_F(Report, ADanglingLinkCountsAsNothing) {
    std::filesystem::create_symlink(m_home / "nowhere", m_home / "install/corvane26");
    EXPECT_EQ(Of(&CInstallBase::WriteCorvaneOLD),
              kSeparator + "\n  Corvane run script created...\n    \"install/corvane26\"\n");
}

TEST_F(Report, APathWithPercentSignsIsShownAsItIs) {
    MakeDirectory(m_home / "100% %s ü", 0755);
    for (const Writer writer : {&CInstallBase::WriteCorvaneOLD, &CInstallBase::WriteCorvaneSsh}) {
        const std::string out =
            Of(writer, [](CInstallBase& run) { run.m_installDir = QStringLiteral("100% %s ü"); });
        EXPECT_NE(out.find("    \"100% %s ü/corvane26"), std::string::npos) << out;
    }
}

TEST_F(Report, QChemTellsBothLimitsEachInAFrameOfItsOwn) {
    EXPECT_EQ(Of(&CInstallBase::WriteQChemRC,
                 [](CInstallBase& run) {
                     run.m_scratchLimitGB = 100;
                     run.m_memoryLimitMB = 2048;
                 }),
              kSeparator + "\n  Scratch limit per job: 100 GB\n" + kSeparator +
                  "\n  Memory limit per job: 2048 MB\n");
}

TEST_F(Report, TheScratchDirectoryIsToldAsItIs) {
    EXPECT_EQ(Of(&CInstallBase::WriteQCScratch,
                 [](CInstallBase& run) { run.m_scratchDir = QStringLiteral("/ä b/\\\"%d"); }),
              kSeparator + "\n  Scratch storage directory: /ä b/\\\"%d\n");
}

// The number of frames that a writer's report has.
int Frames(const EveryWriter& writer) {
    if (writer.family == Family::Queue)
        return 0;
    return writer.writer == &CInstallBase::WriteQChemRC ? 2 : 1;
}

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST_F(Report, ARunThatDoesNotReportStillSeparates) {
    for (const EveryWriter& writer : kEveryWriter) {
        EXPECT_EQ(Of(writer.writer, [](CInstallBase& run) { run.m_allowNonRoot = false; }),
                  Repeated(kSeparator + "\n", Frames(writer)))
            << writer.name;
    }
}

TEST_F(Report, EveryFrameEndsWithOnePauseThatTakesOneLine) {
    for (const EveryWriter& writer : kEveryWriter) {
        World world;
        world.input = "1\n2\n3\n";
        const auto result = WithRun(
            m_home.path(),
            [&](CInstallBase& run) {
                run.m_allowNonRoot = false;
                run.m_interactive = true;
                EXPECT_EQ((run.*writer.writer)(), 1);
                std::array<char, 16> next = {};
                ASSERT_NE(std::fgets(next.data(), next.size(), stdin), nullptr);
                std::printf("next %s", next.data());
            },
            world);
        EXPECT_EQ(result.out, Repeated(kSeparator + "\n" + pause, Frames(writer)) + "next " +
                                  std::to_string(Frames(writer) + 1) + "\n")
            << writer.name;
    }
}

TEST_F(Report, ThePauseComesBehindTheLines) {
    const std::string out =
        Of(&CInstallBase::WriteCorvaneSsh, [](CInstallBase& run) { run.m_interactive = true; });
    EXPECT_EQ(out, kSeparator +
                       "\n  install/corvane26_ssh script created...\n"
                       "    \"install/corvane26_ssh\"\n" +
                       pause);
}

}  // namespace
}  // namespace hx_test
