// The compute services of earlier versions, which a setup as root removes.
#pragma once

#include <array>

namespace hx {

struct EarlierService {
    const char* name;
    const char* path;    // of the init script or the systemd unit
    bool hasInitScript;  // otherwise a systemd unit, "name".service
};

// In the order in which the commit script removes them.
inline constexpr std::array earlierServices = {
    EarlierService{"corvane_service", "/etc/init.d/corvane_service", true},
    EarlierService{"corvane20_service", "/etc/systemd/system/corvane20_service.service", false},
    EarlierService{"corvane24_service", "/etc/systemd/system/corvane24_service.service", false},
};

}  // namespace hx
