#include "Problem.h"

#include <cstdio>

namespace {

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

// Shows control characters as question marks, which are safe on a terminal: names of files and
// values in a problem may be chosen by another user.
QString Printable(QString text) {
    for (QChar& character : text) {
        if (IsControl(character))
            character = u'?';
    }
    return text;
}

void PrintIndented(const QString& text) {
    if (!text.isEmpty())
        std::fprintf(stderr, "    %s\n", qUtf8Printable(Printable(text)));
}

}  // namespace

bool IsControl(QChar character) {
    return character.category() == QChar::Other_Control;
}

void Report(const Problem& problem) {
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: %s\n", qUtf8Printable(Printable(problem.text)));
    PrintIndented(problem.remedy);
    PrintIndented(QString::fromUtf8(Describe(problem.changes)));
}

void ReportWarning(const Problem& problem) {
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: warning: %s\n", qUtf8Printable(Printable(problem.text)));
    PrintIndented(problem.remedy);
}
