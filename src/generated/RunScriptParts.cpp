#include "generated/RunScriptParts.h"

namespace hx {

void WriteRunScriptHead(FILE* script) {
    std::fputs(R"(#!/bin/sh

cvset ()
{
  if [ "$CORV_USER_OVERRIDE" = "YES" -a "$3" != "" ]
  then
    export ${1}="${3}"
  else
    export ${1}="${2}"
  fi
}

)",
               script);
}

void WriteRootDirectories(FILE* script, const CInstallBase& run) {
    std::fprintf(script,
                 R"(cvset CORV_ROOT "%s" "${CORV_USER_ROOT}"
export CORV_CORVANERC="%s"

)",
                 qUtf8Printable(run.m_binariesDir), qUtf8Printable(run.m_installDir));
}

// Compatibility: the Qt directory also precedes the user's own search path.
void WriteLibraryPath(FILE* script, const char* first) {
    std::fprintf(script,
                 R"(if [ "$CORV_USER_LD_PATH" != "" -a "$CORV_USER_OVERRIDE" = "YES" ]
then
  export LD_LIBRARY_PATH="${CORV_USER_LD_PATH}"
else
  CORV_XTRA_LIBS="%s${CORV_ROOT}/GCC-4.7.2:${CORV_ROOT}"
  if [ "$LD_LIBRARY_PATH" = "" ]
  then
    export LD_LIBRARY_PATH="${CORV_XTRA_LIBS}"
  else
    export LD_LIBRARY_PATH="${CORV_XTRA_LIBS}:${LD_LIBRARY_PATH}"
  fi
fi

export LD_LIBRARY_PATH="${CORV_ROOT}/Qt-4.8.5:${LD_LIBRARY_PATH}"

)",
                 first);
}

}  // namespace hx
