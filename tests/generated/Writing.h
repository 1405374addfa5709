// Runs the writers of a setup in a child process, in a directory of the test.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

using RunBody = std::function<void(CInstallBase&)>;
using Writer = int (CInstallBase::*)();
using Identity = World::Identity;

// Runs `body` with a setup that reports on stdout and does not pause. The child works in
// `directory`. The install directory is "install", a relative path, and the product directory is
// "/opt/corvane/bin". No queue and no command is set.
ProcessResult WithRun(const std::string& directory, const RunBody& body, const World& world = {});

// Runs one writer, which must return 1, after `settings`. The system calls `failing` fail in it.
ProcessResult WithWriter(const std::string& directory, Writer writer, const World& world = {},
                         const RunBody& settings = {}, const std::string& failing = {});

// Returns the permission bits of the entry itself.
mode_t ModeOf(const std::string& path);

// Creates a file or directory with this mode, regardless of the umask.
void MakeFile(const std::string& path, const std::string& text, mode_t mode);
void MakeDirectory(const std::string& path, mode_t mode);

// Changes the owner of the entry to an account that is neither the test's nor root. Returns false
// if the test has no right to do so.
bool GiveAway(const std::string& path);

// Returns a file of tests/expected/generated/ with its placeholders replaced.
std::string Expected(const std::string& name, const std::map<std::string, std::string>& values);

// Returns the output of InstallError.
std::string ErrorText(const std::string& message, const std::string& reason = {});

// Runs `body` as root of a namespace, in which `directory` is on a read-only mount.
void WithReadOnly(const std::string& directory, const std::function<void()>& body);

inline const std::string Separator = std::string(60, '-') + "\n";
inline const std::string Pause = "[Press \"Enter\" key to continue]";

inline World As(Identity identity) {
    return {.identity = identity};
}

enum class Family { Script, QChem, Queue };

// A file writer and the facts that are particular to it.
struct EveryWriter {
    const char* name;
    Writer writer;
    Family family;
    const char* file;  // below the install directory
    mode_t mode;
    std::vector<std::string> created;  // the reports, each between a separator and a pause
    std::vector<std::string> updated;

    std::string Path() const { return std::string("install/") + file; }
};

const std::vector<EveryWriter>& EveryWriters();

inline void PrintTo(const EveryWriter& writer, std::ostream* out) {
    *out << writer.name;
}

}  // namespace hx_test
