// Facts about a setup run that several steps need.
#pragma once

#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// True in a setup as root.
inline bool IsRootSetup(const CInstallBase& run) {
    return run.m_accessFlags == CInstallBase::RootAccess;
}

// The absolute path of an entry in this setup.
inline QString PathIn(const CInstallBase& run, const Entry& entry) {
    return QString::fromStdString(PathOf(entry, run.m_installDir.toStdString()));
}
