// What a setup keeps of its caller's environment and umask.
#include "apply/ProcessState.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <span>

#include "harness/Child.h"

namespace {

const char* const keptByAll[] = {"PATH",           "HOME",        "LANG",        "LANGUAGE",
                                 "LC_ALL",         "LC_MESSAGES", "LOGNAME",     "SHELL",
                                 "SUDO_USER",      "TERM",        "TZ",          "USER",
                                 "CORV_CORVANERC", "CORV_ACCESS", "CORV_INSTALL"};
const char* const removedByAll[] = {"CORV_QUEUE_ALLOW", "BLOCKSIZE",       "BLOCK_SIZE",
                                    "DF_BLOCK_SIZE",    "POSIXLY_CORRECT", "TAR_OPTIONS"};
// Not in the table of variables.
const char* const removedByRoot[] = {"BASH_ENV",    "BASH_FUNC_stat%%", "IFS",
                                     "LD_BIND_NOW", "LD_LIBRARY_PATH",  "SYSTEMD_OFFLINE",
                                     "TERMINFO"};

// Sets every variable, prepares a setup and returns the names of those that remain, then PATH and
// the umask.
std::string StateOfSetup(hx_test::World::Identity identity) {
    return hx_test::RunInChild(
               {.identity = identity},
               [] {
                   clearenv();
                   for (const auto& names : {std::span<const char* const>(keptByAll),
                                             std::span<const char* const>(removedByAll),
                                             std::span<const char* const>(removedByRoot)}) {
                       for (const char* name : names)
                           setenv(name, "caller's", 1);
                   }
                   umask(077);
                   PrepareProcess();
                   for (char** entry = environ; *entry != nullptr; ++entry) {
                       const std::string text = *entry;
                       std::printf("%s\n", text.substr(0, text.find('=')).c_str());
                   }
                   std::printf("%s %o\n", getenv("PATH"), umask(0));
               })
        .out;
}

TEST(ProcessState, CleansEnvironmentAndUmaskOfCaller) {
    HX_REQUIRE_NAMESPACES();
    std::string root;
    for (const char* name : keptByAll)
        root += name + std::string("\n");
    std::string user = root;
    for (const char* name : removedByRoot)
        user += name + std::string("\n");
    EXPECT_EQ(StateOfSetup(hx_test::World::Identity::Root),
              root + "/usr/sbin:/usr/bin:/sbin:/bin 22\n");
    EXPECT_EQ(StateOfSetup(hx_test::World::Identity::User), user + "caller's 22\n");
}

}  // namespace
