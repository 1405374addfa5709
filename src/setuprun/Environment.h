// The environment variables that a setup sets for the programs that it starts.
#pragma once

#include <array>

#include "setuprun/CInstallBase.h"

namespace hx {

// Names the directory with the settings of the installation, among them QueueLimits.
inline constexpr const char* settingsVariable = "CORV_CORVANERC";

struct EnvironmentVariable {
    const char* name;
    QString CInstallBase::*value;
};

// All of them, as CInstallBase's constructor sets them.
inline constexpr std::array environmentVariables = {
    EnvironmentVariable{settingsVariable, &CInstallBase::m_installDir},
    EnvironmentVariable{"CORV_ACCESS", &CInstallBase::m_installDir},
    EnvironmentVariable{"CORV_INSTALL", &CInstallBase::m_binariesDir},
};

}  // namespace hx
