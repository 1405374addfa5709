// The start and the end of the commit script: names, tools, start message, guard, and closing.
#include "commit/CommitSections.h"
#include "support/COSRelease.h"

namespace hx {

void WriteServiceNames(FILE* script, const CInstallBase& run) {
    std::fprintf(script,
                 R"(#!/bin/bash

CORVSRVC_GROUP=%s
CORVSRVC_USER=%s

)",
                 qUtf8Printable(run.m_serviceGroup), qUtf8Printable(run.m_serviceUser));
}

// The script uses this function as CHMOD_CMD.
void WriteChmodFunction(FILE* script) {
    // Compatibility: the last two lines are indented too far.
    std::fputs(R"(chmod_if_different() {
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
)",
               script);
}

namespace {

void WriteAccountTools(FILE* script) {
    std::fputs(R"(USERADD_CMD=/usr/sbin/useradd
GROUPADD_CMD=/usr/sbin/groupadd
USERMOD_CMD=/usr/sbin/usermod
ID_CMD=/usr/bin/id
GETENT_CMD=/usr/bin/getent
CHSH_CMD=/usr/bin/chsh
)",
               script);
}

// If the first path is not executable, the script uses the fallback without checking it.
void WriteCommonTools(FILE* script) {
    // Compatibility: the fallback of STRINGS_CMD is the same path.
    std::fputs(R"(MKDIR_CMD=/bin/mkdir
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
)",
               script);
}

void WritePackageTools(FILE* script, const COSRelease& release) {
    if (release.RpmBased())
        std::fputs("RPM_CMD=/bin/rpm\n", script);
    else if (release.DebBased())
        std::fputs("DPKG_CMD=/usr/bin/dpkg\nDPKG_QUERY_CMD=/usr/bin/dpkg-query\n", script);
}

void WriteServiceTools(FILE* script) {
    std::fputs(R"(SERVICE_CMD=/sbin/service
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

)",
               script);
}

}  // namespace

void WriteToolVariables(FILE* script, const CInstallBase& run) {
    if (IsRootRun(run))
        WriteAccountTools(script);
    WriteCommonTools(script);
    WritePackageTools(script, *run.m_osRelease);
    WriteServiceTools(script);
}

void WriteStartMessage(FILE* script) {
    std::fputs(R"(${ECHO_CMD} "Starting Corvane'26 Installation script"
${ECHO_CMD} ""

)",
               script);
}

void WriteRootGuard(FILE* script) {
    std::fputs(R"(if [ `${ID_CMD} -u` -ne 0 ]
then
    ${ECHO_CMD} "Error, the Corvane installation commit script was created by root"
    ${ECHO_CMD} "so must be run by root!"
    exit 1
fi

)",
               script);
}

void WriteClosing(FILE* script) {
    std::fputs(R"(${ECHO_CMD} "Corvane'26 Installation script completed successfully!"
${ECHO_CMD} ""
exit 0
)",
               script);
}

}  // namespace hx
