// The record of a setup: its files, who may have written them, and what the next setup reads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "record/RecordDirectory.h"
#include "record/SetupRecord.h"

namespace {

namespace fs = std::filesystem;

const QString shared = QStringLiteral("/var/corvane");
constexpr qsizetype most = 4096;

const SetupFacts facts = {.version = "26.0.0",
                          .time = "2026-11-22T14:05:09Z",
                          .host = "n1",
                          .machineId = "0123456789abcdef0123456789abcdef",
                          .user = "ann",
                          .installDir = shared,
                          .command = "cv_install --setup -p 'my chem'"};

Answers SomeAnswers() {
    Answers answers;
    answers.Set(AnswerId::JobLimit, 2, AnswerSource::Default);
    answers.Set(AnswerId::Queue, QStringLiteral("slurm"), AnswerSource::CommandLine);
    return answers;
}

constexpr unsigned usersSetup = AsUser;

// Of a machine on which nothing is installed.
InstalledSetup SetupAs(unsigned conditions) {
    return {.installDir = shared,
            .productDir = "/opt",
            .conditions = conditions,
            .serviceUser = "root",
            .serviceGroup = "root"};
}

Failure Write(const QByteArray& script = "exit 0\n", unsigned conditions = AsRoot) {
    if (getuid() == 0)
        Shell("mkdir -p /var/corvane");
    SetupRecord record(SetupAs(conditions));
    if (Failure failure = record.Prepare(facts, SomeAnswers(), script))
        return failure;
    return record.Place();
}

TEST(RecordText, KeepsFactsAndBody) {
    const QByteArray text = RecordText("#mtree", facts, "first\nlast\n");
    EXPECT_TRUE(text.startsWith("#mtree\n# version: 26.0.0\n"));
    const auto parsed = ParseRecordText(text);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->facts, facts);
    EXPECT_EQ(parsed->body, "first\nlast\n");
}

TEST(RecordText, RefusesEveryDamage) {
    const QByteArray text = RecordText("#mtree", facts, "body\n");
    for (qsizetype i = 0; i < text.size(); ++i) {
        EXPECT_FALSE(ParseRecordText(text.first(i))) << i;
        QByteArray changed = text;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_FALSE(ParseRecordText(changed)) << i;
    }
    EXPECT_FALSE(ParseRecordText(text + '\n'));
}

TEST(RecordText, KeepsALineBreakOutOfTheFacts) {
    SetupFacts odd = facts;
    odd.user = "ann\n# host: n2";
    const auto parsed = ParseRecordText(RecordText("#mtree", odd, ""));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->facts.user, "ann?# host: n2");
    EXPECT_EQ(parsed->facts.host, "n1");
}

TEST(SetupFacts, QuotesWordsOfTheCommandLine) {
    const SetupFacts found = FactsOf({"cv_install", "-d", "/my scratch", "it's", ""}, shared);
    EXPECT_EQ(found.command, "cv_install -d '/my scratch' 'it'\\''s' ''");
}

TEST(RecordDirectory, NameIsThatOfSystemdEscape) {
    for (const char* path :
         {"/", "/opt/corvane26", "/home/d\xc3\xb6rte x/.c-v", "/.hidden/a_b:c.d"}) {
        EXPECT_EQ(EscapedPath(QString::fromUtf8(path)) + '\n',
                  hx_test::Run({"systemd-escape", "--path", path}).out);
    }
}

TEST(RecordDirectory, WritesFilesForRootAlone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        umask(0077);
        Shell("mkdir -p -m 755 /var/corvane");
        hx_test::MarkChanges();
        EXPECT_FALSE(Write("first\n"));
        EXPECT_EQ(hx_test::ChangedPaths(),
                  (std::vector<std::string>{
                      "/var/lib/corvane26 created directory 755 0:0",
                      "/var/lib/corvane26/manifest created file 644 0:0",
                      "/var/lib/corvane26/private created directory 700 0:0",
                      "/var/lib/corvane26/private/answers created file 600 0:0",
                      "/var/lib/corvane26/private/commit_script created file 600 0:0"}));
        EXPECT_FALSE(Write("second\n"));
        EXPECT_EQ(hx_test::ReadFile("/var/lib/corvane26/private/commit_script"), "second\n");
        EXPECT_EQ(hx_test::ReadFile("/var/lib/corvane26/manifest").substr(0, 26),
                  "#mtree\n# version: 26.0.0\n#");
    });
}

TEST(RecordDirectory, KeepsOldRecordUntilNewOneIsPlaced) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        {
            SetupRecord first(SetupAs(AsRoot));
            EXPECT_FALSE(first.Prepare(facts, SomeAnswers(), "first\n"));
        }
        EXPECT_FALSE(fs::exists("/var/lib/corvane26"));
        EXPECT_FALSE(Write("first\n"));
        // As a killed setup leaves it.
        hx_test::WriteFile("/var/lib/corvane26/private/answers.new", "torn");
        {
            SetupRecord second(SetupAs(AsRoot));
            EXPECT_FALSE(second.Prepare(facts, SomeAnswers(), "second\n"));
            EXPECT_EQ(hx_test::ReadFile("/var/lib/corvane26/private/commit_script"), "first\n");
        }
        EXPECT_EQ(Shell("find /var/lib/corvane26 -name '*.new'"), "");
        Shell("mount -t tmpfs -o size=8k,mode=755 tmpfs /var/lib/corvane26");
        const Failure full = Write(QByteArray(100000, 'x'));
        ASSERT_TRUE(full);
        EXPECT_EQ(full->status, ExitStatus::SystemCallFailed);
        EXPECT_EQ(full->text.toStdString(),
                  "cannot write record \"/var/lib/corvane26/private/commit_script\": No space left "
                  "on device");
        EXPECT_EQ(Shell("find /var/lib/corvane26 -type f"), "");
    });
}

struct Tampering {
    const char* command;
    const char* problem;
};

TEST(RecordDirectory, RefusesWhatOthersControl) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Tampering tamperings[] = {
        {"chown nobody /var/lib/corvane26", "it is owned by user nobody"},
        {"chmod g+w /var/lib/corvane26", "other users can write to it"},
        {"mv /var/lib/corvane26 /srv/record; ln -s /srv/record /var/lib/corvane26",
         "Not a directory"},
        {"chown nobody /var/lib/corvane26/private", "it is owned by user nobody"},
        {"chown nobody /var/lib/corvane26/private/answers", "it is owned by user nobody"},
        {"chmod 666 /var/lib/corvane26/private/answers", "other users can write to it"},
        {"cd /var/lib/corvane26/private; rm answers; mkfifo -m 600 answers",
         "it is not a regular file"},
        {"cd /var/lib/corvane26/private; rm answers; ln -s /etc/passwd answers",
         "Too many levels of symbolic links"},
        {"truncate -s 4097 /var/lib/corvane26/private/answers", "it is larger than 4096 bytes"},
        {"chmod 777 /var/lib", "other users can write to it"}};
    for (const Tampering& test : tamperings) {
        SCOPED_TRACE(test.command);
        HX_EXPECT_SCENARIO([&] {
            EXPECT_FALSE(Write());
            Shell(test.command);
            RecordDirectory directory(shared);
            std::optional<QByteArray> content;
            Failure failure = directory.Open();
            if (!failure)
                failure = directory.Read(Item::RecordedAnswers, most, content);
            ASSERT_TRUE(failure);
            EXPECT_FALSE(content);
            EXPECT_EQ(failure->status, ExitStatus::RecordUnusable);
            const std::string text = failure->text.toStdString();
            EXPECT_TRUE(text.starts_with("cannot use record \"/var/lib") &&
                        text.ends_with(std::string("\": ") + test.problem))
                << text;
        });
    }
}

// Becomes a user with this home directory; the process ends as that user.
// This process is a user's. It becomes root's again, because the leak checker reads a file at the
// end.
class AsUser {
public:
    explicit AsUser(const std::string& home) {
        Shell("useradd -M -u 4321 -d " + home +
              " dora; mkdir -p /home/dora /var/corvane; chown dora /home/dora");
        unsetenv("XDG_STATE_HOME");
        EXPECT_EQ(setresgid(4321, 4321, 0), 0);
        EXPECT_EQ(setresuid(4321, 4321, 0), 0);
    }
    ~AsUser() {
        EXPECT_EQ(setresuid(0, 0, 0), 0);
        EXPECT_EQ(setresgid(0, 0, 0), 0);
    }
    AsUser(const AsUser&) = delete;
    AsUser& operator=(const AsUser&) = delete;
};

TEST(RecordDirectory, IsBelowTheUsersOwnHome) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const AsUser user("/home/dora");
        setenv("HOME", "/root", 1);
        EXPECT_FALSE(Write("exit 0\n", usersSetup));
        const std::string record = "/home/dora/.local/state/corvane26/var-corvane";
        EXPECT_EQ(Shell("cd " + record + "; find . -printf '%p %m\\n' | sort"),
                  ". 700\n./manifest 644\n./private 700\n./private/answers 600\n"
                  "./private/commit_script 600");
        fs::permissions(record, fs::perms(0750));
        RecordDirectory directory(shared);
        const Failure failure = directory.Open();
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->text.toStdString(),
                  "cannot use record \"" + record + "\": its mode is not 700");
        setenv("XDG_STATE_HOME", "/home/dora/state", 1);
        EXPECT_FALSE(Write("exit 0\n", usersSetup));
        EXPECT_TRUE(fs::exists("/home/dora/state/corvane26/var-corvane/manifest"));
    });
}

TEST(RecordDirectory, IsMissingWithoutHomeDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const AsUser user("/nonexistent");
        EXPECT_FALSE(Write("exit 0\n", usersSetup));
        RecordDirectory directory(shared);
        EXPECT_FALSE(directory.Create());
        EXPECT_FALSE(directory.IsOpen());
    });
}

}  // namespace
