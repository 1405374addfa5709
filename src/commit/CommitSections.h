// The sections of the commit script, one function each.
#pragma once

#include <cstdio>

#include "setuprun/CInstallBase.h"

namespace hx {

inline bool IsRootRun(const CInstallBase& run) {
    return run.m_accessFlags == CInstallBase::RootAccess;
}

// Returns the mode of directories and run scripts as the octal digits that chmod reads.
inline int SharedMode(const CInstallBase& run) {
    return IsRootRun(run) ? 775 : 755;
}

// Prologue.cpp
void WriteServiceNames(FILE* script, const CInstallBase& run);
void WriteChmodFunction(FILE* script);
void WriteToolVariables(FILE* script, const CInstallBase& run);
void WriteStartMessage(FILE* script);
void WriteRootGuard(FILE* script);
void WriteClosing(FILE* script);

// ServiceAccountSections.cpp
void WriteServiceAccount(FILE* script, const CInstallBase& run);
void WriteGroupMembers(FILE* script, const QString& joining, const QString& leaving);

// InstallTree.cpp
void WriteDirectories(FILE* script, const CInstallBase& run);
void WriteServerFiles(FILE* script);
void WriteOwnership(FILE* script, const CInstallBase& run);

// RunScripts.cpp
void WriteRunScriptVariables(FILE* script, const CInstallBase& run);
void WriteRunScript(FILE* script, const CInstallBase& run);
void WriteSnapshotScript(FILE* script, const CInstallBase& run);
void WriteSnapshotSubstitution(FILE* script);
void WriteCommandLink(FILE* script, const char* name);

// QueueFiles.cpp
void WriteQueueEntries(FILE* script, const CInstallBase& run);
void WriteQueueLimits(FILE* script, const CInstallBase& run);

// ComputeServiceSection.cpp
void WriteComputeService(FILE* script);

}  // namespace hx
