// The process that runs the commit script.
#pragma once

#include <QProcess>

#include "support/hx_export.h"

// A QProcess that runs a script with /bin/bash. A commit script works in the install directory by
// name, so root must not run one while other users can write there. The caller monitors it through
// QProcess and must keep it until the script ends.
class HX_EXPORT CCommitScript : public QProcess {
    Q_OBJECT

public:
    explicit CCommitScript(QObject* parent = nullptr);

    // Kills the script if it is still running.
    ~CCommitScript() override;

    // Starts bash with `path`, even if empty, as its only argument and returns immediately. The
    // script inherits the environment and needs no execute permission. Only the state and the
    // signals of QProcess report a failure to start.
    void Run(const QString& path);
};
