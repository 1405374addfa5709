#include "commit/ScriptText.h"

#include <sys/mount.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

CInstallBase& NewRun() {
    char name[] = "/opt/corvane26/cv_install";
    char* argv[] = {name, nullptr};
    // Never destroyed, so that a leak checker does not report the release of a run.
    static auto& runs = *new std::vector<std::unique_ptr<CInstallBase>>;
    runs.push_back(std::make_unique<CInstallBase>(true, 1, argv));
    return *runs.back();
}

void SetFields(CInstallBase& run) {
    run.m_serviceGroup = QStringLiteral("chemgroup");
    run.m_serviceUser = QStringLiteral("chemuser");
    run.m_queueName = QStringLiteral("chemq");
    run.m_partitionName = QStringLiteral("compute");
    run.m_scheduler = QStringLiteral("TORQUE");
    run.m_qsubCmd = QStringLiteral("/opt/pbs/bin/qsub");
    run.m_qdelCmd = QStringLiteral("/opt/pbs/bin/qdel");
    run.m_qsigCmd = QStringLiteral("/opt/pbs/bin/qsig");
    run.m_compSrvcHttpAddr = QStringLiteral("10.0.0.1");
    run.m_compSrvcHttpsAddr = QStringLiteral("10.0.0.2");
    run.m_jobLimit = 12;
    run.m_memoryLimitMB = 2048;
    run.m_scratchDir = QStringLiteral("/scratch/corvane");
    run.m_scratchLimitGB = 50;
    run.m_threadsPerMolecule = 4;
}

}  // namespace

void ExpectSuccess(const ProcessResult& result, const std::string& err) {
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, err);
}

void UsePrivateTmp(const char* options) {
    ASSERT_EQ(mount("tmpfs", "/tmp", "tmpfs", 0, options), 0);
    // A leak checker may need the program's file in the real /tmp.
    std::atexit([] { umount2("/tmp", MNT_DETACH); });
}

CInstallBase& NewRootRun() {
    CInstallBase& run = NewRun();
    SetFields(run);
    run.m_accessFlags = CInstallBase::RootAccess;
    run.m_installDir = QStringLiteral("/var/corvane");
    run.m_queueType = CInstallBase::QueueInternal;
    run.m_prevJobLimit = 12;
    run.m_serviceCurrentMembers = {QStringLiteral("ada"), QStringLiteral("bob"),
                                   QStringLiteral("zoe")};
    run.m_serviceMembers = {QStringLiteral("ada"), QStringLiteral("carol"), QStringLiteral("dora")};
    return run;
}

CInstallBase& NewUserRun() {
    CInstallBase& run = NewRun();
    SetFields(run);
    run.m_accessFlags = 2;
    run.m_installDir = QStringLiteral("/home/ada/corvane");
    run.m_binariesDir = QStringLiteral("/home/ada/corvane");
    run.m_queueType = CInstallBase::QueueExternal;
    run.m_prevJobLimit = 8;
    return run;
}

std::string ScriptOf(CInstallBase& (*make)(), const Change& change, const std::string& release) {
    const TempDir directory;
    WriteFile(directory / "os-release", release);
    const World world{.identity = World::Identity::Root,
                      .binds = {{directory / "os-release", "/etc/os-release"}}};
    const auto result = RunInChild(world, [&] {
        UsePrivateTmp();
        CInstallBase& run = make();
        change(run);
        QString path;
        ASSERT_TRUE(run.WriteCommitScript(path, false));
        const std::string script = ReadFile(path.toStdString());
        std::fwrite(script.data(), 1, script.size(), stdout);
    });
    ExpectSuccess(result);
    return result.out;
}

std::string Edited(std::string text, const Edits& edits) {
    for (const auto& [from, to, count] : edits) {
        int found = 0;
        for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
            text.replace(at, from.size(), to);
            ++found;
        }
        EXPECT_EQ(found, count) << from;
    }
    return text;
}

std::string ExpectedRootScript() {
    return ReadFile(HX_EXPECTED_DIR "/commit_root.sh");
}

std::string Section(const std::string& first, const std::string& end) {
    const std::string script = ExpectedRootScript();
    const size_t from = script.find(first);
    const size_t to = script.find(end, from);
    if (from == std::string::npos || to == std::string::npos)
        throw std::runtime_error("no section " + first);
    return script.substr(from, to - from);
}

Edit NoMembers() {
    return {Section("${ECHO_CMD} \"Adding/Removing users", "CORV_INSTALL_DIR="), ""};
}

Edit NoWebPages() {
    return {Section("if [ ! -d \"${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources",
                    "\n# Write the Corvane'26 run script..."),
            ""};
}

namespace {

const std::string completion = "${ECHO_CMD} \"Corvane'26 Installation script completed";

Edit NoService() {
    return {Section("# Remove the Corvane Compute Service init script", completion), ""};
}

}  // namespace

Edits ComputeNodeEdits() {
    return {NoMembers(),
            NoWebPages(),
            {"CLUSTER_NODE=\"NO\"", "CLUSTER_NODE=\"YES\""},
            {Section("${CHOWN_CMD} -R", "${CHOWN_CMD} chemuser:chemgroup"), ""},
            NoService()};
}

Edits UserEdits() {
    const std::string owner = "${CHOWN_CMD} chemuser:chemgroup \"${CORV_INSTALL_DIR}/Queue";
    const std::string runScript = "MAKE_LINK=\"YES\"\nif [ -L /usr/bin/corvane26 ]";
    const std::string snapshotScript = "MAKE_LINK=\"YES\"\nif [ -L /usr/bin/corvane26_snapshot ]";
    return {{Section("USERADD_CMD=", "MKDIR_CMD="), ""},
            {Section("if [ `${ID_CMD} -u`", "CORV_INSTALL_DIR="), ""},
            {"INSTALL_DIR=\"/var/corvane\"", "INSTALL_DIR=\"/home/ada/corvane\""},
            {"BINARIES_DIR=\"/opt/corvane26\"", "BINARIES_DIR=\"/home/ada/corvane\""},
            {"--mode=775", "--mode=755", 4},
            {"QUEUE_TYPE=\"INTERNAL\"\nCORV_QUEUE_NAME=\"\"",
             "QUEUE_TYPE=\"EXTERNAL\"\nCORV_QUEUE_NAME=\"chemq\""},
            {"PARTITION_NAME=\"\"", "PARTITION_NAME=\"compute\""},
            {"${CHMOD_CMD} 775", "${CHMOD_CMD} 755", 2},
            {Section(runScript, "${SED_CMD}"), ""},
            {Section(snapshotScript, "# Write the QueueEntries"), ""},
            {"${CHMOD_CMD} 666", "${CHMOD_CMD} 644"},
            {"${CHMOD_CMD} 664", "${CHMOD_CMD} 644"},
            {owner + "Entries\"\n", ""},
            {owner + "Limits\"\n", ""},
            {Section("${ECHO_CMD} \"ThreadsPerMolecule", "${CHMOD_CMD} 664"), ""},
            NoService()};
}

testing::AssertionResult IsText(const std::string& text, const std::string& expected) {
    if (text == expected)
        return testing::AssertionSuccess();
    const auto [at, ignored] =
        std::mismatch(text.begin(), text.end(), expected.begin(), expected.end());
    const auto offset = static_cast<size_t>(at - text.begin());
    const auto line = std::count(text.begin(), at, '\n') + 1;
    const size_t from = offset < 80 ? 0 : offset - 80;
    return testing::AssertionFailure()
           << "line " << line << ":\n--- expected\n..." << expected.substr(from, 240)
           << "...\n--- is\n..." << text.substr(from, 240) << "...\n";
}

}  // namespace hx_test
