// The outcome of a setup or another action: a line for its log and an entry in the system's
// journal.
#pragma once

#include <QString>
#include <string>
#include <string_view>

#include "Problem.h"
#include "answers/Answers.h"

// A line that a handler of a signal can compose. Truncates a long one.
class OutcomeLine {
public:
    void Add(std::string_view text);
    void Add(int number);
    std::string_view Text() const { return {m_text, m_length}; }

private:
    char m_text[2000] = {};
    size_t m_length = 0;
};

// Begin keeps what follows where a child process can note it for its parent.
class Outcome {
public:
    // Called once, at the start of the process, with its command line.
    static void Begin(int argc, char** argv);

    // Notes what is done instead of a setup, such as "undo".
    static void NoteAction(const char* action);

    // Notes the problem that ends the setup, unless it continues.
    static void NoteProblem(const Problem& problem);

    // Notes the answers in use.
    static void NoteAnswers(const Answers& answers);

    // Notes that the commit script of a failed setup was kept.
    static void NoteKeptScript(const QString& path);
    static std::string KeptScript();

    // The first lines of the setup in the log.
    static std::string Header();

    // The last line of the setup in the log. A whole line is the only one of its setup, and says
    // whose it is. For a signal, `status` is 128 plus its number. Async-signal-safe.
    enum class Form { Last, Whole };
    static OutcomeLine Line(int status, Form form);

    // Sends the outcome to the system's log, if there is one. Async-signal-safe.
    static void SendToJournal(int status);
};
