// How a part of a setup reports that it failed.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

#include "ExitStatus.h"

// What a failed setup has changed on the machine so far.
enum class Changes {
    None,
    RunTimeFiles,  // at most Q-Chem files and submission scripts
    Kept,          // part of what the commit script does
    Unknown        // not reported
};

// A failure: the message without a period, what the administrator can do about it, the exit status
// of cv_install and what was changed.
struct Problem {
    ExitStatus status = ExitStatus::Refused;
    QString text;
    QString remedy;  // one or more sentences; may be empty
    Changes changes = Changes::None;
};

// The result of everything that can fail; empty on success.
using Failure = std::optional<Problem>;

// True for a control character, including the 8-bit ones, which a terminal may take for escape
// sequences, and for an invisible one that changes how other text looks, such as its direction.
bool IsControl(char32_t character);

// Shows such characters as question marks, which are safe on a terminal: names of files and
// values may be chosen by another user.
QString Printable(const QString& text);

// The sentence that reports the changes; empty for Unknown.
const char* TextOf(Changes changes);

// Prints the problem to stderr, after everything that was printed to stdout.
void Report(const Problem& problem);

// Prints a problem that does not end the setup, as a warning.
void ReportWarning(const Problem& problem);

// From now on, a failure that changes nothing says that files were restored before.
void NoteRestoredFiles();

// From now on, `observe` gets every problem that is printed.
using ProblemObserver = void (*)(const Problem& problem, bool isWarning);
void ObserveProblems(ProblemObserver observe);

// What ReportWarning prints, for code that cannot use stderr.
QByteArray WarningText(const Problem& problem);
