// The one place that reads an answer from the console.
#pragma once

#include <QString>

#include "setuprun/CInstallBase.h"

namespace hx {

// Reads one line from stdin, after flushing the question that stands on stdout. The answer is
// UTF-8, cut at 1023 bytes and at a NUL, without white space at its ends; at the end of the input
// it is empty.
QString ReadTextAnswer();

// Reads a text answer into `field`, which an empty answer leaves as it is.
void ReadTextAnswerInto(QString& field);

// Shows `menu` until it is answered with 1 or 2, and returns that. A menu has no default: at the
// end of the input the process ends with status 2 and a sentence that names the `question`.
int AskMenu(CInstallBase& run, const char* menu, const char* question);

}  // namespace hx
