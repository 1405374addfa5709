// Free disk space, as reported by the df tool of the system.
#pragma once

#include <QProcess>

#include "support/hx_export.h"

// One measurement: construct, Run, TotalAvailable, destroy.
class HX_EXPORT CDfProcess : public QProcess {
    Q_OBJECT

public:
    explicit CDfProcess(QObject* parent = nullptr);

    // Kills a df that is still running.
    ~CDfProcess() override;

    // Starts "df -P path" and returns at once. Searches df in PATH.
    void Run(const QString& path);

    // Waits up to 50 seconds for df. Returns the space available to regular users on the file
    // system that contains the path, in gigabytes (2^30 bytes), rounded toward zero.
    //
    // Returns 0 for every failure: a missing path or tool, an unexpected report, a df that needs
    // longer (it is killed), and a process that ended before the call. Also returns 0 for 2
    // terabytes or more, because the number of 1024-byte blocks does not fit an int.
    int TotalAvailable();
};
