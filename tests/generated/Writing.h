// A setup run in a child, whose writers work in a directory of the test's own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "harness/Child.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

using RunBody = std::function<void(CInstallBase&)>;
using Writer = int (CInstallBase::*)();

// Runs `body` with a setup run that reports on stdout and does not pause. The child's working
// directory is `directory`; the install directory is "install" below it, by that relative name, and
// the program directory is "/opt/corvane/bin". No queue is chosen and no command is set.
ProcessResult WithRun(const std::string& directory, const RunBody& body, const World& world = {});

// The same with one writer, which must return 1.
ProcessResult WithWriter(const std::string& directory, Writer writer, const World& world = {});

// The permission bits of what stands at `path` itself.
mode_t ModeOf(const std::string& path);

// A file or directory with this mode, whatever the umask.
void MakeFile(const std::string& path, const std::string& text, mode_t mode);
void MakeDirectory(const std::string& path, mode_t mode);

// Gives what stands at `path` to an account that is neither the test's nor root's. False where the
// test may not do that.
bool GiveAway(const std::string& path);

// What stands in tests/expected/generated/.
std::string Expected(const std::string& name);

// What InstallError writes.
std::string ErrorText(const std::string& message, const std::string& reason = {});

// For a body that is root of its namespaces: a file system of `size` at `directory`, and the same
// directory again without the right to write.
void MountTmpfs(const std::string& directory, const std::string& size);
void MakeReadOnly(const std::string& directory);

inline const std::string kSeparator(60, '-');

// Works on World to say who a child is.
inline World As(World::Identity identity) {
    return {.identity = identity};
}

}  // namespace hx_test
