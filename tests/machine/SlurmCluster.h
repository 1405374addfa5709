// A real Slurm in a throwaway machine: a head and several nodes with installations of their own.
#pragma once

#include <string>
#include <vector>

#include "machine/ThrowawayMachine.h"

namespace hx_test {

// The head is the machine itself. A node is a slurmd that sees /etc, /usr/bin and /var of its own:
// as they were on the head when the node came up, and changed by nobody else. All other directories
// are one for all, as with a network file system. The units "slurm_node@n1.service" and so on run
// the nodes. Slurm's daemons are those of the Debian packages, munge and the controller under
// their own units.
//
// All nodes are in the partition "chem". The partition "other" is the default one, so that a job
// in "chem" is there on purpose.
class SlurmCluster {
public:
    explicit SlurmCluster(const ThrowawayMachine& machine) : m_machine(machine) {}

    // Why there is no Slurm here; empty when there is one.
    static std::string Hindrance();

    // Brings the cluster up and waits until its nodes are idle. False on a failure, told by Log().
    // Accounts that jobs run under must be there before: a node does not see later ones.
    bool Start();

    // Ends the nodes and brings them up again with the files that the head has by now.
    bool RenewNodes();

    // What the daemons said.
    std::string Log() const;

    static const std::vector<std::string>& Nodes();

    // What a line of shell text prints where the node's files are seen, without the last newline.
    // It may hold no single quotes.
    std::string OnNode(const std::string& node, const std::string& text) const;

    // A field of the job as the controller tells it, such as "Partition".
    std::string JobField(const std::string& job, const std::string& field) const;

    // Waits until the job is in this state, such as "COMPLETED"; returns the state it was last in.
    std::string AwaitState(const std::string& job, const std::string& state) const;

private:
    bool AwaitIdleNodes() const;

    const ThrowawayMachine& m_machine;
};

}  // namespace hx_test
