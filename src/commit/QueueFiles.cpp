// The files of the internal queue: QueueEntries, which is kept if it exists, and QueueLimits, which
// every setup rewrites.
#include "commit/CommitSections.h"
#include "setuprun/QueueLimitsKeys.h"

namespace hx {
namespace {

// Writes the file's mode, its owner in a setup as root, and the empty line after the section.
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
    // After a setup as root, every user can add jobs.
    WriteAccess(script, run, "QueueEntries", 666);
}

void WriteQueueLimits(FILE* script, const CInstallBase& run) {
    const char* redirection = ">";
    for (const QueueLimitsLine& line : queueLimitsLines) {
        if (!line.isCommitted(run))
            continue;
        std::fprintf(script, "${ECHO_CMD} \"%s: %s\" %s\"${CORV_INSTALL_DIR}/QueueLimits\"\n",
                     line.key, line.Answer(run).constData(), redirection);
        redirection = ">>";
    }
    WriteAccess(script, run, "QueueLimits", 664);
}

}  // namespace hx
