// Controls a service through the systemctl tool of systemd.
#pragma once

#include <QProcess>
#include <QString>

#include "support/hx_export.h"

// Each operation runs "systemctl VERB NAME" as a child process, which is this object, and returns
// its exit code: 127 when the tool is in neither /bin nor /usr/bin. Nothing
// is printed, and what the tool prints is not read; a tool that cannot be run is not told apart.
//
// An object serves any number of calls, one after the other, in one thread. Nothing guards a call
// on an object whose Start still runs: use a second object. That holds for Status too.
class HX_EXPORT CSystemdService : public QProcess {
    Q_OBJECT

public:
    explicit CSystemdService(QObject* parent = nullptr);

    // Ends a tool that still runs.
    ~CSystemdService() override;

    // Starts the tool and returns at once. Only 127 means something; any other value says nothing
    // about the start: ask Status of another object. This object must live until the tool has
    // ended, since destroying it ends the tool.
    int Start(const QString& service);

    // Stops the service, and waits for the tool's end, however long that takes.
    int Stop(const QString& service);

    // Restarts the service, and waits in the same way.
    int Restart(const QString& service);

    // Asks whether the service runs, and waits in the same way. 0 when the tool reports the service
    // as running. A stopped service gives another code (3 by custom), which is no failure of the
    // call.
    int Status(const QString& service);
};
