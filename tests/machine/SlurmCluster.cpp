#include "machine/SlurmCluster.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include "harness/TempDir.h"

namespace hx_test {
namespace {

// The address of all daemons. Slurm ignores addresses of the loopback network in name lookups.
const std::string address = "10.77.26.1";

// One processor in each node, no control groups, no accounting, and shorter waits than the
// defaults.
constexpr const char* configuration = R"(ClusterName=throwaway
SlurmctldHost=head
SlurmUser=slurm
StateSaveLocation=/run/slurmctld
SlurmdSpoolDir=/run/slurmd_%n
SlurmdPidFile=/run/slurmd_%n.pid
AuthType=auth/munge
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SchedulerParameters=batch_sched_delay=0,sched_min_interval=0
SlurmdParameters=config_overrides
ReturnToService=2
KillWait=1
)";

// Mounts the directories that a setup changes, and its lock. They disappear with the slurmd. The
// nodes share the rest of /run, which contains munge's socket.
constexpr const char* nodeProgram = R"sh(#!/bin/sh -e
mount -t tmpfs tmpfs /mnt
for directory in etc usr/bin var
do
    mkdir -p "/mnt/upper/$directory" "/mnt/merge/$directory"
    mount -t overlay overlay "/$directory" \
        -o "lowerdir=/$directory,upperdir=/mnt/upper/$directory,workdir=/mnt/merge/$directory"
done
touch /mnt/lock /run/corvane26_setup.lock
mount --bind /mnt/lock /run/corvane26_setup.lock
exec slurmd -D -s -N "$1"
)sh";

constexpr const char* nodeUnit = R"([Service]
ExecStart=/opt/slurm_node %i
PrivateMounts=yes
)";

std::string NodeLines() {
    std::string lines;
    std::string names;
    int port = 17000;
    for (const std::string& node : SlurmCluster::Nodes()) {
        lines +=
            "NodeName=" + node + " NodeHostname=head Port=" + std::to_string(++port) + " CPUs=1\n";
        names += (names.empty() ? "" : ",") + node;
    }
    lines += "PartitionName=other Default=YES Nodes=" + names + "\n";
    return lines + "PartitionName=chem Nodes=" + names + "\n";
}

std::string NodeUnits() {
    std::string units;
    for (const std::string& node : SlurmCluster::Nodes())
        units += " slurm_node@" + node;
    return units;
}

}  // namespace

std::string SlurmCluster::Hindrance() {
    struct statfs root = {};
    if (statfs("/", &root) == 0 && root.f_type == OVERLAYFS_SUPER_MAGIC)
        return "a Slurm cluster requires a root that is not an overlay";
    for (const char* program : {"munged", "slurmctld", "slurmd", "sbatch", "srun", "qsub", "ip"}) {
        if (hx_test::Run({"sh", "-c", "command -v \"$0\"", program}).status != 0)
            return std::string("a Slurm cluster requires ") + program;
    }
    return {};
}

const std::vector<std::string>& SlurmCluster::Nodes() {
    static const std::vector<std::string> nodes = {"n1", "n2", "n3"};
    return nodes;
}

bool SlurmCluster::Start() {
    WriteFile(m_machine.Path("/etc/slurm/slurm.conf"), configuration + NodeLines());
    // This plugin checks nothing while control groups are unused.
    WriteFile(m_machine.Path("/etc/slurm/cgroup.conf"), "CgroupPlugin=cgroup/v1\n");
    WriteFile(m_machine.Path("/opt/slurm_node"), nodeProgram);
    WriteFile(m_machine.Path("/etc/systemd/system/slurm_node@.service"), nodeUnit);
    // The daemons may be masked on the live machine.
    const auto started = m_machine.Shell(
        "set -e; hostname head; echo " + address + " head >> /etc/hosts; ip address add " +
        address +
        "/32 dev lo; chmod 755 /opt/slurm_node;"
        "install -d -o slurm /run/slurmctld;"
        "runuser -u munge -- mungekey --create --force --keyfile /etc/munge/munge.key;"
        "systemctl unmask munge slurmctld; systemctl daemon-reload;"
        "systemctl start munge slurmctld" +
        NodeUnits());
    return started.status == 0 && AwaitIdleNodes();
}

// A node that is down returns when its slurmd registers.
bool SlurmCluster::RenewNodes() {
    return m_machine
                   .Shell("set -e; systemctl stop" + NodeUnits() +
                          "; scontrol update nodename=ALL state=down reason=renewed;"
                          "systemctl start" +
                          NodeUnits())
                   .status == 0 &&
           AwaitIdleNodes();
}

bool SlurmCluster::AwaitIdleNodes() const {
    const std::string all = "idle:" + std::to_string(Nodes().size());
    return m_machine
               .Shell(
                   "for i in $(seq 300); do "
                   "[ \"$(sinfo --noheader --partition=chem --format=%t:%D)\" = " +
                   all + " ] && exit; sleep 0.1; done; exit 1")
               .status == 0;
}

std::string SlurmCluster::Log() const {
    return m_machine.Output("sinfo; journalctl --no-pager -u munge -u slurmctld -u 'slurm_node@*'");
}

std::string SlurmCluster::OnNode(const std::string& node, const std::string& text) const {
    return m_machine.Output(
        "exec nsenter --target=$(systemctl show --value --property=MainPID slurm_node@" + node +
        ") --mount -- sh -c '" + text + "'");
}

std::string SlurmCluster::JobField(const std::string& job, const std::string& field) const {
    return m_machine.Output("scontrol --oneliner show job " + job +
                            " | tr ' ' '\\n' | sed -n 's/^" + field + "=//p'");
}

std::string SlurmCluster::AwaitState(const std::string& job, const std::string& state) const {
    m_machine.Shell("for i in $(seq 300); do scontrol --oneliner show job " + job +
                    " | grep -q ' JobState=" + state + " ' && exit; sleep 0.1; done");
    return JobField(job, "JobState");
}

}  // namespace hx_test
