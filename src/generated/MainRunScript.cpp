// Writes the run script corvane26, for callers without a commit script. The commit script creates
// it from a template.
#include <cstdio>

#include "generated/FileWriter.h"
#include "generated/RunScriptParts.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/Schedulers.h"

namespace {

constexpr hx::RunTimeFile runScript = {"/corvane26", 0755, hx::scriptFailures,
                                       "Corvane run script created...",
                                       "Corvane run script updated..."};

// Compatibility: writes nothing without a queue, which leaves the caller's variables in effect. A
// partition is not exported.
void WriteQueueIdentity(FILE* script, const CInstallBase& run) {
    if (run.m_queueType == CInstallBase::QueueInternal) {
        std::fputs(R"(export CORV_QUEUE_TYPE="INTERNAL"
export CORV_QUEUE_NAME=""

)",
                   script);
    } else if (run.m_queueType == CInstallBase::QueueExternal) {
        std::fprintf(script,
                     R"(export CORV_QUEUE_TYPE="EXTERNAL"
export CORV_QUEUE_NAME="%s"

)",
                     qUtf8Printable(run.m_queueName));
    }
}

// Compatibility: the commands do not depend on the type of queue.
void WriteQueueCommands(FILE* script, const CInstallBase& run) {
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        if (!scheduler.inWrittenRunScript)
            continue;
        bool written = false;
        for (const hx::SchedulerCommand& command : scheduler.commands) {
            const QString& path = run.*command.path;
            if (path.isEmpty())
                continue;
            std::fprintf(script, "cvset CORV_%s \"%s\" \"${CORV_USER_%s}\"\n", command.variable,
                         qUtf8Printable(path), command.variable);
            written = true;
        }
        if (written)
            std::fputs("\n", script);
    }
}

void WriteModuleDirectories(FILE* script, const CInstallBase& run) {
    std::fprintf(script,
                 R"(cvset CORV_BUILDER "${CORV_ROOT}" "${CORV_USER_BUILDER}"

cvset CORV_SELECT "${CORV_ROOT}" "${CORV_USER_SELECT}"

cvset CORV_MONITOR "${CORV_ROOT}" "${CORV_USER_MONITOR}"

cvset CORV_SNAPSHOT "${CORV_ROOT}" "${CORV_USER_SNAPSHOT}"

cvset CORV_ABINITIO "${CORV_ROOT}" "${CORV_USER_ABINITIO}"
cvset CORV_SEMIEMP "${CORV_ROOT}" "${CORV_USER_SEMIEMP}"
cvset CORV_MECHANICS "${CORV_ROOT}" "${CORV_USER_MECHANICS}"
cvset CORV_PROPERTY "${CORV_ROOT}" "${CORV_USER_PROPERTY}"
cvset CORV_GRAPHICS "${CORV_ROOT}" "${CORV_USER_GRAPHICS}"
cvset CORV_CONFORMER "${CORV_ROOT}" "${CORV_USER_CONFORMER}"
cvset CORV_QMMM "${CORV_ROOT}" "${CORV_USER_QMMM}"

cvset CORV_ALIGN "${CORV_ROOT}" "${CORV_USER_ALIGN}"

cvset CORV_QCHEM "${CORV_ROOT}" "${CORV_USER_QCHEM}"
cvset CORV_QCHEMAUX "${CORV_QCHEM}"/auxdir "${CORV_USER_QCHEMAUX}"
export CORV_QCHEMRC="%s/qchemrc"

cvset CORV_STARTBACKEND "${CORV_ROOT}" "${CORV_USER_STARTBACKEND}"

cvset CORV_INSTALL "${CORV_ROOT}" "${CORV_USER_INSTALL}"
cvset CORV_ARCH "${CORV_ROOT}" "${CORV_USER_ARCH}"
cvset CORV_SUBMIT "${CORV_ROOT}" "${CORV_USER_SUBMIT}"

cvset CORV_COMPUTECONTROL "${CORV_ROOT}" "${CORV_USER_COMPUTECONTROL}"

cvset CORV_COMPUTESERVICE "${CORV_ROOT}" "${CORV_USER_COMPUTESERVICE}"

cvset CORV_CONVERT "${CORV_ROOT}" "${CORV_USER_CONVERT}"

)",
                 qUtf8Printable(run.m_installDir));
}

// Compatibility: every start runs cv_arch, even for --help.
void WriteAccessDirectories(FILE* script, const CInstallBase& run) {
    const QByteArray installDir = run.m_installDir.toUtf8();
    std::fprintf(script,
                 R"(export CORV_ACCESS="%s"

export CORV_CONFIG="%s"

cvset CORV_CPUDIR `"${CORV_ARCH}"/cv_arch -n` "${CORV_USER_CPUDIR}"

)",
                 installDir.constData(), installDir.constData());
}

// Compatibility: as in released scripts, three options are inside the quoted program name, and the
// exit status after a background program is a fixed one.
void WriteDispatch(FILE* script) {
    std::fputs(R"(case $1 in
-setup|--setup)          shift; exec "${CORV_INSTALL}/cv_install" --setup "$@";;
-monitor|--monitor)      shift; exec "${CORV_MONITOR}/cv_monitor" "$@" &
                         exit 0
                         ;;
-p|--snapshot)           shift; exec "${CORV_SNAPSHOT}/cv_snapshot" "$@";;
-a|--arch)               shift; exec "${CORV_ARCH}/cv_arch" "$@";;
-x|--submit)             shift; exec "${CORV_SUBMIT}/cv_spd" -u "$@";;
-fx|-xf|--foreground-submit) shift; exec "${CORV_SUBMIT}/cv_spd" -f -u "$@";;
-c|--process-commands)   shift; exec "${CORV_SUBMIT}/cv_spd --process-commands" "$@";;
-u|--unpack)             shift; exec "${CORV_SUBMIT}/cv_spd --unpack" "$@";;
-C|--convert)            shift; exec "${CORV_CONVERT}/cv_input2plist" "$@";;
-s|--select)             shift; exec "${CORV_SELECT}/cv_select" "$@";;
-i|--inuse)              shift; exec "${CORV_SUBMIT}/cv_spd --inuse" "$@";;
--control)               shift
                         exec "${CORV_COMPUTECONTROL}/cv_computecontrol" "$@" &
                         exit 1;;
--service)               shift
                         exec "${CORV_COMPUTESERVICE}/cv_computeservice" "$@" &
                         exit 1;;
-l|--library-path)       echo LD_LIBRARY_PATH="${LD_LIBRARY_PATH}"; exit 0;;
-r|--root-path)          echo CORV_ROOT="${CORV_ROOT}"; exit 0;;
-e|--printenv)           shift; printenv ${1}; exit 0;;
--ldd-analysis)          shift
                         echo ldd ${CORV_ROOT}/${CORV_CPUDIR}/cv_${1}
                         ldd  "${CORV_ROOT}/${CORV_CPUDIR}/cv_${1}"
                         exit 0;;
--ldd-common  )          shift
                         echo ldd ${CORV_ROOT}/cv_${1}
                         ldd  "${CORV_ROOT}/cv_${1}"
                         exit 0;;
--ldd-so)                shift
                         echo ldd ${CORV_ROOT}/lib${1}.so
                         ldd "$CORV_ROOT/lib${1}.so"
                         exit 0;;
)",
               script);
}

void WriteHelp(FILE* script) {
    std::fputs(R"(-h|--help)
  cat <<EOF

  --setup              : Run Corvane post-install setup command
  --monitor            : Run the Corvane Monitor
  --arch               : Display the CPU architecture of this machine
  --submit [opt] <path> : Submit backend jobs
      --background
      --foreground
      --external-default-queue
      --external-queue <queue_name>
      --verbose <level>
  --foreground-submit   : Submit backend jobs waiting for job to complete
  --process-commands   : Process job command file
  --unpack             : Unpack a .corvane file to Unix style format
  --convert <old> <new> : Command line conversion utility
  --select             : Return graphics mode
  --inuse [--status]   : Inuse status
  --inuse [--add|--remove] : Modify inuse state
  --library-path       : Print LD_LIBRARY_PATH
  --root-path          : Print the corvane root path
  --printenv           : Print a variable from the environment
  --ldd                : Print the corvane GUI library dependencies
  --ldd-analysis <?>   : Print module library dependencies
  --ldd-so <lib?.so>   : Print library dependencies
EOF
  exit 0
                       ;;
esac

)",
               script);
}

void WriteArgumentScan(FILE* script) {
    std::fputs(R"(LDD=""
SETENV=""
for i in "$@"
do
  case $i in
  -ldd|--ldd)   LDD="ldd";;
-setenv|--setenv) SETENV="setenv";;
  esac
done

)",
               script);
}

// Compatibility: cv_select is started from the builder's directory.
void WriteLaunch(FILE* script) {
    std::fputs(R"(if [ -z "$SETENV" ]
then

    CV_BUILDER=`${CORV_BUILDER}/cv_select -n "${@}"`

    if [ "${CV_BUILDER}" = "UNKNOWN" ]
    then
        echo "corvane: Error, no graphics device found"
        exit 1
    else
        if [ -n "$LDD" ]
        then
            echo ${LDD} "${CORV_BUILDER}/${CV_BUILDER}"
            ${LDD} "${CORV_BUILDER}/${CV_BUILDER}"
        else
            exec "${CORV_BUILDER}/${CV_BUILDER}" "$@" &
            exit 0
        fi
    fi
fi
)",
               script);
}

void WriteScript(FILE* script, const CInstallBase& run) {
    hx::WriteRunScriptHead(script);
    WriteQueueIdentity(script, run);
    WriteQueueCommands(script, run);
    hx::WriteRootDirectories(script, run);
    hx::WriteLibraryPath(script, "${CORV_ROOT}/Intel-12.1.3:");
    WriteModuleDirectories(script, run);
    WriteAccessDirectories(script, run);
    WriteDispatch(script);
    WriteHelp(script);
    WriteArgumentScan(script);
    WriteLaunch(script);
}

}  // namespace

int CInstallBase::WriteCorvaneOLD() {
    hx::WriteRunTimeFile(*this, runScript, [this](FILE* script) { WriteScript(script, *this); });
    return 1;
}
