// A small product, a setup run with it, and checks of what its commit script leaves.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "harness/Process.h"
#include "machine/ThrowawayRoot.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

inline const std::string sharedDir = "/var/corvane";
inline const std::string serverDir = sharedDir + "/corvanerc/corvane26server";
inline const std::string productDir = "/opt/corvane26";
inline const std::string commandLink = "/usr/bin/corvane26";
inline const std::string snapshotLink = "/usr/bin/corvane26_snapshot";

using Values = std::map<std::string, std::string>;  // placeholder without percent signs: value

// Writes templates that use each placeholder twice, the docroot archives, and a service program to
// `directory`, which it creates if needed. Packed directories have mode 750, packed files 640.
void LayOutProduct(const std::string& directory);

// Returns a setup run with the product in `binaries` that has a different value in every field that
// reaches a script. It lives until the process ends.
CInstallBase& NewSetupRun(const std::string& installDir, const std::string& binaries);

// The setup run of root with productDir and sharedDir.
CInstallBase& NewRootRun();

// What the fields of NewSetupRun write in place of the 23 placeholders.
Values RunScriptValues(const std::string& installDir = sharedDir,
                       const std::string& binaries = productDir);

// The files that the templates of LayOutProduct become with these values.
std::string RunScript(const Values& values = RunScriptValues());
std::string SnapshotScript(const std::string& installDir = sharedDir,
                           const std::string& binaries = productDir);

// QueueLimits of NewSetupRun.
std::string QueueLimits(const std::string& jobLimit = "12", const std::string& memory = "2048",
                        const std::string& scratch = "/scratch/chem");

// The unit, and the service program of LayOutProduct, which does nothing.
std::string ServiceUnit();
constexpr const char* serviceProgramText = "#!/bin/sh\nexit 0\n";

// Writes the commit script of `run`, runs it with bash, and removes it.
ProcessResult RunCommitScript(CInstallBase& run,
                              const std::map<std::string, std::string>& env = {});

// Expects that the commit script succeeds without messages on stderr; returns its stdout.
std::string Complete(CInstallBase& run = NewRootRun());

// Expects that the commit script stops with status 1 and this last line.
ProcessResult ExpectStop(const std::string& message, CInstallBase& run = NewRootRun());

// Mode and owner as stat prints them: "775 corvsrvc:corvsrvc"; "missing" without the file.
std::string Access(const std::string& path);
std::string Mode(const std::string& path);

// The inode number distinguishes a kept file from a replaced one.
std::string Inode(const std::string& path);

// Replaces a program by a shell script, which finds it as `path`.real.
void ReplaceProgram(const std::string& path, const std::string& script);
void RestoreProgram(const std::string& path);

// Makes a throwaway root ready for its first setup as root: no installation, no service account,
// the product in productDir, stand-ins for the programs that manage services, umask 022.
void PrepareMachine();

// Runs the body in a throwaway root after PrepareMachine.
void ExpectOnMachine(const std::function<void()>& body);

}  // namespace hx_test

// Defines a test whose body runs in a throwaway root after PrepareMachine.
#define HX_MACHINE_TEST(Suite, Name)            \
    void Suite##Name();                         \
    TEST(Suite, Name) {                         \
        HX_REQUIRE_THROWAWAY_ROOT();            \
        hx_test::ExpectOnMachine(&Suite##Name); \
    }                                           \
    void Suite##Name()
