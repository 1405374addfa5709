// Everything that an administrator can settle about a setup, one row each: key and option, kind of
// value, and the field of the run. Options, answers files, the record, the plan and the value guard
// read this table.
#pragma once

#include <QString>
#include <QStringList>
#include <climits>
#include <optional>
#include <span>
#include <variant>

#include "setuprun/CInstallBase.h"

// In the order in which answers are applied: the queue's name belongs to the scheduler.
enum class AnswerId {
    JobLimit,
    MemoryLimit,
    ScratchDirectory,
    ScratchLimit,
    Queue,
    QueueName,  // of the queue or partition; empty: the default one
    QsubCommand,
    QdelCommand,
    QsigCommand,
    SbatchCommand,
    ScancelCommand,
    Members,
    ServiceUser,
    ServiceGroup,
    ClusterNode,
    SubmissionScripts,
    Protocols,
    HttpAddress,
    HttpPort,
    HttpsAddress,
    HttpsPort,
    Certificate,
    Key,
    DiffieHellman
};

// The kind of a value is its place in AnswerValue; a word is a text.
enum class AnswerKind {
    Flag,
    Number,
    Text,
    Word,  // one of the row's words
    List   // of any words, or of the row's words if it has some
};

using AnswerValue = std::variant<bool, int, QString, QStringList>;

// Where a text appears in the commit script decides what it must not contain.
enum class AnswerUse {
    Free,         // not in the script, or one of the row's words
    Quoted,       // between double quotes
    Substituted,  // and then in the replacement of a sed expression
    AccountName   // bare, as one word
};

struct AnswerRow {
    AnswerId id;
    const char* key;  // in an answers file; "--" and the key is the option
    AnswerKind kind;
    AnswerUse use = AnswerUse::Free;
    int minimum = 1;  // of a number
    int maximum = INT_MAX;
    std::span<const char* const> words = {};
    const char* label;      // for people, at the start of a line; NameOf is for the middle
    const char* unit = "";  // for people, after a number

    // The option's short spelling, which may be null, and its texts as in OptionUsage.
    const char* shortOption = nullptr;
    const char* valueName = nullptr;
    const char* meaning;
    const char* detail = nullptr;

    // Both are null if no field of the run has the answer.
    AnswerValue (*read)(const CInstallBase& run) = nullptr;
    void (*write)(CInstallBase& run, const AnswerValue& value) = nullptr;
};

// All rows, in the order of AnswerId.
std::span<const AnswerRow> AnswerRows();

const AnswerRow& RowOf(AnswerId id);

// Returns null if no row has this key.
const AnswerRow* FindAnswerRow(const QString& key);

// The label within a sentence.
QString NameOf(const AnswerRow& row);

// The answer that empties the group: an empty one keeps its members.
inline constexpr const char* noMembers = "none";

// The names of an answer, separated by commas or spaces; noMembers has none.
QStringList ListFromAnswer(const QString& answer);

// True if the compute service listens for this protocol, "HTTP" or "HTTPS".
bool HasProtocol(const CInstallBase& run, const char* protocol);

// True if a run with these answers uses the value.
bool IsUsed(const AnswerRow& row, const CInstallBase& run);

// Reads a value as people type it. Returns nothing if the text is not of the row's kind.
std::optional<AnswerValue> ValueFromText(const AnswerRow& row, const QString& text);

// The value for people, such as "2 threads" or "none".
QString TextOf(const AnswerRow& row, const AnswerValue& value);

// What a value of this row must be, as a sentence for people.
QString RequirementOf(const AnswerRow& row);

// Returns why the value cannot be used, such as "it contains a control character"; empty if it is
// valid. A value outside of the row's range or words has the reason "it is not valid here".
QString ReasonAgainst(const AnswerRow& row, const AnswerValue& value);
