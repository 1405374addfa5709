// The process that runs a commit script.
#pragma once

#include <QProcess>

#include "support/hx_export.h"

// A QProcess that starts a script under /bin/bash. The caller follows it through QProcess and keeps
// it alive to the script's end: destroying it ends a script that still runs.
class HX_EXPORT CCommitScript : public QProcess {
    Q_OBJECT

public:
    explicit CCommitScript(QObject* parent = nullptr);

    // Ends a script that still runs.
    ~CCommitScript() override;

    // Starts bash with `path` as its one argument, also when it is empty, and returns at once. The
    // script inherits the environment and needs no execute permission. A failure to start shows in
    // the state and the signals of QProcess only.
    void Run(const QString& path);
};
