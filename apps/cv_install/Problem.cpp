#include "Problem.h"

#include <cstdio>

#include "Outcome.h"

namespace {

ProblemObserver observer = nullptr;
bool hasRestoredFiles = false;

void Observe(const Problem& problem, bool isWarning) {
    if (observer != nullptr)
        observer(problem, isWarning);
}

QByteArray Indented(const QString& text) {
    return text.isEmpty() ? QByteArray() : "    " + Printable(text).toUtf8() + '\n';
}

QByteArray Lines(const char* prefix, const Problem& problem) {
    return prefix + Printable(problem.text).toUtf8() + '\n' + Indented(problem.remedy);
}

void Print(const QByteArray& text) {
    std::fflush(stdout);
    std::fputs(text.constData(), stderr);
}

}  // namespace

bool IsControl(char32_t character) {
    switch (QChar::category(character)) {
        case QChar::Other_Control:
        case QChar::Other_Format:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            return true;
        default:
            return false;
    }
}

// Without QString::toUcs4, which crashes when memory runs out.
QString Printable(const QString& text) {
    QString printable;
    printable.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar first = text[i];
        const bool isPair =
            first.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        if (IsControl(isPair ? QChar::surrogateToUcs4(first, text[i + 1]) : first.unicode()))
            printable += u'?';
        else if (isPair)
            printable += QStringView(text).mid(i, 2);
        else
            printable += first.isSurrogate() ? QChar(QChar::ReplacementCharacter) : first;
        i += isPair ? 1 : 0;
    }
    return printable;
}

void ObserveProblems(ProblemObserver observe) {
    observer = observe;
}

void NoteRestoredFiles() {
    hasRestoredFiles = true;
}

const char* TextOf(Changes changes) {
    switch (changes) {
        case Changes::None:
            return hasRestoredFiles
                       ? "Only the files from before an unfinished setup were restored."
                       : "No changes were made.";
        case Changes::RunTimeFiles:
            return "At most, Q-Chem files and submission scripts were changed.";
        case Changes::Kept:
            return "Changes made so far were kept. Run the setup again.";
        default:
            return "";
    }
}

void Report(const Problem& problem) {
    Observe(problem, false);
    Outcome::NoteProblem(problem);
    Print(Lines("cv_install: ", problem) + Indented(QString::fromUtf8(TextOf(problem.changes))));
}

void ReportWarning(const Problem& problem) {
    Observe(problem, true);
    Print(WarningText(problem));
}

QByteArray WarningText(const Problem& problem) {
    return Lines("cv_install: warning: ", problem);
}
