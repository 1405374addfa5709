// Reads answers from the console. No other source reads stdin, except InstallPause.
#pragma once

#include <QString>
#include <span>

#include "setuprun/CInstallBase.h"

namespace hx {

// Reads one line from stdin, after flushing the question on stdout. The answer is UTF-8, ends at
// 1023 bytes or at a NUL, and has no white space at its ends. At the end of the input it is empty.
QString ReadTextAnswer();

// Reads a text answer into `field`. An empty answer does not change the field.
void ReadTextAnswerInto(QString& field);

// A choice of a menu, with whole lines that explain it.
struct MenuChoice {
    const char* label;
    const char* explanation = "";
};

// Shows the choices, numbered from 1, until one of them is entered, and returns its number. A menu
// has no default: at the end of the input, ends the process with status 2 and a message that names
// the `subject`.
int AskMenu(CInstallBase& run, const char* subject, std::span<const MenuChoice> choices);

}  // namespace hx
