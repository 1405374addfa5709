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

// Sets every variable, prepares a setup and returns the names of those that remain.
std::string NamesThatRemain(hx_test::World::Identity identity) {
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
                   PrepareProcess();
                   for (char** entry = environ; *entry != nullptr; ++entry) {
                       const std::string text = *entry;
                       std::printf("%s\n", text.substr(0, text.find('=')).c_str());
                   }
               })
        .out;
}

TEST(ProcessState, RemovesUnsafeVariablesAndKeepsListedOnesForRoot) {
    HX_REQUIRE_NAMESPACES();
    std::string root;
    for (const char* name : keptByAll)
        root += name + std::string("\n");
    std::string user = root;
    for (const char* name : removedByRoot)
        user += name + std::string("\n");
    EXPECT_EQ(NamesThatRemain(hx_test::World::Identity::Root), root);
    EXPECT_EQ(NamesThatRemain(hx_test::World::Identity::User), user);
}

TEST(ProcessState, ReplacesPathForRootOnlyAndUmaskForAll) {
    HX_REQUIRE_NAMESPACES();
    for (const auto& [identity, path] :
         {std::pair{hx_test::World::Identity::User, "/srv/bin:/bin"},
          std::pair{hx_test::World::Identity::Root, "/usr/sbin:/usr/bin:/sbin:/bin"}}) {
        const auto result = hx_test::RunInChild({.identity = identity}, [] {
            setenv("PATH", "/srv/bin:/bin", 1);
            umask(077);
            PrepareProcess();
            std::printf("%s %o\n", getenv("PATH"), umask(0));
        });
        EXPECT_EQ(result.out, path + std::string(" 22\n"));
    }
}

}  // namespace
