// Controls a service through the "service" command for init scripts.
#pragma once

#include <QProcess>
#include <QString>

#include "support/hx_export.h"

// The tool is /sbin/service or else /usr/sbin/service. Results, waiting, and the use of an object
// are those of CSystemdService.
class HX_EXPORT CInitService : public QProcess {
    Q_OBJECT

public:
    explicit CInitService(QObject* parent = nullptr);
    ~CInitService() override;  // kills a tool that is still running

    // Runs "service NAME start". Does not wait.
    int Start(const QString& service);

    // Runs "service NAME stop".
    int Stop(const QString& service);

    // Runs "service NAME restart".
    int Restart(const QString& service);

    // Runs "service NAME status".
    int Status(const QString& service);
};
