// The compute service: removes the services of earlier versions, installs and starts this one.
#include "commit/CommitSections.h"
#include "commit/EarlierServices.h"

namespace hx {
namespace {

void WriteInitScriptRemoval(FILE* script, const EarlierService& service) {
    std::fprintf(
        script,
        R"sh(# Remove the Corvane Compute Service init script installed under previous version...
if [ -f %s ]
then
    if [ -x ${CHKCONFIG_CMD} ]
    then
        ${CHKCONFIG_CMD} --del %s
    fi
    ${SERVICE_CMD} %s status > /dev/null
    STATUS=$?
    if [ $STATUS -eq 0 ]
    then
        ${SERVICE_CMD} %s stop > /dev/null
    fi
    ${RM_CMD} %s
    ${SYSTEMCTL_CMD} daemon-reload
fi
)sh",
        service.path, service.name, service.name, service.name, service.path);
}

// Compatibility: the script's comment mentions an init script for units too.
void WriteUnitRemoval(FILE* script, const EarlierService& service) {
    std::fprintf(
        script,
        R"sh(# Remove the Corvane Compute Service init script installed under previous version...
if [ -f %s ]
then
    if [ -x ${SYSTEMCTL_CMD} ]
    then
        ${SYSTEMCTL_CMD} stop %s.service
        ${SYSTEMCTL_CMD} disable %s.service
        ${RM_CMD} %s
        ${SYSTEMCTL_CMD} daemon-reload
    fi
fi
)sh",
        service.path, service.name, service.name, service.path);
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

// Stops the service before its unit file is replaced.
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

// Compatibility: the messages say "Servive".
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
    for (const EarlierService& service : earlierServices) {
        if (service.hasInitScript)
            WriteInitScriptRemoval(script, service);
        else
            WriteUnitRemoval(script, service);
    }
    WriteServiceProgram(script);
    // Compatibility: writes the snapshot script a second time, without checking the result.
    WriteSnapshotSubstitution(script);
    WriteRenderedUnit(script);
    WriteUnitComparison(script);
    WriteUnitUpdate(script);
    WriteServiceStart(script);
}

}  // namespace hx
