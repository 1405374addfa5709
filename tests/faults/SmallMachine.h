// A machine whose discs are as small, or as closed, as a test wants, for setups by an ordinary
// user.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

// Only within RunInChild as root of a namespace of one's own, with whose mounts everything goes.
class SmallMachine {
public:
    // A disc for the install directory, with a product folder of links, and one for /tmp. Sizes are
    // as tmpfs takes them.
    SmallMachine(const std::string& installSize, const std::string& tmpSize);

    // What happens to a mounted disc or to a directory, such as "size=1m" or "ro".
    static void Remount(const std::string& directory, const std::string& options);
    static void CloseForWriting(const std::string& directory);

    // Runs cv_install there as uid 1000 without capabilities.
    ProcessResult Setup(const std::vector<std::string>& furtherOptions = {}) const;

    // The same behind another program, which may be a tracer.
    ProcessResult SetupBehind(const std::vector<std::string>& command,
                              const std::vector<std::string>& furtherOptions = {}) const;

    // Files that a setup made: texts by path below the install directory.
    static std::map<std::string, std::string> Made();

    static constexpr const char* InstallDirectory = "/mnt";
};

}  // namespace hx_test
