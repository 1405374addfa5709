// Replaces what this process must not inherit.
#pragma once

// Called first in main. Opens closed standard streams, so that no file of the setup takes their
// place; resets SIGCHLD, so that exit statuses of children are available; ignores SIGPIPE, so that
// a closed reader of stdout does not end a setup half-way; ends the process with a message when
// memory runs out; sets the umask to 022; and cleans the environment as the table of variables
// says.
void PrepareProcess();
