// The eight file writers, with what is particular to each.
#pragma once

#include <sys/types.h>

#include <ostream>
#include <string>

#include "generated/Writing.h"

namespace hx_test {

enum class Family { Script, QChem, Queue };

struct EveryWriter {
    const char* name;
    Writer writer;
    Family family;
    const char* file;  // below the install directory
    mode_t mode;

    std::string Path() const { return std::string("install/") + file; }

    // The messages, with the path as the run has it.
    std::string UnlinkText() const {
        return family == Family::Script ? "Unable to update \"" + Path() + "\", unlink failed"
                                        : "Unable to delete \"" + Path() + "\"";
    }
    std::string ChmodText() const { return "Unable to chmod \"" + Path() + "\""; }

    // All that is said when the file cannot be opened, and the status.
    std::string OpenError(const std::string& reason) const {
        switch (family) {
            case Family::Script:
                return ErrorText("Unable to open \"" + Path() + "\" for write");
            case Family::QChem:
                return ErrorText("Unable to open file \"" + Path() + "\" for write", reason);
            default:
                return ErrorText("Unable to create \"" + Path() + "\"", reason);
        }
    }
    int OpenStatus(int error) const { return family == Family::Script ? error : 2; }
};

inline constexpr EveryWriter kEveryWriter[] = {
    {"RunScript", &CInstallBase::WriteCorvaneOLD, Family::Script, "corvane26", 0755},
    {"SnapshotScript", &CInstallBase::WriteCorvaneSnapshot, Family::Script, "corvane26_snapshot",
     0755},
    {"SambaScript", &CInstallBase::WriteCorvaneSamba, Family::Script, "corvane26_samba", 0755},
    {"SshScript", &CInstallBase::WriteCorvaneSsh, Family::Script, "corvane26_ssh", 0755},
    {"QChemRC", &CInstallBase::WriteQChemRC, Family::QChem, "qchemrc/qchemrc", 0644},
    {"QCScratch", &CInstallBase::WriteQCScratch, Family::QChem, "qchemrc/qcscratch", 0644},
    {"QueueEntries", &CInstallBase::CreateInternalQueueEntries, Family::Queue, "queue_entries",
     0666},
    {"QueueLimits", &CInstallBase::WriteInternalQueueLimits, Family::Queue, "QueueLimits", 0644}};

inline void PrintTo(const EveryWriter& writer, std::ostream* out) {
    *out << writer.name;
}

}  // namespace hx_test
