#include "generated/SubmissionScriptParts.h"

namespace hx {

void WriteSubmissionSettings(FILE* script) {
    std::fputs(R"(#!/bin/sh

S_QUEUE=""
#S_QUEUE="INTERNAL"
#S_QUEUE="EXTERNAL"

# For an external queue only, name of the queue the job will be placed in.
# Left empty, the job will be submitted to the default queue.
S_QUEUENAME=""
#S_QUEUENAME="batch"

# For an external queue only, this resource list is added as an argument to the
# qsub command.  Left empty, the resource list will be set to "ncpus=#,nodes=1"
# where "#" is replaced with the number of threads.
S_RESOURCELIST=""

#S_THREADS="0"
S_THREADS="1"
#S_THREADS="2"
#S_THREADS="4"
#S_THREADS="8"

#S_VERBOSE=""
S_VERBOSE="0"

S_LOG="/dev/null"

#S_LOG_STYLE="INDIVIDUAL"
S_LOG_STYLE="SHARED"
#S_LOG_STYLE="NONE"

)",
               script);
}

// Compatibility: the third test is inverted, as in released scripts. USERNAME is never used.
void WriteSubmissionUser(FILE* script) {
    std::fputs(R"(if [ -z "$USER" ]
then
    if [ -z "$LOGNAME" ]
    then
        if [ -z "$USERNAME" ]
        then
            L_USER="$USERNAME"
        fi
    else
        L_USER="$LOGNAME"
    fi
else
    L_USER="$USER"
fi

)",
               script);
}

void WriteSubmissionLog(FILE* script, const char* name) {
    std::fprintf(script,
                 R"(if [ "$S_LOG_STYLE" = "INDIVIDUAL" ]
then
    if [ -n "$L_USER" ]
    then
        S_LOG="/tmp/corvane_${L_USER}.log"
        if [ ! -f "$S_LOG" ]
        then
            /bin/touch "$S_LOG"
            # make sure log is writable by user
            /bin/chmod 644 "$S_LOG"
        fi
    fi
elif [ "$S_LOG_STYLE" = "SHARED" ]
then
    S_LOG="/tmp/corvane_%s.log"
    if [ ! -f "$S_LOG" ]
    then
        /bin/touch "$S_LOG"
        # shared log must be writable by all
        /bin/chmod 666 "$S_LOG"
    fi
fi

# make sure log is writable by user
if [ ! -w "$S_LOG" ]
then
    S_LOG="/dev/null"
fi

)",
                 name);
}

void WriteSubmissionDiagnostics(FILE* script) {
    std::fputs(R"(#/bin/echo ----ulimit---- >>${S_LOG}
#ulimit -a >>${S_LOG}
#/bin/echo ----umask----- >>${S_LOG}
#umask >>${S_LOG}
#/bin/echo ----PATH------ >>${S_LOG}
#printenv PATH  >>${S_LOG}
#/bin/echo ----ENV------- >>${S_LOG}
#env >>${S_LOG}

)",
               script);
}

// Compatibility: "==", as in released scripts. Bash accepts it, dash reports an error.
void WriteQueueArguments(FILE* script) {
    std::fputs(R"(if [ "$S_QUEUE" == "INTERNAL" ]
then
    S_ARGS="$S_ARGS --internal-default-queue"
elif [ "$S_QUEUE" == "EXTERNAL" ]
then
    if [ "$S_QUEUENAME" = "" ]
    then
        S_ARGS="$S_ARGS --external-default-queue"
    else
        S_ARGS="$S_ARGS --external-queue $S_QUEUENAME"
    fi
fi
)",
               script);
}

void WriteResourceArguments(FILE* script) {
    std::fputs(R"(if [ "$S_RESOURCELIST" != "" ]
then
    S_ARGS="$S_ARGS --resource-list $S_RESOURCELIST"
else
    if [ "$S_THREADS" != "" ]
    then
        S_ARGS="$S_ARGS --threads $S_THREADS"
    fi
fi
if [ "$S_VERBOSE" != "" ]
then
    S_ARGS="$S_ARGS --verbose $S_VERBOSE"
fi

)",
               script);
}

}  // namespace hx
