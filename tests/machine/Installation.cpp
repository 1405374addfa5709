#include "machine/Installation.h"

#include <gtest/gtest.h>
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

// Packs `directory`/`name`, with one file in it, and leaves only the archive.
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
    WriteFile(directory + "/corvane26_service.template", ServiceUnit("%CORV_SERVICE_SCRIPT_DIR%"));
    WriteFile(directory + "/corvane26_service_script", ServiceProgramText);
    fs::permissions(directory + "/corvane26_service_script", fs::perms(0755));
}

CInstallBase& NewSetupRun(const std::string& installDir, const std::string& binaries) {
    std::string program = binaries + "/cv_install";
    char* argv[] = {program.data(), nullptr};
    // Never destroyed: what a run leaves behind by design is no leak while the run is there.
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

std::string ServiceUnit(const std::string& programDirectory) {
    const std::string program = programDirectory + "/corvane26_service_script";
    return "[Service]\nExecStart=" + program + " start\nExecStop=" + program + " stop\n";
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

std::string Access(const std::string& path) {
    std::string told = Run({"stat", "-c", "%a %U:%G", path}).out;
    return told.empty() ? "missing" : told.substr(0, told.size() - 1);
}

std::string Mode(const std::string& path) {
    const std::string access = Access(path);
    return access.substr(0, access.find(' '));
}

std::string Inode(const std::string& path) {
    return Run({"stat", "-c", "%i", path}).out;
}

void PrepareMachine() {
    umask(022);
    for (const char* path :
         {SharedDirectory, ProductDirectory, "/usr/bin/corvane26", "/usr/bin/corvane26_snapshot"})
        fs::remove_all(path);
    RemoveServiceAccount();
    InstallServiceManager();
    LayOutProduct(ProductDirectory);
}

CInstallBase& NewRootRun() {
    return NewSetupRun(SharedDirectory, ProductDirectory);
}

}  // namespace hx_test
