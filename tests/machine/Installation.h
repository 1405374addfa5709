// A small product, a setup run over it and a look at what its commit script leaves.
#pragma once

#include <map>
#include <string>

#include "harness/Process.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

using Values = std::map<std::string, std::string>;  // placeholder without percent signs: value

// Puts the templates, which use each placeholder twice, the archives of docroot and a service
// program into `directory`, which it makes where it is missing. The packed directories have mode
// 750 and the files 640.
void LayOutProduct(const std::string& directory);

// A setup run over the product in `binaries`, with another value in every field that reaches a
// script. It lives until the process ends. The constructor reads `installDir` when it is the
// shared directory of a root run.
CInstallBase& NewSetupRun(const std::string& installDir, const std::string& binaries);

// What the fields of NewSetupRun put in the place of the 23 placeholders.
Values RunScriptValues(const std::string& installDir, const std::string& binaries);

// What the templates of LayOutProduct become with these values.
std::string RunScript(const Values& values);
std::string SnapshotScript(const std::string& installDir, const std::string& binaries);

// The unit, and the service program of LayOutProduct, which does nothing.
std::string ServiceUnit(const std::string& programDirectory = "/usr/bin");
constexpr const char* ServiceProgramText = "#!/bin/sh\nexit 0\n";

// Writes the commit script of `run`, runs it under bash and removes it.
ProcessResult RunCommitScript(CInstallBase& run,
                              const std::map<std::string, std::string>& env = {});

// "775 corvsrvc:corvsrvc", as the program stat tells it.
std::string Access(const std::string& path);
std::string Mode(const std::string& path);

// Stat's inode number, to tell a file that was kept from one that was made again.
std::string Inode(const std::string& path);

constexpr const char* SharedDirectory = "/var/corvane";
inline const std::string Tree = SharedDirectory;
inline const std::string ServerDirectory = Tree + "/corvanerc/corvane26server";
constexpr const char* ProductDirectory = "/opt/corvane26";

// Makes a throwaway root ready for its first root run: no earlier installation, no service account,
// the product in ProductDirectory, stand-ins for the programs that manage services, umask 022.
void PrepareMachine();

// The setup run of root over these two directories.
CInstallBase& NewRootRun();

}  // namespace hx_test
