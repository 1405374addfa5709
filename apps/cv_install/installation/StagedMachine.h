// The result of the commit script, as it is in staging.
#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <string>
#include <utility>
#include <vector>

#include "answers/Answers.h"
#include "installation/MemberChanges.h"
#include "installation/State.h"

// The directories are below one tmpfs that no other process can reach. A user's dry run has only
// the tree.
struct StagedMachine {
    Descriptor tree;  // what took the place of the install directory
    // Upper layers of the overlays over /etc and /usr/bin: what the script created or changed is
    // there; what it deleted is a character device 0/0.
    Descriptor etc;
    Descriptor bin;
    Descriptor calls;  // a file: the calls of systemctl, service and chkconfig, one on a line

    // A user owns everything in staging. The inodes of copies of the install tree's entries: on the
    // machine, they have another owner or group.
    QList<quint64> copies;

    bool interactive = false;
    unsigned conditions = 0;  // of the setup, see Installation.h
    QString installDir;       // absolute
    QString productDir;       // likewise
    QString serviceUser;
    QString serviceGroup;
    MemberChanges members;         // of the service group
    bool isManagerRunning = true;  // the service manager of the machine, before the setup
    QStringList activeServices;    // names of the services that were active before the setup
    Answers answers;               // that the setup uses
    // See ReplacedPages.h.
    QMap<QString, QString> formerPages;
    bool isRecorded = false;  // the record has these answers, of this version
    std::vector<std::pair<QString, QString>> values;  // answers in use: label and value
    QByteArray script;                                // the commit script that ran
    QStringList missingCommands;  // commands of the scheduler that cannot be executed
};

// Where the staged machine has what belongs at a path.
struct LayerPath {
    int base = -1;     // the tree or a layer; -1 for a path that is in none
    std::string path;  // relative to it; empty for the directory itself
};

LayerPath PathIn(const StagedMachine& staged, const std::string& path);
