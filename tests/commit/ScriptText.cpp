#include "commit/ScriptText.h"

#include <sys/mount.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

CInstallBase& NewRun() {
    char name[] = "/opt/corvane26/cv_install";
    char* argv[] = {name, nullptr};
    // Never destroyed: what a run leaves behind by design is no leak while the run is there.
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

void ExpectAllWell(const ProcessResult& result, const std::string& err) {
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, err);
}

void UsePrivateTmp(const char* options) {
    ASSERT_EQ(mount("tmpfs", "/tmp", "tmpfs", 0, options), 0);
    // A leak checker may look for the program's own file below the real one.
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

std::string ScriptOf(const std::function<CInstallBase&()>& make, const std::string& release) {
    const TempDir directory;
    WriteFile(directory / "os-release", release);
    const World world{.identity = World::Identity::Root,
                      .binds = {{directory / "os-release", "/etc/os-release"}}};
    const auto result = RunInChild(world, [&] {
        UsePrivateTmp();
        QString path;
        ASSERT_TRUE(make().WriteCommitScript(path, false));
        const std::string script = ReadFile(path.toStdString());
        std::fwrite(script.data(), 1, script.size(), stdout);
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    return result.out;
}

std::string RootScript(const std::function<void(CInstallBase&)>& change,
                       const std::string& release) {
    return ScriptOf(
        [&]() -> CInstallBase& {
            CInstallBase& run = NewRootRun();
            change(run);
            return run;
        },
        release);
}

std::string Expected(const std::string& name) {
    const std::string text = ReadFile(std::string(HX_EXPECTED_DIR) + "/" + name);
    EXPECT_NE(text, "") << name;
    return text;
}

testing::AssertionResult IsText(const std::string& script, const std::string& expected) {
    if (script == expected)
        return testing::AssertionSuccess();
    const auto [at, ignored] =
        std::mismatch(script.begin(), script.end(), expected.begin(), expected.end());
    const auto offset = static_cast<size_t>(at - script.begin());
    const auto line = std::count(script.begin(), at, '\n') + 1;
    const size_t from = offset < 80 ? 0 : offset - 80;
    return testing::AssertionFailure()
           << "line " << line << ":\n--- expected\n..." << expected.substr(from, 240)
           << "...\n--- is\n..." << script.substr(from, 240) << "...\n";
}

std::string Replaced(const std::string& text, std::string_view from, std::string_view to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    EXPECT_EQ(text.find(from, at + 1), std::string::npos) << from;
    if (at == std::string::npos)
        return text;
    return text.substr(0, at).append(to).append(text, at + from.size());
}

}  // namespace hx_test
