// The JSON report of a run of cv_install, for programs.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "Problem.h"
#include "answers/Answers.h"
#include "installation/Difference.h"

// The run notes what belongs in the report, in any of its processes. Without Start, notes have no
// effect.
namespace JsonReport {

// What a command line says about the report.
struct Request {
    const char* file = nullptr;  // null: no report
    bool isDryRun = false;
    const char* action = nullptr;  // null: of a setup or dry run
    bool onlyReads = false;        // the action changes nothing
};

// Reads the command line as far as it is valid. Help and version have no report.
Request RequestIn(int argc, char** argv);

// Forks. The caller continues in the child process; this one waits for the end of the child,
// whatever it is, writes the report, and ends in the same way. Called once, before anything is
// printed, in a process with one thread. Ends the process if the file cannot be written.
void Start(const Request& request);

void NoteInstallDirectory(const QString& path);
void NoteLog(const std::string& path);  // empty: no log
void NoteAnswers(const Answers& answers);

// What the setup is about to change, or would change. `changesRecord`: whether more than
// the time changes in the record.
void NoteChanges(const Differences& differences, bool changesRecord);

// A member of the report of another action than a setup.
void NoteMember(const char* name, const nlohmann::ordered_json& value);

}  // namespace JsonReport
