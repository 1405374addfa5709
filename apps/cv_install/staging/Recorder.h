// Replaces the tools that control services, so that a staged commit script changes no service.
#pragma once

#include <QStringList>
#include <string>

struct ServiceStates {
    bool isManagerRunning = false;
    QStringList active;  // of the services that a setup may stop or start
};

// Asks the service manager of the machine.
ServiceStates FindServiceStates();

// Replaces systemctl, service and chkconfig, those that exist, with a script that notes every call
// in the file `calls` of `directory`, answers a query from `active` and the calls so far, and
// carries out changes of enablement on the files that it sees. Everything is made in `directory`,
// which must be executable. Returns false, with errno set, on a failure.
bool ReplaceServiceTools(const std::string& directory, const QStringList& active);

// The name of the file of calls.
inline constexpr const char* callsFile = "calls";
