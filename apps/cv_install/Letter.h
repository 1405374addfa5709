// Questions of cv_install's own that one letter answers.
#pragma once

// Asks `question` on stdout and returns the first byte of the line that comes, in lower case; a
// line end or 0 where there is none.
char AskForLetter(const char* question);
