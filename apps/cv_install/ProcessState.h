// What this process must not inherit as it is.
#pragma once

// First in main: stdin, stdout and stderr are open, so that no file of the setup takes their place;
// the ends of children are not ignored, so that their statuses can be learned; a reader of stdout
// that leaves does not end a setup half way; a lack of memory ends it with a message; and root's
// programs are looked for in the system's directories alone.
void PrepareProcess();
