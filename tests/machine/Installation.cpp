#include "machine/Installation.h"

#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

// Packs `directory`/`name`, which contains one file, and leaves only the archive.
void Pack(const std::string& directory, const std::string& name) {
    const std::string unpacked = directory + "/" + name;
    fs::create_directory(unpacked);
    WriteFile(unpacked + "/" + name + ".txt", "content of " + name + "\n");
    const auto result = Run({"tar", "-C", directory, "-cf", unpacked + ".tar", "--owner=0",
                             "--group=0", "--mode=u=rwX,g=rX,o=", name});
    ASSERT_EQ(result.status, 0) << result.err;
    fs::remove_all(unpacked);
}

std::string Line(const std::string& name, const std::string& value) {
    return name + "=[" + value + "] and [" + value + "]\n";
}

std::string UnitText(const std::string& programDirectory) {
    const std::string program = programDirectory + "/corvane26_service_script";
    return "[Service]\nExecStart=" + program + " start\nExecStop=" + program + " stop\n";
}

}  // namespace

void LayOutProduct(const std::string& directory) {
    fs::create_directories(directory + "/docroot");
    Pack(directory + "/docroot", "resources");
    Pack(directory + "/docroot", "icons");
    std::string text;
    for (const auto& [name, value] : RunScriptValues("", ""))
        text += Line(name, "%" + name + "%");
    WriteFile(directory + "/corvane26.template", text);
    WriteFile(directory + "/corvane26_snapshot.template",
              Line("CORV_ROOT", "%CORV_ROOT%") + Line("CORV_CORVANERC", "%CORV_CORVANERC%"));
    WriteFile(directory + "/corvane26_service.template", UnitText("%CORV_SERVICE_SCRIPT_DIR%"));
    WriteFile(directory + "/corvane26_service_script", serviceProgramText);
    fs::permissions(directory + "/corvane26_service_script", fs::perms(0755));
}

CInstallBase& NewSetupRun(const std::string& installDir, const std::string& binaries) {
    std::string program = binaries + "/cv_install";
    char* argv[] = {program.data(), nullptr};
    // Never destroyed: what a run allocates for good would otherwise count as a leak.
    static auto& runs = *new std::vector<std::unique_ptr<CInstallBase>>;
    runs.push_back(std::make_unique<CInstallBase>(true, 1, argv));
    CInstallBase& run = *runs.back();
    run.m_installDir = QString::fromStdString(installDir);
    run.m_queueType = CInstallBase::QueueExternal;
    run.m_queueName = QStringLiteral("chemq");
    run.m_partitionName = QStringLiteral("compute");
    run.m_scheduler = QStringLiteral("SLURM");
    run.m_qsubCmd = QStringLiteral("/opt/torque/qsub");
    run.m_qdelCmd = QStringLiteral("/opt/torque/qdel");
    run.m_qsigCmd = QStringLiteral("/opt/torque/qsig");
    run.m_sbatchCmd = QStringLiteral("/opt/slurm/sbatch");
    run.m_scancelCmd = QStringLiteral("/opt/slurm/scancel");
    run.m_compSrvcAllow = QStringLiteral("BOTH");
    run.m_compSrvcHttpPort = 8081;
    run.m_compSrvcHttpAddr = QStringLiteral("10.0.0.1");
    run.m_compSrvcHttpsPort = 8444;
    run.m_compSrvcHttpsAddr = QStringLiteral("10.0.0.2");
    run.m_compSrvcCert = QStringLiteral("chem-cert.pem");
    run.m_compSrvcKey = QStringLiteral("chem-key.pem");
    run.m_compSrvcDh = QStringLiteral("chem-dh.pem");
    run.m_jobLimit = 12;
    run.m_memoryLimitMB = 2048;
    run.m_scratchDir = QStringLiteral("/scratch/chem");
    run.m_scratchLimitGB = 50;
    return run;
}

Values RunScriptValues(const std::string& installDir, const std::string& binaries) {
    return {{"CORV_ROOT", binaries},
            {"CORV_CORVANERC", installDir},
            {"CORV_CLUSTER_NODE", "NO"},
            {"CORV_QUEUE_ALLOW", ""},
            {"CORV_SCHEDULER", "SLURM"},
            {"CORV_QUEUE_TYPE", "EXTERNAL"},
            {"CORV_QUEUE_NAME", "chemq"},
            {"CORV_QSUB_CMD", "/opt/torque/qsub"},
            {"CORV_QDEL_CMD", "/opt/torque/qdel"},
            {"CORV_QSIG_CMD", "/opt/torque/qsig"},
            {"CORV_PARTITION_NAME", "compute"},
            {"CORV_SBATCH_CMD", "/opt/slurm/sbatch"},
            {"CORV_SCANCEL_CMD", "/opt/slurm/scancel"},
            {"CORV_COMPSRVC_ALLOW", "BOTH"},
            {"CORV_COMPSRVC_HTTP_PORT", "8081"},
            {"CORV_COMPSRVC_HTTP_ADDR", "10.0.0.1"},
            {"CORV_COMPSRVC_HTTPS_PORT", "8444"},
            {"CORV_COMPSRVC_HTTPS_ADDR", "10.0.0.2"},
            {"CORV_COMPSRVC_CERT", "chem-cert.pem"},
            {"CORV_COMPSRVC_KEY", "chem-key.pem"},
            {"CORV_COMPSRVC_DH", "chem-dh.pem"},
            {"CORV_COMPSRVC_GROUP", "corvsrvc"},
            {"CORV_COMPSRVC_USER", "corvsrvc"}};
}

std::string RunScript(const Values& values) {
    std::string text;
    for (const auto& [name, value] : values)
        text += Line(name, value);
    return text;
}

std::string SnapshotScript(const std::string& installDir, const std::string& binaries) {
    return Line("CORV_ROOT", binaries) + Line("CORV_CORVANERC", installDir);
}

std::string QueueLimits(const std::string& jobLimit, const std::string& memory,
                        const std::string& scratch) {
    return "MaxThreads: " + jobLimit + "\nMemoryPerThreadMB: " + memory + "\nScratch: " + scratch +
           "\nDiskPerThreadGB: 50\n";
}

std::string ServiceUnit() {
    return UnitText("/usr/bin");
}

ProcessResult RunCommitScript(CInstallBase& run, const std::map<std::string, std::string>& env) {
    QString path;
    EXPECT_TRUE(run.WriteCommitScript(path, false));
    ProcessOptions options;
    options.env = env;
    if (!env.contains("CORV_QUEUE_ALLOW"))
        options.unset = {"CORV_QUEUE_ALLOW"};
    const auto result = Run({"/bin/bash", path.toStdString()}, options);
    fs::remove(path.toStdString());
    return result;
}

std::string Complete(CInstallBase& run) {
    const auto result = RunCommitScript(run);
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    return result.out;
}

ProcessResult ExpectStop(const std::string& message, CInstallBase& run) {
    auto result = RunCommitScript(run);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.out.ends_with("\n" + message + "\n")) << result.out;
    return result;
}

std::string Access(const std::string& path) {
    const std::string text = Run({"stat", "-c", "%a %U:%G", path}).out;
    return text.empty() ? "missing" : text.substr(0, text.size() - 1);
}

std::string Mode(const std::string& path) {
    const std::string access = Access(path);
    return access.substr(0, access.find(' '));
}

std::string Inode(const std::string& path) {
    return Run({"stat", "-c", "%i", path}).out;
}

void ReplaceProgram(const std::string& path, const std::string& script) {
    fs::rename(path, path + ".real");
    WriteFile(path, "#!/bin/sh\n" + script + "\n");
    fs::permissions(path, fs::perms(0755));
}

void RestoreProgram(const std::string& path) {
    fs::rename(path + ".real", path);
}

void PrepareMachine() {
    umask(022);
    for (const auto& path : {sharedDir, productDir, commandLink, snapshotLink})
        fs::remove_all(path);
    RemoveServiceAccount();
    InstallServiceManager();
    LayOutProduct(productDir);
}

void ExpectOnMachine(const std::function<void()>& body) {
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine();
        body();
    });
}

CInstallBase& NewRootRun() {
    return NewSetupRun(sharedDir, productDir);
}

}  // namespace hx_test
