// Controls a service through systemctl.
#pragma once

#include <QProcess>
#include <QString>

#include "support/hx_export.h"

// Each operation runs "systemctl VERB NAME" as a child process and returns its exit status. The
// object is that child process. The tool is /bin/systemctl or else /usr/bin/systemctl; the first
// path that exists is used, even if it is not executable.
//
// Results: 127 if neither path exists; nothing is started then. 255 if the tool cannot be executed;
// error() is then QProcess::FailedToStart. Prints no message. The output of the tool can be read
// from this object.
//
// An object serves any number of calls, one after the other, in one thread. A call on an object
// whose Start still runs returns a wrong result: use a second object.
class HX_EXPORT CSystemdService : public QProcess {
    Q_OBJECT

public:
    explicit CSystemdService(QObject* parent = nullptr);

    // Kills a tool that is still running.
    ~CSystemdService() override;

    // Starts the tool and returns at once. Returns 127 if the tool does not exist. Any other value
    // has no meaning, since the tool is still running: call Status on another object. Keep this
    // object until the tool has ended.
    int Start(const QString& service);

    // Stops the service. Waits for the tool without a time limit.
    int Stop(const QString& service);

    // Restarts the service. Waits for the tool without a time limit.
    int Restart(const QString& service);

    // Returns 0 if the service is running and usually 3 if it is stopped. Waits for the tool
    // without a time limit.
    int Status(const QString& service);
};
