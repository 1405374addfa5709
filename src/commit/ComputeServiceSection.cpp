// The compute service: services of earlier versions out, the present one in, and started.
#include "commit/CommitSections.h"

namespace hx {
namespace {

void WriteInitScriptRemoval(FILE* script) {
    std::fputs(
        R"sh(# Remove the Corvane Compute Service init script installed under previous version...
if [ -f /etc/init.d/corvane_service ]
then
    if [ -x ${CHKCONFIG_CMD} ]
    then
        ${CHKCONFIG_CMD} --del corvane_service
    fi
    ${SERVICE_CMD} corvane_service status > /dev/null
    STATUS=$?
    if [ $STATUS -eq 0 ]
    then
        ${SERVICE_CMD} corvane_service stop > /dev/null
    fi
    ${RM_CMD} /etc/init.d/corvane_service
    ${SYSTEMCTL_CMD} daemon-reload
fi
)sh",
        script);
}

// Kept: the comment speaks of an init script here too.
void WriteUnitRemoval(FILE* script, const char* service) {
    std::fprintf(
        script,
        R"sh(# Remove the Corvane Compute Service init script installed under previous version...
if [ -f /etc/systemd/system/%s.service ]
then
    if [ -x ${SYSTEMCTL_CMD} ]
    then
        ${SYSTEMCTL_CMD} stop %s.service
        ${SYSTEMCTL_CMD} disable %s.service
        ${RM_CMD} /etc/systemd/system/%s.service
        ${SYSTEMCTL_CMD} daemon-reload
    fi
fi
)sh",
        service, service, service, service);
}

void WriteServiceProgram(FILE* script) {
    std::fputs(
        R"sh(# Write the Corvane Compute Service Script to /usr/bin/corvane26_service_script...
${CP_CMD} -f "${CORV_BINARIES_DIR}/corvane26_service_script" "/usr/bin/corvane26_service_script"
STATUS=$?
if [ $STATUS -ne 0 ]
then
        ${ECHO_CMD} "Error, writing Corvane'26 service script ($STATUS), /usr/bin/corvane26_service_script"
        exit 1
else
        ${ECHO_CMD} "Wrote Corvane'26 service script, /usr/bin/corvane26_service_script"
fi
)sh",
        script);
}

void WriteRenderedUnit(FILE* script) {
    std::fputs(R"sh(# Write the Corvane Compute Service systemd script...
${SED_CMD} -e "s|%CORV_SERVICE_SCRIPT_DIR%|/usr/bin|g" \
    "${CORV_BINARIES_DIR}/corvane26_service.template" \
    > "${CORV_INSTALL_DIR}/corvane26_service.service"
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, writing Corvane'26 service script, ${CORV_INSTALL_DIR}/corvane26_service.service"
    exit 1
else
    ${ECHO_CMD} "Wrote Corvane'26 service script, ${CORV_INSTALL_DIR}/corvane26_service.service"
    ${ECHO_CMD} ""
fi
)sh",
               script);
}

// A unit that differs is replaced, and its service stopped before.
void WriteUnitComparison(FILE* script) {
    std::fputs(R"sh(SERVICE_UPDATE="NO"
if [ ! -f /etc/systemd/system/corvane26_service.service ]
then
    SERVICE_UPDATE="YES"
else
    ${DIFF_CMD} /etc/systemd/system/corvane26_service.service "${CORV_INSTALL_DIR}/corvane26_service.service"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        SERVICE_UPDATE="YES"
        ${SYSTEMCTL_CMD} status --no-pager corvane26_service.service > /dev/null
        STATUS=$?
        if [ $STATUS -eq 0 ]
        then
            ${SYSTEMCTL_CMD} stop corvane26_service.service  > /dev/null
        fi
    fi
fi

)sh",
               script);
}

// Kept: "Servive", twice.
void WriteUnitUpdate(FILE* script) {
    std::fputs(R"sh(if [ $SERVICE_UPDATE = "YES" ]
then
    ${CP_CMD} -f "${CORV_INSTALL_DIR}/corvane26_service.service" /etc/systemd/system/corvane26_service.service
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, updating Corvane Compute Servive systemd script"
    else
        ${ECHO_CMD} "Corvane Compute Servive systemd script updated"
        ${ECHO_CMD} ""
        ${SYSTEMCTL_CMD} daemon-reload
        ${SYSTEMCTL_CMD} enable corvane26_service.service
    fi
    ${CHMOD_CMD} 644 /etc/systemd/system/corvane26_service.service
fi

)sh",
               script);
}

void WriteServiceStart(FILE* script) {
    std::fputs(R"sh(${SYSTEMCTL_CMD} status --no-pager corvane26_service.service > /dev/null
STATUS=$?
if [ $STATUS -eq 0 ]
then
    ${SYSTEMCTL_CMD} restart corvane26_service.service > /dev/null
else
    ${SYSTEMCTL_CMD} start corvane26_service.service > /dev/null
fi

)sh",
               script);
}

}  // namespace

void WriteComputeService(FILE* script) {
    WriteInitScriptRemoval(script);
    WriteUnitRemoval(script, "corvane20_service");
    WriteUnitRemoval(script, "corvane24_service");
    WriteServiceProgram(script);
    // Kept: the snapshot script is written a second time, untested.
    WriteSnapshotSubstitution(script);
    WriteRenderedUnit(script);
    WriteUnitComparison(script);
    WriteUnitUpdate(script);
    WriteServiceStart(script);
}

}  // namespace hx
