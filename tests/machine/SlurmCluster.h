// A real Slurm in a throwaway machine: a head node and compute nodes with their own installations.
#pragma once

#include <string>
#include <vector>

#include "machine/ThrowawayMachine.h"

namespace hx_test {

// The head node is the machine itself. A compute node is a slurmd with its own copy of /etc,
// /usr/bin, and /var, taken from the head node when the compute node starts. All other directories
// are shared, as with a network file system. The units "slurm_node@n1.service" and so on run the
// compute nodes. Slurm's daemons are those of the Debian packages, munge and the controller under
// their own units.
//
// All compute nodes are in the partition "chem". The partition "other" is the default one, so that
// a job in "chem" was submitted there on purpose.
class SlurmCluster {
public:
    explicit SlurmCluster(const ThrowawayMachine& machine) : m_machine(machine) {}

    // Returns why Slurm is not available; empty if it is.
    static std::string Hindrance();

    // Starts the cluster and waits until its nodes are idle. Returns false on failure, see Log().
    // Compute nodes do not see accounts that are created later.
    bool Start();

    // Restarts the compute nodes with the current files of the head node.
    bool RenewNodes();

    // The messages of the daemons.
    std::string Log() const;

    static const std::vector<std::string>& Nodes();

    // Returns the output of a shell command with the node's files, without the last newline. The
    // command must not contain single quotes.
    std::string OnNode(const std::string& node, const std::string& text) const;

    // Returns a field of the job from the controller, such as "Partition".
    std::string JobField(const std::string& job, const std::string& field) const;

    // Waits until the job is in this state, such as "COMPLETED". Returns its last state.
    std::string AwaitState(const std::string& job, const std::string& state) const;

private:
    bool AwaitIdleNodes() const;

    const ThrowawayMachine& m_machine;
};

}  // namespace hx_test
