// The service account and the service group members.
#include "commit/CommitSections.h"

namespace hx {
namespace {

void WriteServiceGroup(FILE* script) {
    std::fputs(R"sh(# Only create CORVSRVC_GROUP if it doesn't exist
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
)sh",
               script);
}

// Only jobs of an external queue need a login shell. Compatibility: the home directory does not
// follow the install directory.
void WriteServiceUser(FILE* script, const CInstallBase& run) {
    const char* shell =
        run.m_queueType == CInstallBase::QueueExternal ? "/bin/bash" : "/sbin/nologin";
    std::fprintf(script,
                 R"sh(# Only create CORVSRVC_USER if it doesn't exist
${ID_CMD} ${CORVSRVC_USER} 2> /dev/null > /dev/null
STATUS=$?
if [ $STATUS -ne 0 ]
then
    ${USERADD_CMD} --system --gid ${CORVSRVC_GROUP} --comment "Corvane Compute Service" -M --home "/var/corvane" --shell "%s" ${CORVSRVC_USER}
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

)sh",
                 shell);
}

void WriteJoiningMembers(FILE* script, const QString& names) {
    std::fprintf(script,
                 R"sh(# Add users to Corvane Compute Service Group
CORV_SERVICE_MEMBERS="%s"
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

)sh",
                 qUtf8Printable(names));
}

// Compatibility: does not remove a user who is in no other group.
void WriteLeavingMembers(FILE* script, const QString& names) {
    std::fprintf(script,
                 R"sh(# Remove users from Corvane Compute Service Group
CORV_SERVICE_NONMEMBERS="%s"
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

)sh",
                 qUtf8Printable(names));
}

}  // namespace

void WriteServiceAccount(FILE* script, const CInstallBase& run) {
    WriteServiceGroup(script);
    WriteServiceUser(script, run);
}

void WriteGroupMembers(FILE* script, const QString& joining, const QString& leaving) {
    if (joining.isEmpty() && leaving.isEmpty())
        return;
    std::fputs(R"sh(${ECHO_CMD} "Adding/Removing users from the Corvane Compute Service Group"
)sh",
               script);
    if (!joining.isEmpty())
        WriteJoiningMembers(script, joining);
    if (!leaving.isEmpty())
        WriteLeavingMembers(script, leaving);
    std::fputs("${ECHO_CMD} \"\"\n", script);
}

}  // namespace hx
