// Symbolic links of a setup as root: the linkedCommands in /usr/bin, and the repository of
// version 24.
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const std::string linkedCommands[] = {"corvane26", "corvane26_snapshot"};

std::string Link(const std::string& command) {
    return "/usr/bin/" + command;
}

std::string Target(const std::string& command) {
    return sharedDir + "/" + command;
}

HX_MACHINE_TEST(CommandLinks, KeepsCorrectLink) {
    Complete();
    const std::string inodes[] = {Inode(commandLink), Inode(snapshotLink)};
    Complete();
    EXPECT_EQ(Inode(commandLink), inodes[0]);
    EXPECT_EQ(Inode(snapshotLink), inodes[1]);
}

// The text of the link counts, not the file that it reaches.
HX_MACHINE_TEST(CommandLinks, ReplacesLinkWithAnotherText) {
    for (const std::string prefix :
         {"/opt/elsewhere/", "/var/../var/corvane/", "../../var/corvane/"}) {
        for (const auto& command : linkedCommands) {
            fs::remove(Link(command));
            fs::create_symlink(prefix + command, Link(command));
        }
        Complete();
        for (const auto& command : linkedCommands)
            EXPECT_EQ(fs::read_symlink(Link(command)), Target(command)) << prefix;
    }
}

TEST(CommandLinks, StopsAtFileInPlaceOfLink) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& command : linkedCommands) {
        ExpectOnMachine([&] {
            WriteFile(Link(command), "of another package");
            ExpectStop("Error, creating /usr/bin/" + command + " symbolic link");
            EXPECT_EQ(ReadFile(Link(command)), "of another package");
            EXPECT_FALSE(fs::exists(Target("QueueEntries")));
            EXPECT_EQ(fs::exists(Target("corvane26_snapshot")), command == "corvane26_snapshot");
        });
    }
}

TEST(CommandLinks, StopsWhenWrongLinkCannotBeRemoved) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& command : linkedCommands) {
        ExpectOnMachine([&] {
            fs::create_symlink("/opt/elsewhere", Link(command));
            ReplaceProgram("/usr/bin/rm", "exit 1");
            ExpectStop("Error, removing  /usr/bin/" + command);
        });
    }
}

const std::string oldRepository = sharedDir + "/corvanerc/corvane24server/CorvaneServerRepository";
const std::string newRepository = serverDir + "/CorvaneServerRepository";

struct RepositoryCase {
    const char* old;       // a shell command that makes oldRepository
    const char* expected;  // the text of newRepository
};

const RepositoryCase repositoryCases[] = {
    {"mkdir", oldRepository.c_str()},
    {"ln -s /srv", oldRepository.c_str()},
    {"ln -s '/mnt/not mounted/repository'", "/mnt/not mounted/repository"},
    {"true", ""},
};

// The link is made only in the setup that makes the server's directory, and never changed later.
TEST(RepositoryLink, LeadsToRepositoryOfVersion24) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& [old, expected] : repositoryCases) {
        ExpectOnMachine([&] {
            fs::create_directories(sharedDir + "/corvanerc/corvane24server");
            Shell(old + (" " + oldRepository));
            Complete();
            EXPECT_EQ(Shell("readlink " + newRepository), expected) << old;
            Shell("mkdir -p " + oldRepository + "; [ -L " + newRepository +
                  " ] && ln -sfn /moved " + newRepository);
            const std::string changed = Shell("stat -c '%i %N' " + newRepository);
            Complete();
            EXPECT_EQ(Shell("stat -c '%i %N' " + newRepository), changed) << old;
            EXPECT_EQ(Shell("readlink " + newRepository), *expected == '\0' ? "" : "/moved") << old;
        });
    }
}

}  // namespace
