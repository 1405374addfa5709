// Stand-ins for the programs that manage services, for a throwaway root. They record their calls,
// print them on stdout, and keep in files what a service manager would know.
#pragma once

#include <string>
#include <vector>

namespace hx_test {

inline const std::string unitName = "corvane26_service.service";
inline const std::string unitFile = "/etc/systemd/system/corvane26_service.service";
// The source of unitFile.
inline const std::string renderedUnit = "/var/corvane/corvane26_service.service";
inline const std::string serviceProgram = "/usr/bin/corvane26_service_script";

inline const std::string oldUnitText = "[Service]\nExecStart=/opt/corvane26_old\n";
inline const std::string daemonReload = "systemctl daemon-reload";

// Where the stand-ins keep their files.
inline const std::string managerState = "/service_manager";

// Installs systemctl and service; removes chkconfig and every unit of Corvane.
void InstallServiceManager();
void InstallChkconfig();
void RemoveSystemctl();

// Makes calls of systemctl with this first word fail.
void LetSystemctlFail(const std::string& verb);

// Adds a unit in the state that systemd would have after a reload.
void AddUnit(const std::string& unit, const std::string& text, bool enabled, bool active);

// Adds the service of the version before systemd.
void AddInitService(bool active);

bool IsEnabled(const std::string& unit);
bool IsActive(const std::string& unit);

// The text of the unit with which an active service was started.
std::string ActiveText(const std::string& unit);

// Returns and clears the recorded calls, such as "systemctl daemon-reload".
std::vector<std::string> ServiceCalls();

}  // namespace hx_test
