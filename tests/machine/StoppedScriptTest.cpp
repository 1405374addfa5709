// Failures that stop the commit script: its last line, and the state that it leaves.
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

struct StopCase {
    std::string before;  // a shell command, in /var
    std::string message;
    std::string after;  // a shell command that is true afterwards, in /var/corvane
};

const std::string runScriptError = "Error, writing Corvane'26 run script, /var/corvane/corvane26";
const std::string snapshotError =
    "Error, writing Corvane'26 snapshot run script, /var/corvane/corvane26_snapshot";
const std::string modeError = "Error, modifying access permissions to /var/corvane/";
const std::string removeProduct = "rm /opt/corvane26/";

StopCase FileInPlaceOf(const std::string& name) {
    const std::string path = sharedDir + name;
    return {"mkdir -p $(dirname " + path + "); echo a file > " + path,
            "Error, creating directory " + path, "[ \"$(cat " + path + ")\" = 'a file' ]"};
}

const StopCase stopCases[] = {
    // A missing template leaves the empty file that was to be written.
    {removeProduct + "corvane26.template", runScriptError,
     "[ -f corvane26 ] && [ ! -s corvane26 ] && [ ! -e corvane26_snapshot ]"},
    {removeProduct + "corvane26_snapshot.template", snapshotError,
     "[ -f corvane26_snapshot ] && [ ! -s corvane26_snapshot ] && [ -L /usr/bin/corvane26 ] && "
     "[ ! -e QueueEntries ]"},
    {"mkdir corvane; echo old > corvane/corvane26; " + removeProduct + "corvane26.template",
     runScriptError, "[ -f corvane26 ] && [ ! -s corvane26 ]"},
    {removeProduct + "docroot/resources.tar",
     "Error, unpacking resources " + serverDir + "/resources", "[ ! -e corvane26 ]"},
    // Compatibility: the message for the icons names the resources.
    {removeProduct + "docroot/icons.tar", "Error, unpacking icons " + serverDir + "/resources",
     "[ -e corvanerc/corvane26server/resources ]"},
    FileInPlaceOf(""),
    FileInPlaceOf("/corvanerc"),
    FileInPlaceOf("/corvanerc/corvane26"),
    FileInPlaceOf("/corvanerc/corvane26server"),
    {"printf '#!/bin/sh\\n[ \"$2\" != /var/corvane/corvane26 ]' > /usr/bin/chmod",
     modeError + "corvane26", "true"},
    {"printf '#!/bin/sh\\n[ \"$2\" != /var/corvane/corvane26_snapshot ]' > /usr/bin/chmod",
     modeError + "corvane26_snapshot", "true"},
    {"mkdir corvane; ln -s /var/missing/entries corvane/QueueEntries",
     "Error, creating /var/corvane/QueueEntries", "[ ! -e QueueLimits ]"},
};

TEST(StoppedScript, ReportsFailureAndLeavesLaterStepsUndone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& row : stopCases) {
        SCOPED_TRACE(row.before);
        ExpectOnMachine([&] {
            fs::current_path("/var");
            Shell(row.before);
            ExpectStop(row.message);
            EXPECT_EQ(Shell("cd /var/corvane 2> /dev/null; " + row.after + " && echo yes"), "yes");
        });
    }
}

HX_MACHINE_TEST(StoppedScript, ReportsMissingParentOfInstallDirectory) {
    CInstallBase& run = NewRootRun();
    run.m_installDir = QStringLiteral("/var/missing/corvane");
    const auto result = RunCommitScript(run);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "Starting Corvane'26 Installation script\n\n"
              "Corvane Service Group created\n\nCorvane Service User created\n\n"
              "Error, creating directory /var/missing/corvane\n");
    EXPECT_FALSE(fs::exists("/var/missing"));
}

HX_MACHINE_TEST(StoppedScript, CompletesWhenQueueLimitsCannotBeWritten) {
    fs::create_directories(sharedDir + "/QueueLimits");
    EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
    EXPECT_EQ(Mode(sharedDir + "/QueueLimits"), "664");
}

HX_MACHINE_TEST(StoppedScript, CompletesOnRerunAfterRepair) {
    const std::string archive = productDir + "/docroot/icons.tar";
    fs::rename(archive, archive + ".away");
    EXPECT_EQ(RunCommitScript(NewRootRun()).status, 1);
    EXPECT_EQ(Access(serverDir), "775 root:root");
    fs::rename(archive + ".away", archive);
    Complete();
    EXPECT_EQ(Access(serverDir), "775 corvsrvc:corvsrvc");
    EXPECT_TRUE(fs::exists(serverDir + "/icons/icons.txt"));
}

}  // namespace
