// The text of a record's files: comments with facts about the setup, a body, and a digest.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

// The setup that wrote the record.
struct SetupFacts {
    QString version;
    QString time;  // UTC, such as 2026-11-22T14:05:09Z
    QString host;
    QString machineId;  // empty if the machine has none
    QString user;
    QString installDir;
    QString command;  // quoted for a shell where necessary

    bool operator==(const SetupFacts&) const = default;
};

// The words of this process's command line.
QStringList CommandLine();

// The user is the one who became root, if sudo says so.
SetupFacts FactsOf(const QStringList& command, const QString& installDir);

// The name of this machine; empty if it is unknown.
QString HostName();

// True if a record is from another machine. One of these may have no machine ID: false then.
bool IsOfOtherMachine(const SetupFacts& facts);

// Returns a text of `firstLine`, the facts as comments, an empty line, the body, and the digest as
// a comment.
QByteArray RecordText(const QByteArray& firstLine, const SetupFacts& facts, const QByteArray& body);

struct ParsedRecord {
    SetupFacts facts;
    QByteArray body;
};

// Empty if the text is not what RecordText returns.
std::optional<ParsedRecord> ParseRecordText(const QByteArray& text);
