// Values on their way from the fields of a setup run through the script to the files that it
// writes.
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

HX_MACHINE_TEST(FieldValues, SupportSpacesAndUmlautsInDirectories) {
    const std::string directory = "/var/corvane  données 2026";
    const std::string product = "/opt/corvane größe 26";
    LayOutProduct(product);
    Complete(NewSetupRun(directory, product));
    const std::string inode = Inode(commandLink);
    Complete(NewSetupRun(directory, product));
    EXPECT_EQ(Inode(commandLink), inode);
    EXPECT_EQ(fs::read_symlink(commandLink), directory + "/corvane26");
    EXPECT_EQ(ReadFile(directory + "/corvane26"), RunScript(RunScriptValues(directory, product)));
    EXPECT_EQ(ReadFile(directory + "/corvane26_snapshot"), SnapshotScript(directory, product));
    EXPECT_EQ(Access(directory), "775 corvsrvc:corvsrvc");
    EXPECT_EQ(Access(directory + "/QueueLimits"), "664 corvsrvc:corvsrvc");
    EXPECT_EQ(Access(directory + "/corvanerc/corvane26server/icons"), "750 corvsrvc:corvsrvc");
}

HX_MACHINE_TEST(FieldValues, ReachQueueLimitsWithPercentSignsAndUmlauts) {
    CInstallBase& run = NewRootRun();
    run.m_scratchDir = QStringLiteral("/scratch/100%s %d%n%%/für alle");
    Complete(run);
    EXPECT_EQ(ReadFile(sharedDir + "/QueueLimits"),
              QueueLimits("12", "2048", "/scratch/100%s %d%n%%/für alle"));
}

HX_MACHINE_TEST(FieldValues, RemovePlaceholdersWhenEmpty) {
    CInstallBase& run = NewRootRun();
    Values values = RunScriptValues();
    for (QString* field : {&run.m_queueName, &run.m_partitionName, &run.m_scheduler, &run.m_qsubCmd,
                           &run.m_qdelCmd, &run.m_qsigCmd, &run.m_sbatchCmd, &run.m_scancelCmd})
        field->clear();
    for (const char* name : {"QUEUE_NAME", "PARTITION_NAME", "SCHEDULER", "QSUB_CMD", "QDEL_CMD",
                             "QSIG_CMD", "SBATCH_CMD", "SCANCEL_CMD"})
        values[std::string("CORV_") + name] = "";
    Complete(run);
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript(values));
}

HX_MACHINE_TEST(FieldValues, TakeQueueAllowFromEnvironment) {
    Values values = RunScriptValues();
    values["CORV_QUEUE_ALLOW"] = "EVERYONE";
    ASSERT_EQ(RunCommitScript(NewRootRun(), {{"CORV_QUEUE_ALLOW", "EVERYONE"}}).status, 0);
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript(values));
}

// cv_install refuses these values, because the script inserts them unchanged.
HX_MACHINE_TEST(FieldValues, ChangeScriptWithSpecialCharacters) {
    const auto runWith = [](QString CInstallBase::*field, const char* value,
                            const char* allow = "") {
        CInstallBase& run = NewRootRun();
        run.*field = QString::fromUtf8(value);
        return RunCommitScript(run, {{"CORV_QUEUE_ALLOW", allow}});
    };
    Values values = RunScriptValues();
    const std::pair<const char*, const char*> names[] = {{"a&b", "a%CORV_QUEUE_NAME%b"},
                                                         {"a\\\\b", "ab"}};
    for (const auto& [name, written] : names) {
        ASSERT_EQ(runWith(&CInstallBase::m_queueName, name).status, 0);
        values["CORV_QUEUE_NAME"] = written;
        EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript(values));
    }
    const std::pair<const char*, const char*> stopping[] = {{"a|b", ""}, {"chemq", "a/b"}};
    for (const auto& [name, allow] : stopping) {
        const auto result = runWith(&CInstallBase::m_queueName, name, allow);
        EXPECT_EQ(result.status, 1) << name;
        EXPECT_NE(result.out.find("Error, writing Corvane'26 run script"), std::string::npos);
    }
    fs::remove(sharedDir + "/QueueLimits");
    EXPECT_EQ(runWith(&CInstallBase::m_scratchDir, "/scr\"atch").status, 2);
    EXPECT_EQ(ReadFile(sharedDir + "/QueueLimits"), "MaxThreads: 12\nMemoryPerThreadMB: 2048\n");
}

// Runs the script with this job limit; `last` is what follows the usual lines of QueueLimits.
void ExpectLimits(int jobLimit, const std::string& last) {
    CInstallBase& run = NewRootRun();
    run.m_jobLimit = jobLimit;
    Complete(run);
    EXPECT_EQ(ReadFile(sharedDir + "/QueueLimits"), QueueLimits(std::to_string(jobLimit)) + last);
}

HX_MACHINE_TEST(FieldValues, KeepThreadsPerMoleculeWithSameJobLimit) {
    ExpectLimits(12, "");
    Shell("echo 'ThreadsPerMolecule: 4' >> /var/corvane/QueueLimits");
    ExpectLimits(12, "ThreadsPerMolecule: 4\n");
    ExpectLimits(12, "ThreadsPerMolecule: 4\n");
    ExpectLimits(16, "");
    ExpectLimits(12, "");
}

// Reads the product before the throwaway root hides it.
TEST(FieldValues, ReplaceEveryPlaceholderOfProduct) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string product = HX_PRODUCT_DIR;
    std::map<std::string, std::string> contents;
    for (const char* name :
         {"corvane26.template", "corvane26_snapshot.template", "corvane26_service.template",
          "corvane26_service_script", "docroot/resources.tar", "docroot/icons.tar"})
        contents[name] = ReadFile(product + "/" + name);
    ExpectOnMachine([&] {
        for (const auto& [name, content] : contents)
            WriteFile(productDir + "/" + name, content);
        Complete();
        for (const std::string name : {"/corvane26", "/corvane26_snapshot"}) {
            const std::string text = ReadFile(sharedDir + name);
            EXPECT_NE(text.find(productDir), std::string::npos) << name;
            EXPECT_EQ(text.find("%CORV_"), std::string::npos) << name;
            EXPECT_EQ(Shell("sh -n " + sharedDir + name + " && echo fine"), "fine") << name;
        }
        EXPECT_TRUE(fs::is_directory(serverDir + "/resources"));
        EXPECT_TRUE(fs::is_directory(serverDir + "/icons"));
        const std::string unit = ReadFile(unitFile);
        EXPECT_NE(unit.find("\nExecStart=" + serviceProgram + " start\n"), std::string::npos);
        EXPECT_EQ(unit.find('%'), std::string::npos);
        EXPECT_EQ(ReadFile(serviceProgram), contents["corvane26_service_script"]);
    });
}

}  // namespace
