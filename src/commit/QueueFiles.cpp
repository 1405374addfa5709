// The two files of the internal queue: its entries, which are kept, and its limits, which every run
// writes anew.
#include "commit/CommitSections.h"

namespace hx {
namespace {

// Mode in every run, owner in a root run, and the empty line behind the file's lines.
void WriteAccess(FILE* script, const CInstallBase& run, const char* name, int rootMode) {
    std::fprintf(script, "${CHMOD_CMD} %d \"${CORV_INSTALL_DIR}/%s\"\n",
                 IsRootRun(run) ? rootMode : 644, name);
    if (IsRootRun(run)) {
        std::fprintf(script, "${CHOWN_CMD} %s:%s \"${CORV_INSTALL_DIR}/%s\"\n",
                     qUtf8Printable(run.m_serviceUser), qUtf8Printable(run.m_serviceGroup), name);
    }
    std::fputs("\n", script);
}

}  // namespace

void WriteQueueEntries(FILE* script, const CInstallBase& run) {
    std::fputs(R"(# Write the QueueEntries and QueueLimits files...
if [ ! -f "${CORV_INSTALL_DIR}/QueueEntries" ]
then
    ${TOUCH_CMD} "${CORV_INSTALL_DIR}/QueueEntries"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating ${CORV_INSTALL_DIR}/QueueEntries"
        exit 1
    fi
fi
)",
               script);
    // In a root run every user of the machine may queue jobs.
    WriteAccess(script, run, "QueueEntries", 666);
}

void WriteQueueLimits(FILE* script, const CInstallBase& run) {
    std::fprintf(script,
                 R"(${ECHO_CMD} "MaxThreads: %d" >"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "MemoryPerThreadMB: %d" >>"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "Scratch: %s" >>"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "DiskPerThreadGB: %d" >>"${CORV_INSTALL_DIR}/QueueLimits"
)",
                 run.m_jobLimit, run.m_memoryLimitMB, qUtf8Printable(run.m_scratchDir),
                 run.m_scratchLimitGB);
    // Another job limit makes the threads per molecule meaningless.
    if (run.m_prevJobLimit == run.m_jobLimit && run.m_threadsPerMolecule > 0) {
        std::fprintf(
            script,
            "${ECHO_CMD} \"ThreadsPerMolecule: %d\" >>\"${CORV_INSTALL_DIR}/QueueLimits\"\n",
            run.m_threadsPerMolecule);
    }
    WriteAccess(script, run, "QueueLimits", 664);
}

}  // namespace hx
