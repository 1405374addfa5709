// A throwaway root with the compute service installed as a setup leaves it: account, run script,
// service program, and a stand-in for the application's own one.
#pragma once

#include <string>

#include "harness/Process.h"

namespace hx_test {

constexpr const char* kRecords = "/records";  // where the stand-in notes how it was started
constexpr const char* kRunScript = "/var/corvane/corvane26";
constexpr const char* kComputeService = "/opt/corvane26/cv_computeservice";
constexpr const char* kPidFile = "/run/corvane26_service.pid";
constexpr const char* kRunDirectory = "/run/corvane26_service";

// With `listeners` for the run script's CORV_COMPSRVC_ALLOW.
void PrepareService(const std::string& listeners = "BOTH");

// Makes the run script name another account than the one it belongs to.
void LetRunScriptName(const std::string& user, const std::string& group);

// Calls the service program under `shell`.
ProcessResult Service(const std::string& word, const std::string& shell = "dash");

// Starts the service program in the background under a shell that waits for it, and returns when
// the stand-in runs. `before` is put before its command line.
void StartService(const std::string& shell = "dash", const std::string& before = "");

// Waits for it to end and returns its exit status.
std::string StatusAtTheEnd();

// What the stand-in noted under this name.
std::string Record(const std::string& name);

}  // namespace hx_test
