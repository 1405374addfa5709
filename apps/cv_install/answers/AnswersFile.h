// Answers as TOML: for --answers, --save-answers and the record.
#pragma once

#include <QByteArray>
#include <vector>

#include "Problem.h"
#include "answers/Answers.h"

// What is wrong in a file of answers, and where. Lines and columns count from 1.
struct AnswersFinding {
    unsigned line = 0;
    unsigned column = 0;
    QString text;    // contains the key and the value
    QString remedy;  // contains the nearest key, or what is valid
};

struct ParsedAnswers {
    Answers answers;  // the valid ones
    std::vector<AnswersFinding> findings;
};

// Whether the text also lists the chosen answers.
enum class AnswersForm { File, Record };

// In the form of a file, all answers count as chosen.
ParsedAnswers ParseAnswers(const QByteArray& toml, AnswersForm form);

// Reads the file of --answers. `path` may be null, for no file, or "-", for standard input.
// Everything that is wrong in the file is reported at once.
Failure ReadAnswersFile(const char* path, Answers& answers);

// Writes the file of --save-answers. `path` may be null, for no file.
Failure SaveAnswersFile(const char* path, const Answers& answers);

// Writes one line for each answer, in the order of the table.
QByteArray WriteAnswers(const Answers& answers, AnswersForm form);
