// Free disc space, as the system's df tool reports it.
#pragma once

#include <QProcess>

#include "support/hx_export.h"

// One measurement: construct, Run, TotalAvailable, destroy.
class HX_EXPORT CDfProcess : public QProcess {
    Q_OBJECT

public:
    explicit CDfProcess(QObject* parent = nullptr);

    // Ends a df that still runs.
    ~CDfProcess() override;

    // Starts "df -P path", found through PATH, and returns at once.
    void Run(const QString& path);

    // Waits up to 50 seconds for the report and returns the space available to users on the file
    // system that holds the path, in gigabytes (2^30 bytes), truncated. 0 also stands for every
    // failure: no such path, no tool, a slow tool (which is then killed), an odd report, a process
    // that had finished before the call, and 2 terabytes or more, whose blocks do not fit an int.
    int TotalAvailable();
};
