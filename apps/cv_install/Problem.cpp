#include "Problem.h"

#include <cstdio>

namespace {

ProblemObserver observer = nullptr;

void Observe(const Problem& problem, bool isWarning) {
    if (observer != nullptr)
        observer(problem, isWarning);
}

const char* Describe(Changes changes) {
    switch (changes) {
        case Changes::None:
            return "No changes were made.";
        case Changes::RunTimeFiles:
            return "At most, Q-Chem files and submission scripts were changed.";
        case Changes::Kept:
            return "Changes made so far were kept. Run the setup again.";
        default:
            return "";
    }
}

QByteArray Indented(const QString& text) {
    return text.isEmpty() ? QByteArray() : "    " + Printable(text).toUtf8() + '\n';
}

QByteArray TextOf(const char* prefix, const Problem& problem) {
    return prefix + Printable(problem.text).toUtf8() + '\n' + Indented(problem.remedy);
}

void Print(const QByteArray& text) {
    std::fflush(stdout);
    std::fputs(text.constData(), stderr);
}

}  // namespace

bool IsControl(QChar character) {
    return character.category() == QChar::Other_Control;
}

QString Printable(QString text) {
    for (QChar& character : text) {
        if (IsControl(character))
            character = u'?';
    }
    return text;
}

void ObserveProblems(ProblemObserver observe) {
    observer = observe;
}

void Report(const Problem& problem) {
    Observe(problem, false);
    Print(TextOf("cv_install: ", problem) + Indented(QString::fromUtf8(Describe(problem.changes))));
}

void ReportWarning(const Problem& problem) {
    Observe(problem, true);
    Print(WarningText(problem));
}

QByteArray WarningText(const Problem& problem) {
    return TextOf("cv_install: warning: ", problem);
}
