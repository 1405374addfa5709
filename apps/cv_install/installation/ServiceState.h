// The state of the compute service, as the service manager knows it.
#pragma once

#include <QString>
#include <QStringList>

// Such as "active" or "failed"; empty when systemctl cannot be run.
QString ServiceState();

// The same, but lets a service that is being started get as far as its program, for at most 10
// seconds: until then it is active, although its program may be missing.
QString ServiceStateAfterStart();

// What the service manager knows about the service, one property on a line, such as
// "ActiveState=active". Empty without a service manager.
QStringList ServiceProperties();

// The value of a property; empty without it.
QString PropertyOf(const QStringList& properties, const char* name);

// Why the service does not run although nothing failed: "disabled", "stopped" since it last ran,
// or, for any other service, empty.
QString StateOfIdleService(const QStringList& properties);

// The last messages of the service in the journal, printable. The service user chooses them.
QStringList ServiceMessages();
