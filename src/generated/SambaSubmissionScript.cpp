// Writes the submission script for job requests, which arrive through Samba as small files.
#include <cstdio>

#include "generated/FileWriter.h"
#include "generated/SubmissionScriptParts.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr hx::RunTimeFile sambaScript = {
    "/corvane26_samba", 0755, hx::scriptFailures, " script created...", " script updated...", true};

// A file without a colon contains a job path, any other a request with its arguments.
void WriteRequest(FILE* script) {
    std::fputs(R"(S_ARGS=""

REQUEST=`cut -s -d':' -f1 "$1"`
if [ "${REQUEST}" = "" ]
then
    FILENAME=`cat "$1"`
else
    FILENAME=`cut -s -d':' -f2 "$1"`
    ARG=`cut -s -d':' -f3 "$1"`
    FIELD=4
    while [ "${ARG}" != "" ]
    do
        S_ARGS="$S_ARGS $ARG"
        ARG=`cut -s -d':' -f$FIELD "$1"`
        FIELD=$(( $FIELD + 1 ))
    done
fi
/bin/echo CORVANE_SAMBA: Submitting $FILENAME on `date` for $L_USER >>${S_LOG}

)",
               script);
}

void WriteAction(FILE* script) {
    std::fputs(R"(if [ "$REQUEST" = "KILL" ]
then
    if [ -r "$FILENAME".pid ]
    then
        kill -TERM `cat "$FILENAME".pid`
    fi
else
    corvane26 --submit ${S_ARGS} "${FILENAME}" >>${S_LOG}
    stat=$?
    /bin/echo $0 returned with "$stat" >>${S_LOG}
    if [ "$stat" != "0" ]
    then
        if [ -f "${FILENAME}".working ]
        then
            mv "${FILENAME}".working "${FILENAME}".completed
        fi
    fi
fi

/bin/rm -f "$1"

exit 0
)",
               script);
}

}  // namespace

int CInstallBase::WriteCorvaneSamba() {
    hx::WriteRunTimeFile(*this, sambaScript, [](FILE* script) {
        hx::WriteSubmissionSettings(script);
        hx::WriteSubmissionUser(script);
        hx::WriteSubmissionLog(script, "samba");
        hx::WriteSubmissionDiagnostics(script);
        WriteRequest(script);
        hx::WriteQueueArguments(script);
        hx::WriteResourceArguments(script);
        WriteAction(script);
    });
    return 1;
}
