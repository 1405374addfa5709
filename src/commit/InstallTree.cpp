// The install tree: directories, the link to the repository of the previous version, web pages,
// and ownership.
#include "commit/CommitSections.h"

namespace hx {
namespace {

// Writes the block for the install directory's subdirectory `name` without its last "fi", so that
// the caller can add commands for a new directory.
void OpenDirectory(FILE* script, int mode, const char* name) {
    std::fprintf(script,
                 R"(if [ ! -d "${CORV_INSTALL_DIR}%s" ]
then
    ${MKDIR_CMD} --mode=%d "${CORV_INSTALL_DIR}%s"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating directory ${CORV_INSTALL_DIR}%s"
        exit 1
    else
        ${ECHO_CMD} "Created directory ${CORV_INSTALL_DIR}%s"
        ${ECHO_CMD} ""
    fi
)",
                 name, mode, name, name, name);
}

void WriteDirectory(FILE* script, int mode, const char* name) {
    OpenDirectory(script, mode, name);
    std::fputs("fi\n\n", script);
}

// Compatibility: links to a link that resolves, but copies the target of a broken link.
void WriteRepositoryLink(FILE* script) {
    std::fputs(
        R"(    if [ -d "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository" ]
    then
        ${LN_CMD} -s "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository" "${CORV_INSTALL_DIR}/corvanerc/corvane26server/CorvaneServerRepository"
    elif [ -L "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository" ]
    then
        LINK_DEST=`${READLINK_CMD} "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository"`
        ${LN_CMD} -s "${LINK_DEST}" "${CORV_INSTALL_DIR}/corvanerc/corvane26server/CorvaneServerRepository"
    fi
)",
        script);
}

}  // namespace

void WriteDirectories(FILE* script, const CInstallBase& run) {
    std::fprintf(script,
                 R"(CORV_INSTALL_DIR="%s"
CORV_BINARIES_DIR="%s"

)",
                 qUtf8Printable(run.m_installDir), qUtf8Printable(run.m_binariesDir));
    const int mode = SharedMode(run);
    WriteDirectory(script, mode, "");
    WriteDirectory(script, mode, "/corvanerc");
    WriteDirectory(script, mode, "/corvanerc/corvane26");
    OpenDirectory(script, mode, "/corvanerc/corvane26server");
    WriteRepositoryLink(script);
    std::fputs("fi\n", script);
}

void WriteServerFiles(FILE* script) {
    // Compatibility: the error message for the icons mentions the resources.
    std::fputs(R"(if [ ! -d "${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources" ]
then
    ${TAR_CMD} -xv -C "${CORV_INSTALL_DIR}/corvanerc/corvane26server" -f "${CORV_BINARIES_DIR}/docroot/resources.tar"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, unpacking resources ${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources"
        exit 1
    else
        ${ECHO_CMD} "Unpacked resources ${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources"
        ${ECHO_CMD} ""
    fi
fi
if [ ! -d "${CORV_INSTALL_DIR}/corvanerc/corvane26server/icons" ]
then
    ${TAR_CMD} -xv -C "${CORV_INSTALL_DIR}/corvanerc/corvane26server" -f "${CORV_BINARIES_DIR}/docroot/icons.tar"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, unpacking icons ${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources"
        exit 1
    else
        ${ECHO_CMD} "Unpacked icons ${CORV_INSTALL_DIR}/corvanerc/corvane26server/icons"
        ${ECHO_CMD} ""
    fi
fi
)",
               script);
}

// Deepest paths first.
void WriteOwnership(FILE* script, const CInstallBase& run) {
    const QByteArray text = (run.m_serviceUser + u':' + run.m_serviceGroup).toUtf8();
    const char* owner = text.constData();
    std::fprintf(script, R"(${CHOWN_CMD} %s "${CORV_INSTALL_DIR}/corvanerc/corvane26"
)",
                 owner);
    if (!run.m_clusterNode) {
        std::fprintf(script,
                     R"(${CHOWN_CMD} -R %s "${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources"
${CHOWN_CMD} -R %s "${CORV_INSTALL_DIR}/corvanerc/corvane26server/icons"
)",
                     owner, owner);
    }
    std::fprintf(script,
                 R"(${CHOWN_CMD} %s "${CORV_INSTALL_DIR}/corvanerc/corvane26server"
${CHOWN_CMD} %s "${CORV_INSTALL_DIR}/corvanerc"
${CHOWN_CMD} %s "${CORV_INSTALL_DIR}/corvane26"
${CHOWN_CMD} %s "${CORV_INSTALL_DIR}/corvane26_snapshot"
${CHOWN_CMD} %s "${CORV_INSTALL_DIR}"
)",
                 owner, owner, owner, owner, owner);
}

}  // namespace hx
