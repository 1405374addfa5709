// Values on their way from the fields of a run through the script to the files that it writes.
#include <gtest/gtest.h>

#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

TEST(FieldValues, BlanksAndUmlautsInBothDirectoriesWork) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string tree = "/var/corvane  données 2026";
        const std::string product = "/opt/corvane größe 26";
        LayOutProduct(product);
        ASSERT_EQ(RunCommitScript(NewSetupRun(tree, product)).status, 0);
        const std::string inode = Inode("/usr/bin/corvane26");
        const auto second = RunCommitScript(NewSetupRun(tree, product));
        EXPECT_EQ(second.status, 0) << second.out;
        EXPECT_EQ(second.err, "");
        EXPECT_EQ(Inode("/usr/bin/corvane26"), inode);
        EXPECT_EQ(fs::read_symlink("/usr/bin/corvane26"), tree + "/corvane26");
        EXPECT_EQ(ReadFile(tree + "/corvane26"), RunScript(RunScriptValues(tree, product)));
        EXPECT_EQ(ReadFile(tree + "/corvane26_snapshot"), SnapshotScript(tree, product));
        EXPECT_EQ(Access(tree), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(tree + "/QueueLimits"), "664 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(tree + "/corvanerc/corvane26server/icons"), "750 corvsrvc:corvsrvc");
    });
}

TEST(FieldValues, PercentSignsAndUmlautsReachQueueLimits) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = NewRootRun();
        run.m_scratchDir = QStringLiteral("/scratch/100%s %d%n%%/für alle");
        EXPECT_EQ(RunCommitScript(run).status, 0);
        EXPECT_EQ(ReadFile(Tree + "/QueueLimits"),
                  "MaxThreads: 12\nMemoryPerThreadMB: 2048\n"
                  "Scratch: /scratch/100%s %d%n%%/für alle\nDiskPerThreadGB: 50\n");
    });
}

TEST(FieldValues, EmptyFieldsLeaveNothingInThePlaceOfTheirPlaceholders) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = NewRootRun();
        Values values = RunScriptValues(Tree, ProductDirectory);
        for (QString* field :
             {&run.m_queueName, &run.m_partitionName, &run.m_scheduler, &run.m_qsubCmd,
              &run.m_qdelCmd, &run.m_qsigCmd, &run.m_sbatchCmd, &run.m_scancelCmd})
            field->clear();
        for (const char* name : {"QUEUE_NAME", "PARTITION_NAME", "SCHEDULER", "QSUB_CMD",
                                 "QDEL_CMD", "QSIG_CMD", "SBATCH_CMD", "SCANCEL_CMD"})
            values[std::string("CORV_") + name] = "";
        ASSERT_EQ(RunCommitScript(run).status, 0);
        EXPECT_EQ(ReadFile(Tree + "/corvane26"), RunScript(values));
    });
}

TEST(FieldValues, TheQueueAllowPlaceholderTakesWhatTheEnvironmentHolds) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Values values = RunScriptValues(Tree, ProductDirectory);
        values["CORV_QUEUE_ALLOW"] = "EVERYONE";
        ASSERT_EQ(RunCommitScript(NewRootRun(), {{"CORV_QUEUE_ALLOW", "EVERYONE"}}).status, 0);
        EXPECT_EQ(ReadFile(Tree + "/corvane26"), RunScript(values));
    });
}

// The script as root would write it, run with one odd value. Returns what it said and its status.
ProcessResult RunWith(QString CInstallBase::*field, const char* value) {
    CInstallBase& run = NewRootRun();
    run.*field = QString::fromUtf8(value);
    return RunCommitScript(run);
}

// These are why cv_install refuses such values: the script takes them as they stand.
TEST(FieldValues, CharactersOfTheScriptsToolsChangeWhatTheyDo) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Values values = RunScriptValues(Tree, ProductDirectory);
        ASSERT_EQ(RunWith(&CInstallBase::m_queueName, "a&b").status, 0);
        values["CORV_QUEUE_NAME"] = "a%CORV_QUEUE_NAME%b";
        EXPECT_EQ(ReadFile(Tree + "/corvane26"), RunScript(values));

        ASSERT_EQ(RunWith(&CInstallBase::m_queueName, "a\\\\b").status, 0);
        values["CORV_QUEUE_NAME"] = "ab";
        EXPECT_EQ(ReadFile(Tree + "/corvane26"), RunScript(values));

        const auto bar = RunWith(&CInstallBase::m_queueName, "a|b");
        EXPECT_EQ(bar.status, 1);
        EXPECT_NE(bar.out.find("Error, writing Corvane'26 run script"), std::string::npos);

        const auto slash = RunCommitScript(NewRootRun(), {{"CORV_QUEUE_ALLOW", "a/b"}});
        EXPECT_EQ(slash.status, 1);
        EXPECT_NE(slash.out.find("Error, writing Corvane'26 run script"), std::string::npos);

        fs::remove(Tree + "/QueueLimits");
        EXPECT_EQ(RunWith(&CInstallBase::m_scratchDir, "/scr\"atch").status, 2);
        EXPECT_EQ(ReadFile(Tree + "/QueueLimits"), "MaxThreads: 12\nMemoryPerThreadMB: 2048\n");
    });
}

// Runs the script with this job limit; `last` is what QueueLimits holds behind its usual lines.
void ExpectLimits(int jobLimit, const std::string& last) {
    CInstallBase& run = NewRootRun();
    run.m_jobLimit = jobLimit;
    ASSERT_EQ(RunCommitScript(run).status, 0);
    EXPECT_EQ(ReadFile(Tree + "/QueueLimits"),
              "MaxThreads: " + std::to_string(jobLimit) +
                  "\nMemoryPerThreadMB: 2048\nScratch: /scratch/chem\nDiskPerThreadGB: 50\n" +
                  last);
}

TEST(FieldValues, ThreadsPerMoleculeLivesAsLongAsTheJobLimitStays) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        ExpectLimits(12, "");
        hx_test::Run({"bash", "-c", "echo 'ThreadsPerMolecule: 4' >>" + Tree + "/QueueLimits"});
        ExpectLimits(12, "ThreadsPerMolecule: 4\n");
        ExpectLimits(12, "ThreadsPerMolecule: 4\n");
        ExpectLimits(16, "");
        ExpectLimits(12, "");
    });
}

TEST(FieldValues, TheTemplatesOfTheProductComeOutWithoutPlaceholders) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string product = HX_PRODUCT_DIR;
    const std::string names[] = {"corvane26.template",         "corvane26_snapshot.template",
                                 "corvane26_service.template", "corvane26_service_script",
                                 "docroot/resources.tar",      "docroot/icons.tar"};
    std::map<std::string, std::string> contents;
    for (const auto& name : names)
        contents[name] = ReadFile(product + "/" + name);
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine();
        for (const auto& [name, content] : contents)
            WriteFile(std::string(ProductDirectory) + "/" + name, content);
        const auto result = RunCommitScript(NewRootRun());
        ASSERT_EQ(result.status, 0) << result.out << result.err;
        for (const std::string name : {"corvane26", "corvane26_snapshot"}) {
            const std::string script = Tree + "/" + name;
            EXPECT_FALSE(fs::is_empty(script));
            EXPECT_NE(ReadFile(script).find(ProductDirectory), std::string::npos) << name;
            EXPECT_EQ(ReadFile(script).find("%CORV_"), std::string::npos) << name;
            EXPECT_EQ(hx_test::Run({"sh", "-n", script}).status, 0) << name;
        }
        EXPECT_TRUE(fs::is_directory(Tree + "/corvanerc/corvane26server/resources"));
        EXPECT_TRUE(fs::is_directory(Tree + "/corvanerc/corvane26server/icons"));
        const std::string unit = ReadFile(UnitFile);
        EXPECT_NE(unit.find("\nExecStart=/usr/bin/corvane26_service_script start\n"),
                  std::string::npos);
        EXPECT_EQ(unit.find('%'), std::string::npos);
        EXPECT_EQ(ReadFile(ServiceProgram), contents["corvane26_service_script"]);
    });
}

}  // namespace
