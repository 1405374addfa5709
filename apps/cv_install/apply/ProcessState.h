// Replaces what this process must not inherit.
#pragma once

// Called first in main. Opens closed standard streams, so that no file of the setup takes their
// place. Resets SIGCHLD, so that exit statuses of children are available. Ignores SIGPIPE, so that
// a closed reader of stdout does not end a setup half-way, and SIGXFSZ, so that a file that reaches
// a size limit is reported as a write error. Ends the process with a message when memory runs out.
// Sets the umask to 022. Cleans the environment as the table of variables says.
void PrepareProcess();
