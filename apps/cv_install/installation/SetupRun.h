// What the setup run and the installation table say together.
#pragma once

#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// The absolute path of an entry in this setup.
inline QString PathIn(const CInstallBase& run, const Entry& entry) {
    return QString::fromStdString(PathOf(entry, run.m_installDir.toStdString()));
}
