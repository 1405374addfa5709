// Saved states on the disk, without a setup.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "undo/SavedStates.h"

namespace {

using hx_test::WriteFile;

const std::string record = "/var/lib/corvane26";
const QString installDir = QStringLiteral("/var/corvane");
const std::string changedFile = "/etc/corvane26_changed";

QString TextOf(const Failure& failure) {
    return failure ? failure->text : QString();
}

// A setup that changes a file outside the install tree.
Differences SomeChange() {
    const Descriptor etc(open("/etc", O_PATH | O_DIRECTORY | O_CLOEXEC));
    PathDifference difference;
    difference.change = Change::Modify;
    difference.path = changedFile;
    difference.before = ReadState(etc.Number(), changedFile.substr(5), Reading::AllFiles).value();
    difference.after = difference.before;
    difference.after.mode ^= 0010;
    Differences differences;
    differences.paths = {difference};
    return differences;
}

QString Begin(SavedStates& states, const QString& command = {}) {
    SetupFacts ofSetup = FactsOf({}, installDir);
    ofSetup.command = command;
    return TextOf(states.Begin(ofSetup, SomeChange(), -1));
}

void RecordSetup(const std::string& text) {
    Shell("mkdir -pm 755 " + record + "; mkdir -pm 700 " + record + "/private; cd " + record +
          "; for file in manifest private/answers private/commit_script; do rm -f $file; echo " +
          text + " > $file; done");
}

std::string Record() {
    return Shell("cd " + record + "; cat manifest private/answers private/commit_script");
}

void ExpectOnMachine(const std::function<void()>& body) {
    HX_EXPECT_SCENARIO([&] {
        WriteFile(changedFile, "content");
        body();
    });
}

// What an undo restored before it ended is also restored by the next one.
TEST(SavedStates, RestoresRecordAfterUnfinishedUndoWithSetup) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string file : {"manifest", "private/answers"}) {
        ExpectOnMachine([&] {
            RecordSetup("first");
            {
                SavedStates states(installDir);
                EXPECT_EQ(Begin(states), "");
            }
            RecordSetup("second");
            const std::string path = record + '/' + file;
            Shell("rm " + path + "; mkdir " + path);
            {
                SavedStates states(installDir);
                EXPECT_FALSE(states.LoadLast());
                EXPECT_TRUE(states.RestoreRecord());
            }
            Shell("rmdir " + path);
            {
                SavedStates states(installDir);
                EXPECT_EQ(Begin(states), "");
            }
            RecordSetup("third");
            SavedStates states(installDir);
            EXPECT_FALSE(states.LoadLast());
            EXPECT_EQ(TextOf(states.RestoreRecord()), "");
            EXPECT_EQ(Record(), "first\nfirst\nfirst");
            EXPECT_EQ(Shell("find " + record + " -name '*.new' -o -name states"), "");
        });
    }
}

TEST(SavedStates, AreAboutFirstSetupAfterVerification) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        Shell("mkdir -pm 755 " + record + "; echo > " + record + "/verification");
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states), "");
        }
        for (int setup = 0; setup < 2; ++setup) {
            SavedStates states(installDir);
            bool isFound = false;
            EXPECT_EQ(TextOf(states.LoadFirst(isFound)), "");
            EXPECT_TRUE(isFound);
            Shell("rm -rf " + record + "/private/states/first");
        }
    });
}

TEST(SavedStates, AreAboutInterruptedSetupAfterFailedOne) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        {
            SavedStates interrupted(installDir);
            EXPECT_EQ(Begin(interrupted, QStringLiteral("interrupted")), "");
        }
        {
            SavedStates failed(installDir);
            EXPECT_EQ(Begin(failed, QStringLiteral("failed")), "");
            failed.Discard();
        }
        SavedStates states(installDir);
        EXPECT_EQ(TextOf(states.LoadLast()), "");
        EXPECT_EQ(states.Facts().command, "interrupted");
    });
}

TEST(SavedStates, RestoreRecordWithoutHardLinks) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        RecordSetup("first");
        const std::string list = "cd " + record + "; stat -c '%n %a' $(find . -type f | sort)";
        const std::string before = Shell(list);
        setenv("HX_TEST_FAIL", "linkat=1", 1);
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states), "");
            states.Complete();
        }
        RecordSetup("second");
        SavedStates states(installDir);
        EXPECT_EQ(TextOf(states.LoadLast()), "");
        EXPECT_EQ(TextOf(states.RestoreRecord()), "");
        unsetenv("HX_TEST_FAIL");
        EXPECT_EQ(Record(), "first\nfirst\nfirst");
        EXPECT_EQ(Shell(list), before);
    });
}

// Otherwise a repair after a removal that was killed would create everything again.
TEST(SavedStates, RemovalRemovesManifestFirst) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states), "");
            states.Complete();
        }
        RecordSetup("first");
        Shell("mkdir " + record + "/private/states/first/state.new");
        SavedStates states(installDir);
        bool isFound = false;
        EXPECT_EQ(TextOf(states.LoadFirst(isFound)), "");
        EXPECT_TRUE(isFound);
        const SavedSetup remaining = states.Saved();
        EXPECT_TRUE(states.KeepFirst(states.Facts(), remaining));
        EXPECT_EQ(Shell("ls " + record), "private");
        Shell("rmdir " + record + "/private/states/first/state.new");
        EXPECT_EQ(TextOf(states.KeepFirst(states.Facts(), remaining)), "");
        EXPECT_EQ(Shell("ls " + record + "/private/states"), "first");
    });
}

// An undo lists them as kept.
TEST(SavedStates, LeaveOutLargeFiles) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        Shell("truncate -s 65M " + changedFile);
        SavedStates states(installDir);
        EXPECT_EQ(Begin(states), "");
        EXPECT_EQ(Shell("find " + record + " -size +1M"), "");
    });
}

// A clone of a machine has the states of the original.
TEST(SavedStates, AreReplacedOnCloneOfMachine) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        const std::string setId = "printf '%032d\\n' ";
        Shell(setId + "1 > /etc/machine-id");
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states), "");
            states.Complete();
        }
        RecordSetup("original");
        Shell(setId + "2 > /etc/machine-id");
        {
            SavedStates states(installDir);
            EXPECT_TRUE(TextOf(states.LoadLast()).endsWith("it is from another machine"));
            bool isFound = false;
            EXPECT_TRUE(TextOf(states.LoadFirst(isFound)).endsWith("it is from another machine"));
        }
        SavedStates clone(installDir);
        EXPECT_EQ(Begin(clone), "");
        clone.Complete();
        SavedStates states(installDir);
        EXPECT_EQ(TextOf(states.LoadLast()), "");
        bool isFound = true;
        EXPECT_EQ(TextOf(states.LoadFirst(isFound)), "");
        EXPECT_FALSE(isFound);
    });
}

TEST(SavedStates, AreKeptWithoutMachineId) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        Shell("printf '%032d\\n' 1 > /etc/machine-id");
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states, "former"), "");
            states.Complete();
        }
        Shell("mv /etc/machine-id /etc/kept");
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states, "latter"), "");
            states.Discard();
        }
        Shell("mv /etc/kept /etc/machine-id");
        SavedStates states(installDir);
        EXPECT_EQ(TextOf(states.LoadLast()), "");
        EXPECT_EQ(states.Facts().command, "former");
    });
}

TEST(SavedStates, KeepUnfinishedSetupIfNextOneCannotBegin) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states), "");
        }
        Shell("mv /etc/group /etc/kept; mkdir /etc/group");
        {
            Differences withMembers = SomeChange();
            withMembers.members = {{Change::Create, "", "users"}};
            SavedStates states(installDir);
            EXPECT_EQ(TextOf(states.Begin(FactsOf({}, installDir), withMembers, -1)),
                      "cannot read \"/etc/group\": Is a directory");
        }
        Shell("rmdir /etc/group; mv /etc/kept /etc/group");
        SavedStates states(installDir);
        EXPECT_EQ(TextOf(states.LoadLast()), "");
        EXPECT_FALSE(states.Saved().isComplete);
        EXPECT_EQ(states.Saved().attempts.size(), 1U);
    });
}

TEST(SavedStates, AreNotUndoneAfterUnfinishedRemoval) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectOnMachine([] {
        {
            SavedStates states(installDir);
            EXPECT_EQ(Begin(states), "");
            states.Complete();
        }
        {
            SavedStates removal(installDir);
            bool isFound = false;
            EXPECT_EQ(TextOf(removal.LoadFirst(isFound)), "");
            EXPECT_TRUE(isFound);
            EXPECT_EQ(TextOf(removal.NoteComplete(false)), "");
        }
        {
            SavedStates states(installDir);
            EXPECT_EQ(TextOf(states.LoadLast()),
                      "nothing can be undone: a removal did not run to its end");
        }
        SavedStates setup(installDir);
        EXPECT_EQ(Begin(setup), "");
        setup.Complete();
        SavedStates states(installDir);
        EXPECT_EQ(TextOf(states.LoadLast()), "");
    });
}

}  // namespace
