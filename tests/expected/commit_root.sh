#!/bin/bash

CORVSRVC_GROUP=chemgroup
CORVSRVC_USER=chemuser

chmod_if_different() {
   local target_mode=$1
   local file=$2

   # Get current permissions in octal format (e.g., 644)
   # Using stat's -c %a for Linux (GNU) systems
   local current_mode=$(stat -c "%a" "$file")

   if [ "$current_mode" != "$target_mode" ]; then
       echo "Updating $file: $current_mode -> $target_mode"
       /bin/chmod "$target_mode" "$file"
       else
       echo "$file already has mode $target_mode. Skipping."
       fi
}
USERADD_CMD=/usr/sbin/useradd
GROUPADD_CMD=/usr/sbin/groupadd
USERMOD_CMD=/usr/sbin/usermod
ID_CMD=/usr/bin/id
GETENT_CMD=/usr/bin/getent
CHSH_CMD=/usr/bin/chsh
MKDIR_CMD=/bin/mkdir
CHMOD_CMD=chmod_if_different
CHOWN_CMD=/bin/chown
SED_CMD=/bin/sed
ECHO_CMD=/bin/echo
CP_CMD=/bin/cp
LN_CMD=/bin/ln
READLINK_CMD=/bin/readlink
RM_CMD=/bin/rm
DIFF_CMD=/usr/bin/diff
if [ ! -x ${LN_CMD} ]
then
    LN_CMD=/usr/bin/ln
fi
MD5SUM_CMD=/usr/bin/md5sum
AWK_CMD=/bin/awk
if [ ! -x ${AWK_CMD} ]
then
    AWK_CMD=/usr/bin/awk
fi
TOUCH_CMD=/bin/touch
if [ ! -x ${TOUCH_CMD} ]
then
    TOUCH_CMD=/usr/bin/touch
fi
STRINGS_CMD=/usr/bin/strings
if [ ! -x ${STRINGS_CMD} ]
then
    STRINGS_CMD=/usr/bin/strings
fi
GREP_CMD=/bin/grep
if [ ! -x ${GREP_CMD} ]
then
    GREP_CMD=/usr/bin/grep
fi
TAR_CMD=/bin/tar
if [ ! -x ${TAR_CMD} ]
then
    TAR_CMD=/usr/bin/tar
fi
DPKG_CMD=/usr/bin/dpkg
DPKG_QUERY_CMD=/usr/bin/dpkg-query
SERVICE_CMD=/sbin/service
if [ ! -x ${SERVICE_CMD} ]
then
    SERVICE_CMD=/usr/sbin/service
fi
SYSTEMCTL_CMD=/bin/systemctl
if [ ! -x ${SYSTEMCTL_CMD} ]
then
    SYSTEMCTL_CMD=/usr/bin/systemctl
fi
CHKCONFIG_CMD=/sbin/chkconfig

${ECHO_CMD} "Starting Corvane'26 Installation script"
${ECHO_CMD} ""

if [ `${ID_CMD} -u` -ne 0 ]
then
    ${ECHO_CMD} "Error, the Corvane installation commit script was created by root"
    ${ECHO_CMD} "so must be run by root!"
    exit 1
fi

# Only create CORVSRVC_GROUP if it doesn't exist
CORVSRVC_GROUP_EXISTS=`${GETENT_CMD} group | ${AWK_CMD} -F'[:]' '$1=="'${CORVSRVC_GROUP}'" {print("YES") }'`
if [ "$CORVSRVC_GROUP_EXISTS" != "YES" ]
then
    ${GROUPADD_CMD} --system ${CORVSRVC_GROUP}
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, unable to create Corvane service group."
        exit 1
    else
        ${ECHO_CMD} "Corvane Service Group created"
        ${ECHO_CMD} ""
    fi
fi
# Only create CORVSRVC_USER if it doesn't exist
${ID_CMD} ${CORVSRVC_USER} 2> /dev/null > /dev/null
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${USERADD_CMD} --system --gid ${CORVSRVC_GROUP} --comment "Corvane Compute Service" -M --home "/var/corvane" --shell "/sbin/nologin" ${CORVSRVC_USER}
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, unable to create Corvane service user."
        exit 1
    else
        ${ECHO_CMD} "Corvane Service User created"
        ${ECHO_CMD} ""
    fi
fi

${ECHO_CMD} "Adding/Removing users from the Corvane Compute Service Group"
# Add users to Corvane Compute Service Group
CORV_SERVICE_MEMBERS="carol dora"
for member in $CORV_SERVICE_MEMBERS
do
    ${USERMOD_CMD} --append -G ${CORVSRVC_GROUP} $member 2> /dev/null
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        # SLES has a different argument to add user to group
        ${USERMOD_CMD} --add-to-group ${CORVSRVC_GROUP} $member 2> /dev/null
        STATUS=$?
        if [ $STATUS -ne 0 ]
        then
            ${ECHO_CMD} "Error, unable to add user, $member to the Corvane service group."
            exit 1
        fi
    fi
    ${ECHO_CMD} "Added $member"
done

# Remove users from Corvane Compute Service Group
CORV_SERVICE_NONMEMBERS="bob zoe"
for nonmember in $CORV_SERVICE_NONMEMBERS
do
    CUR_GROUPS=`${ID_CMD} -Gn $nonmember`
    NEW_GROUPS=
    USERMOD_NEEDED="no"
    if [ -n "$CUR_GROUPS" ]
    then
        for grp in $CUR_GROUPS
        do
            if [ "$grp" != "${CORVSRVC_GROUP}" ]
            then
                if [ -n "$NEW_GROUPS" ]
                then
                    NEW_GROUPS="${NEW_GROUPS},${grp}"
                else
                    NEW_GROUPS="${grp}"
                fi
            else
                USERMOD_NEEDED="yes"
            fi
        done
        if [ $USERMOD_NEEDED = "yes" -a -n "$NEW_GROUPS" ]
        then
            ${USERMOD_CMD} -G $NEW_GROUPS $nonmember
            STATUS=$?
            if [ $STATUS -ne 0 ]
            then
                ${ECHO_CMD} "Error, unable to remove user, $nonmember from the Corvane service group."
                exit 1
            else
                ${ECHO_CMD} "Removed $nonmember"
            fi
        fi
    fi
done

${ECHO_CMD} ""
CORV_INSTALL_DIR="/var/corvane"
CORV_BINARIES_DIR="/opt/corvane26"

if [ ! -d "${CORV_INSTALL_DIR}" ]
then
    ${MKDIR_CMD} --mode=775 "${CORV_INSTALL_DIR}"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating directory ${CORV_INSTALL_DIR}"
        exit 1
    else
        ${ECHO_CMD} "Created directory ${CORV_INSTALL_DIR}"
        ${ECHO_CMD} ""
    fi
fi

if [ ! -d "${CORV_INSTALL_DIR}/corvanerc" ]
then
    ${MKDIR_CMD} --mode=775 "${CORV_INSTALL_DIR}/corvanerc"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating directory ${CORV_INSTALL_DIR}/corvanerc"
        exit 1
    else
        ${ECHO_CMD} "Created directory ${CORV_INSTALL_DIR}/corvanerc"
        ${ECHO_CMD} ""
    fi
fi

if [ ! -d "${CORV_INSTALL_DIR}/corvanerc/corvane26" ]
then
    ${MKDIR_CMD} --mode=775 "${CORV_INSTALL_DIR}/corvanerc/corvane26"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating directory ${CORV_INSTALL_DIR}/corvanerc/corvane26"
        exit 1
    else
        ${ECHO_CMD} "Created directory ${CORV_INSTALL_DIR}/corvanerc/corvane26"
        ${ECHO_CMD} ""
    fi
fi

if [ ! -d "${CORV_INSTALL_DIR}/corvanerc/corvane26server" ]
then
    ${MKDIR_CMD} --mode=775 "${CORV_INSTALL_DIR}/corvanerc/corvane26server"
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating directory ${CORV_INSTALL_DIR}/corvanerc/corvane26server"
        exit 1
    else
        ${ECHO_CMD} "Created directory ${CORV_INSTALL_DIR}/corvanerc/corvane26server"
        ${ECHO_CMD} ""
    fi
    if [ -d "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository" ]
    then
        ${LN_CMD} -s "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository" "${CORV_INSTALL_DIR}/corvanerc/corvane26server/CorvaneServerRepository"
    elif [ -L "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository" ]
    then
        LINK_DEST=`${READLINK_CMD} "${CORV_INSTALL_DIR}/corvanerc/corvane24server/CorvaneServerRepository"`
        ${LN_CMD} -s "${LINK_DEST}" "${CORV_INSTALL_DIR}/corvanerc/corvane26server/CorvaneServerRepository"
    fi
fi
if [ ! -d "${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources" ]
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

# Write the Corvane'26 run script...

CORV_QUEUE_TYPE="INTERNAL"
CORV_QUEUE_NAME=""

CORV_PARTITION_NAME=""

CORV_SCHEDULER="TORQUE"
CORV_QSUB_CMD="/opt/pbs/bin/qsub"
CORV_QDEL_CMD="/opt/pbs/bin/qdel"
CORV_QSIG_CMD="/opt/pbs/bin/qsig"
CORV_SBATCH_CMD="/usr/bin/sbatch"
CORV_SCANCEL_CMD="/usr/bin/scancel"

CORV_COMPSRVC_ALLOW="HTTP"
CORV_COMPSRVC_HTTP_PORT="8080"
CORV_COMPSRVC_HTTP_ADDR="10.0.0.1"
CORV_COMPSRVC_HTTPS_PORT="8443"
CORV_COMPSRVC_HTTPS_ADDR="10.0.0.2"
CORV_COMPSRVC_CERT="cert.pem"
CORV_COMPSRVC_KEY="key.pem"
CORV_COMPSRVC_DH="dh.pem"

CORV_CLUSTER_NODE="NO"

CORV_COMPSRVC_GROUP="chemgroup"
CORV_COMPSRVC_USER="chemuser"

${SED_CMD} -e "s|%CORV_ROOT%|${CORV_BINARIES_DIR}|g" \
           -e "s|%CORV_CORVANERC%|${CORV_INSTALL_DIR}|g" \
           -e "s|%CORV_CLUSTER_NODE%|${CORV_CLUSTER_NODE}|g" \
           -e "s/%CORV_QUEUE_ALLOW%/${CORV_QUEUE_ALLOW}/g" \
           -e "s|%CORV_SCHEDULER%|${CORV_SCHEDULER}|g" \
           -e "s|%CORV_QUEUE_TYPE%|${CORV_QUEUE_TYPE}|g" \
           -e "s|%CORV_QUEUE_NAME%|${CORV_QUEUE_NAME}|g" \
           -e "s|%CORV_QSUB_CMD%|${CORV_QSUB_CMD}|g" \
           -e "s|%CORV_QDEL_CMD%|${CORV_QDEL_CMD}|g" \
           -e "s|%CORV_QSIG_CMD%|${CORV_QSIG_CMD}|g" \
           -e "s|%CORV_PARTITION_NAME%|${CORV_PARTITION_NAME}|g" \
           -e "s|%CORV_SBATCH_CMD%|${CORV_SBATCH_CMD}|g" \
           -e "s|%CORV_SCANCEL_CMD%|${CORV_SCANCEL_CMD}|g" \
           -e "s|%CORV_COMPSRVC_ALLOW%|${CORV_COMPSRVC_ALLOW}|g" \
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
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, writing Corvane'26 run script, ${CORV_INSTALL_DIR}/corvane26"
    exit 1
else
    ${ECHO_CMD} "Wrote Corvane'26 run script, ${CORV_INSTALL_DIR}/corvane26"
    ${ECHO_CMD} ""
fi

${CHMOD_CMD} 775 "${CORV_INSTALL_DIR}/corvane26"
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, modifying access permissions to ${CORV_INSTALL_DIR}/corvane26"
    exit 1
fi

MAKE_LINK="YES"
if [ -L /usr/bin/corvane26 ]
then
    LINK_DEST=`${READLINK_CMD} /usr/bin/corvane26`
    if [ "$LINK_DEST" != "${CORV_INSTALL_DIR}/corvane26" ]
    then
        ${RM_CMD} /usr/bin/corvane26
        STATUS=$?
        if [ $STATUS -ne 0 ]
        then
            ${ECHO_CMD} "Error, removing  /usr/bin/corvane26"
            exit 1
        fi
    else
        MAKE_LINK="NO"
    fi
fi
if [ "$MAKE_LINK" = "YES" ]
then
    ${LN_CMD} -s "${CORV_INSTALL_DIR}/corvane26" /usr/bin/corvane26
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating /usr/bin/corvane26 symbolic link"
        exit 1
    fi
fi

${SED_CMD} -e "s|%CORV_ROOT%|${CORV_BINARIES_DIR}|g" \
           -e "s|%CORV_CORVANERC%|${CORV_INSTALL_DIR}|g" \
    "${CORV_BINARIES_DIR}/corvane26_snapshot.template" \
    > "${CORV_INSTALL_DIR}/corvane26_snapshot"
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, writing Corvane'26 snapshot run script, ${CORV_INSTALL_DIR}/corvane26_snapshot"
    exit 1
else
    ${ECHO_CMD} "Wrote Corvane'26 snapshot run script, ${CORV_INSTALL_DIR}/corvane26_snapshot"
    ${ECHO_CMD} ""
fi

${CHMOD_CMD} 775 "${CORV_INSTALL_DIR}/corvane26_snapshot"
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${ECHO_CMD} "Error, modifying access permissions to ${CORV_INSTALL_DIR}/corvane26_snapshot"
    exit 1
fi

MAKE_LINK="YES"
if [ -L /usr/bin/corvane26_snapshot ]
then
    LINK_DEST=`${READLINK_CMD} /usr/bin/corvane26_snapshot`
    if [ "$LINK_DEST" != "${CORV_INSTALL_DIR}/corvane26_snapshot" ]
    then
        ${RM_CMD} /usr/bin/corvane26_snapshot
        STATUS=$?
        if [ $STATUS -ne 0 ]
        then
            ${ECHO_CMD} "Error, removing  /usr/bin/corvane26_snapshot"
            exit 1
        fi
    else
        MAKE_LINK="NO"
    fi
fi
if [ "$MAKE_LINK" = "YES" ]
then
    ${LN_CMD} -s "${CORV_INSTALL_DIR}/corvane26_snapshot" /usr/bin/corvane26_snapshot
    STATUS=$?
    if [ $STATUS -ne 0 ]
    then
        ${ECHO_CMD} "Error, creating /usr/bin/corvane26_snapshot symbolic link"
        exit 1
    fi
fi
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/corvanerc/corvane26"
${CHOWN_CMD} -R chemuser:chemgroup "${CORV_INSTALL_DIR}/corvanerc/corvane26server/resources"
${CHOWN_CMD} -R chemuser:chemgroup "${CORV_INSTALL_DIR}/corvanerc/corvane26server/icons"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/corvanerc/corvane26server"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/corvanerc"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/corvane26"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/corvane26_snapshot"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}"
# Write the QueueEntries and QueueLimits files...
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
${CHMOD_CMD} 666 "${CORV_INSTALL_DIR}/QueueEntries"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/QueueEntries"

${ECHO_CMD} "MaxThreads: 12" >"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "MemoryPerThreadMB: 2048" >>"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "Scratch: /scratch/corvane" >>"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "DiskPerThreadGB: 50" >>"${CORV_INSTALL_DIR}/QueueLimits"
${ECHO_CMD} "ThreadsPerMolecule: 4" >>"${CORV_INSTALL_DIR}/QueueLimits"
${CHMOD_CMD} 664 "${CORV_INSTALL_DIR}/QueueLimits"
${CHOWN_CMD} chemuser:chemgroup "${CORV_INSTALL_DIR}/QueueLimits"

# Remove the Corvane Compute Service init script installed under previous version...
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
# Remove the Corvane Compute Service init script installed under previous version...
if [ -f /etc/systemd/system/corvane20_service.service ]
then
    if [ -x ${SYSTEMCTL_CMD} ]
    then
        ${SYSTEMCTL_CMD} stop corvane20_service.service
        ${SYSTEMCTL_CMD} disable corvane20_service.service
        ${RM_CMD} /etc/systemd/system/corvane20_service.service
        ${SYSTEMCTL_CMD} daemon-reload
    fi
fi
# Remove the Corvane Compute Service init script installed under previous version...
if [ -f /etc/systemd/system/corvane24_service.service ]
then
    if [ -x ${SYSTEMCTL_CMD} ]
    then
        ${SYSTEMCTL_CMD} stop corvane24_service.service
        ${SYSTEMCTL_CMD} disable corvane24_service.service
        ${RM_CMD} /etc/systemd/system/corvane24_service.service
        ${SYSTEMCTL_CMD} daemon-reload
    fi
fi
# Write the Corvane Compute Service Script to /usr/bin/corvane26_service_script...
${CP_CMD} -f "${CORV_BINARIES_DIR}/corvane26_service_script" "/usr/bin/corvane26_service_script"
STATUS=$?
if [ $STATUS -ne 0 ]
then
        ${ECHO_CMD} "Error, writing Corvane'26 service script ($STATUS), /usr/bin/corvane26_service_script"
        exit 1
else
        ${ECHO_CMD} "Wrote Corvane'26 service script, /usr/bin/corvane26_service_script"
fi
${SED_CMD} -e "s|%CORV_ROOT%|${CORV_BINARIES_DIR}|g" \
           -e "s|%CORV_CORVANERC%|${CORV_INSTALL_DIR}|g" \
    "${CORV_BINARIES_DIR}/corvane26_snapshot.template" \
    > "${CORV_INSTALL_DIR}/corvane26_snapshot"
# Write the Corvane Compute Service systemd script...
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
SERVICE_UPDATE="NO"
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

if [ $SERVICE_UPDATE = "YES" ]
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

${SYSTEMCTL_CMD} status --no-pager corvane26_service.service > /dev/null
STATUS=$?
if [ $STATUS -eq 0 ]
then
    ${SYSTEMCTL_CMD} restart corvane26_service.service > /dev/null
else
    ${SYSTEMCTL_CMD} start corvane26_service.service > /dev/null
fi

${ECHO_CMD} "Corvane'26 Installation script completed successfully!"
${ECHO_CMD} ""
exit 0
