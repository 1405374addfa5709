// The run scripts, created from their templates, and the links to them in /usr/bin.
#include "commit/CommitSections.h"
#include "setuprun/Schedulers.h"

namespace hx {
namespace {

// Without the line, the variable is unset and its placeholder is replaced with an empty text.
void WriteIfNotEmpty(FILE* script, const char* name, const QString& value) {
    if (!value.isEmpty())
        std::fprintf(script, "CORV_%s=\"%s\"\n", name, qUtf8Printable(value));
}

const char* QueueTypeName(int queueType) {
    switch (queueType) {
        case CInstallBase::QueueInternal:
            return "INTERNAL";
        case CInstallBase::QueueExternal:
            return "EXTERNAL";
        case CInstallBase::QueueNone:
            return "NONE";
        default:
            return "";
    }
}

// Queue and partition names are for an external queue only.
void WriteQueueVariables(FILE* script, const CInstallBase& run) {
    const bool external = run.m_queueType == CInstallBase::QueueExternal;
    std::fprintf(script, "CORV_QUEUE_TYPE=\"%s\"\n", QueueTypeName(run.m_queueType));
    for (const Scheduler& scheduler : schedulers) {
        std::fprintf(script, "CORV_%s=\"%s\"\n\n", scheduler.queueVariable,
                     external ? qUtf8Printable(run.*scheduler.queue) : "");
    }
}

void WriteQueueCommands(FILE* script, const CInstallBase& run) {
    WriteIfNotEmpty(script, "SCHEDULER", run.m_scheduler);
    for (const Scheduler& scheduler : schedulers) {
        for (const SchedulerCommand& command : scheduler.commands)
            WriteIfNotEmpty(script, command.variable, run.*command.path);
    }
}

// The expression that replaces the placeholder of a variable in the template.
void WriteSubstitution(FILE* script, const char* variable) {
    std::fprintf(script, "           -e \"s|%%CORV_%s%%|${CORV_%s}|g\" \\\n", variable, variable);
}

void WriteQueueSubstitutions(FILE* script) {
    for (const Scheduler& scheduler : schedulers) {
        WriteSubstitution(script, scheduler.queueVariable);
        for (const SchedulerCommand& command : scheduler.commands)
            WriteSubstitution(script, command.variable);
    }
}

void WriteComputeServiceVariables(FILE* script, const CInstallBase& run) {
    std::fprintf(script,
                 R"(
CORV_COMPSRVC_ALLOW="%s"
CORV_COMPSRVC_HTTP_PORT="%d"
CORV_COMPSRVC_HTTP_ADDR="%s"
CORV_COMPSRVC_HTTPS_PORT="%d"
CORV_COMPSRVC_HTTPS_ADDR="%s"
CORV_COMPSRVC_CERT="%s"
CORV_COMPSRVC_KEY="%s"
CORV_COMPSRVC_DH="%s"

CORV_CLUSTER_NODE="%s"

CORV_COMPSRVC_GROUP="%s"
CORV_COMPSRVC_USER="%s"

)",
                 qUtf8Printable(run.m_compSrvcAllow), run.m_compSrvcHttpPort,
                 qUtf8Printable(run.m_compSrvcHttpAddr), run.m_compSrvcHttpsPort,
                 qUtf8Printable(run.m_compSrvcHttpsAddr), qUtf8Printable(run.m_compSrvcCert),
                 qUtf8Printable(run.m_compSrvcKey), qUtf8Printable(run.m_compSrvcDh),
                 run.m_clusterNode ? "YES" : "NO", qUtf8Printable(run.m_serviceGroup),
                 qUtf8Printable(run.m_serviceUser));
}

// Checks the result of the sed command that wrote the file `name` and sets its mode. The messages
// call the file `title`.
void WriteInstantiationCheck(FILE* script, const CInstallBase& run, const char* name,
                             const char* title) {
    std::fprintf(script,
                 R"(STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, writing Corvane'26 %s, ${CORV_INSTALL_DIR}/%s"
    exit 1
else
    ${ECHO_CMD} "Wrote Corvane'26 %s, ${CORV_INSTALL_DIR}/%s"
    ${ECHO_CMD} ""
fi

${CHMOD_CMD} %d "${CORV_INSTALL_DIR}/%s"
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, modifying access permissions to ${CORV_INSTALL_DIR}/%s"
    exit 1
fi

)",
                 title, name, title, name, SharedMode(run), name, name);
}

}  // namespace

void WriteRunScriptVariables(FILE* script, const CInstallBase& run) {
    std::fputs(R"(
# Write the Corvane'26 run script...

)",
               script);
    WriteQueueVariables(script, run);
    WriteQueueCommands(script, run);
    WriteComputeServiceVariables(script, run);
}

void WriteRunScript(FILE* script, const CInstallBase& run) {
    // Compatibility: CORV_QUEUE_ALLOW is never set, and its expression uses a different delimiter.
    std::fputs(R"(${SED_CMD} -e "s|%CORV_ROOT%|${CORV_BINARIES_DIR}|g" \
           -e "s|%CORV_CORVANERC%|${CORV_INSTALL_DIR}|g" \
           -e "s|%CORV_CLUSTER_NODE%|${CORV_CLUSTER_NODE}|g" \
           -e "s/%CORV_QUEUE_ALLOW%/${CORV_QUEUE_ALLOW}/g" \
           -e "s|%CORV_SCHEDULER%|${CORV_SCHEDULER}|g" \
           -e "s|%CORV_QUEUE_TYPE%|${CORV_QUEUE_TYPE}|g" \
)",
               script);
    WriteQueueSubstitutions(script);
    std::fputs(R"(           -e "s|%CORV_COMPSRVC_ALLOW%|${CORV_COMPSRVC_ALLOW}|g" \
           -e "s|%CORV_COMPSRVC_HTTP_PORT%|${CORV_COMPSRVC_HTTP_PORT}|g" \
           -e "s|%CORV_COMPSRVC_HTTP_ADDR%|${CORV_COMPSRVC_HTTP_ADDR}|g" \
           -e "s|%CORV_COMPSRVC_HTTPS_PORT%|${CORV_COMPSRVC_HTTPS_PORT}|g" \
           -e "s|%CORV_COMPSRVC_HTTPS_ADDR%|${CORV_COMPSRVC_HTTPS_ADDR}|g" \
           -e "s|%CORV_COMPSRVC_CERT%|${CORV_COMPSRVC_CERT}|g" \
           -e "s|%CORV_COMPSRVC_KEY%|${CORV_COMPSRVC_KEY}|g" \
           -e "s|%CORV_COMPSRVC_DH%|${CORV_COMPSRVC_DH}|g" \
           -e "s|%CORV_COMPSRVC_GROUP%|${CORV_COMPSRVC_GROUP}|g" \
           -e "s|%CORV_COMPSRVC_USER%|${CORV_COMPSRVC_USER}|g" \
    "${CORV_BINARIES_DIR}/corvane26.template" \
    > "${CORV_INSTALL_DIR}/corvane26"
)",
               script);
    WriteInstantiationCheck(script, run, "corvane26", "run script");
}

void WriteSnapshotSubstitution(FILE* script) {
    std::fputs(R"(${SED_CMD} -e "s|%CORV_ROOT%|${CORV_BINARIES_DIR}|g" \
           -e "s|%CORV_CORVANERC%|${CORV_INSTALL_DIR}|g" \
    "${CORV_BINARIES_DIR}/corvane26_snapshot.template" \
    > "${CORV_INSTALL_DIR}/corvane26_snapshot"
)",
               script);
}

void WriteSnapshotScript(FILE* script, const CInstallBase& run) {
    WriteSnapshotSubstitution(script);
    WriteInstantiationCheck(script, run, "corvane26_snapshot", "snapshot run script");
}

void WriteCommandLink(FILE* script, const char* name) {
    std::fprintf(script,
                 R"(MAKE_LINK="YES"
if [ -L /usr/bin/%s ]
then
    LINK_DEST=`${READLINK_CMD} /usr/bin/%s`
    if [ "$LINK_DEST" != "${CORV_INSTALL_DIR}/%s" ]
    then
        ${RM_CMD} /usr/bin/%s
        STATUS=$?
        if [ $STATUS -ne 0 ]
        then
            ${ECHO_CMD} "Error, removing  /usr/bin/%s"
            exit 1
        fi
    else
        MAKE_LINK="NO"
    fi
fi
if [ "$MAKE_LINK" = "YES" ]
then
    ${LN_CMD} -s "${CORV_INSTALL_DIR}/%s" /usr/bin/%s
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating /usr/bin/%s symbolic link"
        exit 1
    fi
fi
)",
                 name, name, name, name, name, name, name, name);
}

}  // namespace hx
