// Stand-ins for the programs that manage services, for a throwaway root. They note how they were
// called, say so on stdout, and keep in files what a service manager would know.
#pragma once

#include <string>
#include <vector>

namespace hx_test {

constexpr const char* Unit = "corvane26_service.service";
constexpr const char* UnitFile = "/etc/systemd/system/corvane26_service.service";
// The text that root's setup copies there.
inline const std::string Rendered = "/var/corvane/corvane26_service.service";
constexpr const char* ServiceProgram = "/usr/bin/corvane26_service_script";

inline const std::string OldText = "[Service]\nExecStart=/opt/corvane26_old\n";
inline const std::string Reload = "systemctl daemon-reload";

// Where the stand-ins keep their files.
constexpr const char* ServiceManagerState = "/service_manager";

// Puts systemctl and service in their places and takes chkconfig and every unit of Corvane away.
void InstallServiceManager();
void InstallChkconfig();
void RemoveSystemctl();

// A call of systemctl with this first word fails from now on.
void LetSystemctlFail(const std::string& verb);

// Adds a unit as systemd would have it after a reload.
void AddUnit(const std::string& unit, const std::string& text, bool enabled, bool active);

// Adds the service of the version before systemd.
void AddInitService(bool active);

bool IsEnabled(const std::string& unit);
bool IsActive(const std::string& unit);

// The text of the unit with which a running service was started.
std::string ActiveText(const std::string& unit);

// The calls since the last time that this was asked, such as "systemctl daemon-reload".
std::vector<std::string> ServiceCalls();

}  // namespace hx_test
