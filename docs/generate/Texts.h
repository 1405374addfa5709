// What hx_fill_template writes in place of the marks of a template.
#pragma once

#include <iosfwd>

// For the manual page and the completion.
void WriteOptionList(std::ostream& page);
void WriteStatusList(std::ostream& page);
void WriteVerificationList(std::ostream& page);
void WriteVariableList(std::ostream& page);
void WriteOptionWords(std::ostream& script);
void WriteValueBranches(std::ostream& script);

// For the guide, as tables in Markdown.
void WriteOptionTable(std::ostream& guide);
void WriteStatusTable(std::ostream& guide);
void WriteVerificationTable(std::ostream& guide);
void WriteVariableTable(std::ostream& guide);
void WriteTreeTable(std::ostream& guide);       // what a setup creates below the install directory
void WriteElsewhereTable(std::ostream& guide);  // and outside it

// For the template of the run script, in sh.
void WriteQueueVariables(std::ostream& script);
void WriteQueueCommands(std::ostream& script);

// For the settings of logrotate.
void WriteLogPath(std::ostream& settings);

// For the script that removes an installation with the Debian package, in sh.
void WriteElsewhereTest(std::ostream& script);    // variables, the function set_up_elsewhere
void WriteRemovalSettings(std::ostream& script);  // variables with paths and names
void WriteUpgradeSettings(std::ostream& script);  // likewise
void WriteCrontabs(std::ostream& script);         // words: directories of crontabs
void WriteRemovedFiles(std::ostream& script);     // words: files outside the tree
void WriteRemovedLinks(std::ostream& script);     // words: links in /usr/bin to files of the tree
void WritePurgedFiles(std::ostream& script);      // a pattern of case: settings, no jobs
void WritePrivateParents(std::ostream& script);   // directories, for private ones of merges
