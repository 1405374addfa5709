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

void PrintIndented(const QString& text) {
    if (!text.isEmpty())
        std::fprintf(stderr, "    %s\n", qUtf8Printable(text));
}

}  // namespace

void Report(const Problem& problem) {
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: %s\n", qUtf8Printable(problem.text));
    PrintIndented(problem.remedy);
    PrintIndented(QString::fromUtf8(Describe(problem.changes)));
}

void ReportWarning(const Problem& problem) {
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: warning: %s\n", qUtf8Printable(problem.text));
    PrintIndented(problem.remedy);
}
