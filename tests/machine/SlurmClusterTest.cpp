// Setups as root on a real cluster: a roll-out to the compute nodes, and jobs that use what the run
// script exports.
#include <string>

#include "machine/MachineSetup.h"
#include "machine/SlurmCluster.h"

namespace {

using hx_test::SlurmCluster;

// Stands in for the application's job program: submits with what the run script exports.
constexpr const char* jobProgram = R"sh(#!/bin/sh
case "$CORV_QUEUE_TYPE:$CORV_SCHEDULER:$1" in
EXTERNAL:SLURM:-u)
    exec "$CORV_SBATCH_CMD" --parsable --partition="$CORV_PARTITION_NAME" --chdir="$3" "$2";;
EXTERNAL:SLURM:--process-commands) exec "$CORV_SCANCEL_CMD" "$2";;
EXTERNAL:TORQUE:-u) exec "$CORV_QSUB_CMD" -q "$CORV_QUEUE_NAME" -wd "$3" -o torque.out "$2";;
EXTERNAL:TORQUE:--process-commands) exec "$CORV_QDEL_CMD" "$2";;
esac
exit 9
)sh";

// Submits a job when it starts, and stays.
constexpr const char* clusterProgram = R"sh(#!/bin/sh
cd /srv/service || exit
"$CORV_SUBMIT/cv_spd" -u /srv/jobs/short.sh "$PWD" > submitted.new 2>&1
mv submitted.new submitted
exec sleep infinity
)sh";

// Prints the value exported on the head node, then the one of the compute node's run script.
constexpr const char* shortJob = R"sh(#!/bin/sh
id -un
echo "$HOME"
echo "$CORV_CLUSTER_NODE"
corvane26 --printenv CORV_CLUSTER_NODE
)sh";

// As in the manual.
constexpr const char* serviceGroup = "groupadd --system --gid 626 corvsrvc";
constexpr const char* serviceUser =
    "useradd --system --uid 626 --gid 626 --home-dir /var/corvane --shell /bin/bash corvsrvc";
constexpr const char* rollOut =
    "srun --nodes=3 --ntasks-per-node=1 --exclusive --label "
    "/opt/corvane26/cv_install --setup --cluster-node";
constexpr const char* slurmSetup = "/opt/corvane26/cv_install --setup --yes -p chem";
constexpr const char* torqueSetup = "/opt/corvane26/cv_install --setup --yes -q chem";
constexpr const char* answeredSlurmSetup =
    "printf '%s\\n' '' '' '' '' 2 2 chem /usr/bin/sbatch '' '' y | "
    "/opt/corvane26/cv_install --setup";
constexpr const char* slurmCheck =
    "\"$(corvane26 --printenv CORV_SBATCH_CMD)\" "
    "--partition=\"$(corvane26 --printenv CORV_PARTITION_NAME)\" "
    "--wrap=\"corvane26 --printenv CORV_CLUSTER_NODE\"";

class SlurmClusterSetup : public MachineSetup {
protected:
    static void SetUpTestSuite() {
        if (!HasMachine() || !SlurmCluster::Hindrance().empty())
            return;
        WriteProgram("/opt/corvane26/cv_spd", jobProgram);
        WriteProgram("/opt/corvane26/cv_computeservice", clusterProgram);
        RemoveInstallation();
        Shell("useradd ann; userdel corvsrvc; groupdel corvsrvc");
        Shell(serviceGroup);
        Shell(serviceUser);
        s_started = Cluster().Start();
    }

    static SlurmCluster& Cluster() {
        static SlurmCluster cluster(Machine());
        return cluster;
    }

    // The head node has no installation; the compute nodes keep theirs.
    void SetUp() override {
        if (const auto hindrance = SlurmCluster::Hindrance(); !hindrance.empty())
            GTEST_SKIP() << hindrance;
        MachineSetup::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        ASSERT_TRUE(s_started) << Machine().Log() << Cluster().Log();
        Shell("scancel --partition=chem; rm -rf /srv/*; mkdir --mode=777 /srv/jobs /srv/service");
        Write("/srv/jobs/short.sh", shortJob);
        Write("/srv/jobs/long.sh", "#!/bin/sh\nsleep 1000\n");
    }

    static void SetUpHead(const char* command) {
        const auto result = Machine().Shell(command);
        ASSERT_EQ(result.status, 0) << result.out << result.err;
    }

    // Compute nodes without an installation.
    static void RenewNodes() {
        s_rolledOut = false;
        ASSERT_TRUE(Cluster().RenewNodes()) << Cluster().Log();
    }

    // Only where an earlier test has not done it.
    static void RollOut() {
        if (s_rolledOut)
            return;
        RenewNodes();
        const auto result = Machine().Shell(rollOut);
        ASSERT_EQ(result.status, 0) << result.out << result.err << Cluster().Log();
        s_rolledOut = true;
    }

    // Returns the job's number.
    static std::string SubmitAsAnn(const std::string& job) {
        return Shell("runuser -u ann -- corvane26 --submit /srv/jobs/" + job + " /srv/jobs 2>&1");
    }

    // Expects that a job gets from one state to the next in the partition "chem".
    static void ExpectJob(const std::string& job, const char* state) {
        EXPECT_EQ(Cluster().AwaitState(job, state), state) << job;
        EXPECT_EQ(Cluster().JobField(job, "Partition"), "chem");
    }

    static void ExpectCancel() {
        const std::string job = SubmitAsAnn("long.sh");
        ExpectJob(job, "RUNNING");
        EXPECT_EQ(Shell("runuser -u ann -- corvane26 --process-commands " + job), "");
        ExpectJob(job, "CANCELLED");
        EXPECT_EQ(Shell("pgrep --exact --full 'sleep 1000'"), "");
    }

    static void ExpectExported(const std::vector<std::pair<std::string, std::string>>& values) {
        for (const auto& [name, value] : values)
            EXPECT_EQ(Shell("corvane26 --printenv CORV_" + name), value) << name;
    }

    static inline bool s_started = false;
    static inline bool s_rolledOut = false;
};

TEST_F(SlurmClusterSetup, FailsRollOutWhenNodeFails) {
    RenewNodes();
    Cluster().OnNode("n2", "echo of another package > /usr/bin/corvane26");
    const auto result = Machine().Shell(rollOut);
    EXPECT_EQ(result.status, 65) << result.out << result.err;
    EXPECT_NE(
        result.err.find("1: cv_install: \"/usr/bin/corvane26\" is in the way of a symbolic link\n"),
        std::string::npos)
        << result.err;
    EXPECT_EQ(Cluster().OnNode("n2", "cat /usr/bin/corvane26"), "of another package");
    for (const char* node : {"n1", "n3"})
        EXPECT_EQ(Cluster().OnNode(node, "corvane26 --printenv CORV_CLUSTER_NODE"), "YES");
}

TEST_F(SlurmClusterSetup, RollsOutToEachComputeNode) {
    RenewNodes();
    Cluster().OnNode("n3", "userdel corvsrvc");
    const auto result = Machine().Shell(rollOut);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    const std::pair<const char*, const char*> expected[] = {
        {"corvane26 --printenv CORV_CLUSTER_NODE", "YES"},
        {"corvane26 --printenv CORV_QUEUE_TYPE", "NONE"},
        {"corvane26 --printenv CORV_QUEUE_NAME", ""},
        {"corvane26 --printenv CORV_PARTITION_NAME", ""},
        {"corvane26 --printenv CORV_CORVANERC", "/var/corvane"},
        {"readlink /usr/bin/corvane26*", "/var/corvane/corvane26\n/var/corvane/corvane26_snapshot"},
        {"stat -c \"%a %U:%G\" /var/corvane/corvane26", "775 corvsrvc:corvsrvc"},
        {"ls /var/corvane/corvanerc/corvane26server", ""},
        {"find /etc/systemd /usr/bin -name corvane26_service\\*", ""},
        {"grep -c \"^=== exit status 0: \" /var/log/corvane26_setup.log", "1"}};
    for (const std::string& node : SlurmCluster::Nodes()) {
        for (const auto& [command, output] : expected)
            EXPECT_EQ(Cluster().OnNode(node, command), output) << node << ": " << command;
    }
    EXPECT_EQ(Cluster().OnNode("n3", "getent passwd corvsrvc | cut -d: -f7"), "/sbin/nologin");
    EXPECT_EQ(Shell("ls -d /var/corvane /usr/bin/corvane26* /var/log/corvane26_setup.log"), "");
}

TEST_F(SlurmClusterSetup, RunsJobsOfUsersAndOfService) {
    RollOut();
    SetUpHead(slurmSetup);
    ExpectExported({{"QUEUE_TYPE", "EXTERNAL"},
                    {"SCHEDULER", "SLURM"},
                    {"PARTITION_NAME", "chem"},
                    {"CLUSTER_NODE", "NO"}});
    const std::string job = SubmitAsAnn("short.sh");
    ExpectJob(job, "COMPLETED");
    EXPECT_EQ(Shell("sed 2d /srv/jobs/slurm-" + job + ".out"), "ann\nNO\nYES");

    const std::string out =
        Shell("cd /srv/jobs && runuser -u ann -- sh -c '" + std::string(slurmCheck) + "'");
    const std::string check = out.substr(out.rfind(' ') + 1);
    ExpectJob(check, "COMPLETED");
    EXPECT_EQ(Shell("cat /srv/jobs/slurm-" + check + ".out"), "YES");

    const std::string ofService = Shell(
        "for i in $(seq 100); do [ -e /srv/service/submitted ] && break; sleep 0.1; done;"
        "cat /srv/service/submitted");
    ExpectJob(ofService, "COMPLETED");
    EXPECT_EQ(Cluster().JobField(ofService, "UserId"), "corvsrvc(626)");
    EXPECT_EQ(Shell("cat /srv/service/slurm-" + ofService + ".out"),
              "corvsrvc\n/var/corvane\nNO\nYES");
}

TEST_F(SlurmClusterSetup, CancelsJobWithSlurmCommand) {
    SetUpHead(answeredSlurmSetup);
    ExpectExported({{"SCANCEL_CMD", "/usr/bin/scancel"}});
    ExpectCancel();
}

TEST_F(SlurmClusterSetup, SubmitsAndDeletesWithTorqueCommands) {
    RollOut();
    SetUpHead((std::string(torqueSetup) + " --qsub /usr/bin/qsub").c_str());
    ExpectExported({{"SCHEDULER", "TORQUE"},
                    {"QUEUE_NAME", "chem"},
                    {"QDEL_CMD", "/usr/bin/qdel"},
                    {"QSIG_CMD", "/usr/bin/qsig"}});
    ExpectJob(SubmitAsAnn("short.sh"), "COMPLETED");
    EXPECT_EQ(Shell("sed 2d /srv/jobs/torque.out"), "ann\nNO\nYES");
    ExpectCancel();
}

TEST(ClusterManual, ShowsTestedCommands) {
    const std::string page = hx_test::ReadFile(HX_DOCS "/cluster.md");
    for (const std::string command :
         {serviceGroup, serviceUser, rollOut, slurmSetup, torqueSetup, slurmCheck})
        EXPECT_NE(page.find("    " + command + "\n"), std::string::npos) << command;
}

}  // namespace
