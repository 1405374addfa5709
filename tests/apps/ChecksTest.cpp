// The checks before a setup changes anything: each finding, and how the facts are read.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "answers/Checks.h"
#include "answers/Listeners.h"
#include "answers/SchedulerQueues.h"

namespace {

// A machine without findings: an account, members, and a queue.
MachineFacts SoundFacts() {
    MachineFacts facts;
    facts.serviceGroup = QStringLiteral("lab");
    facts.user = {.name = QStringLiteral("svc"), .uid = 990, .shell = QStringLiteral("/bin/bash")};
    facts.group = {.gid = 991, .localMembers = QStringList{"ann", "bob"}};
    facts.members = {.joining = {"carl"}, .leaving = {"bob"}};
    facts.targets = {{.path = QStringLiteral("/var/corvane"), .needed = 4096, .free = 4096}};
    facts.scheduler = {.label = QStringLiteral("Slurm"),
                       .setting = QStringLiteral("partition"),
                       .queue = QStringLiteral("chem,long"),
                       .missingCommands = {},
                       .knownQueues = QStringList{"chem", "long"},
                       .reason = {}};
    facts.scratchDirectory = QStringLiteral("/scratch");
    facts.scratch = {.size = 10ULL << 30U, .promised = 10ULL << 30U};
    return facts;
}

struct CheckCase {
    std::function<void(MachineFacts&)> change;
    std::vector<std::string> errors;  // text, newline and remedy
    std::vector<std::string> warnings;
};

const CheckCase checkCases[] = {
    {[](MachineFacts&) {}, {}, {}},
    {[](MachineFacts& facts) { facts.unknownMembers = {"carl"}; },
     {"service group member \"carl\" does not exist\n"
      "Create the user, or run the setup again with other members."},
     {}},
    {[](MachineFacts& facts) { facts.unknownMembers = {"ann"}; },
     {},
     {"service group member \"ann\" does not exist\nRun: gpasswd --delete ann lab."}},
    {[](MachineFacts& facts) { facts.group->localMembers.reset(); },
     {"cannot change the members of group \"lab\": it is not in /etc/group\n"
      "Change them where the group is defined, and run the setup again without a change of "
      "members; or specify a different group with --service-group."},
     {}},
    {[](MachineFacts& facts) {
         facts.group->localMembers.reset();
         facts.members = {};
     },
     {},
     {}},
    {[](MachineFacts& facts) { facts.group->localMembers = QStringList{"ann"}; },
     {"cannot remove member \"bob\" of group \"lab\": /etc/group does not list it\n"
      "Remove it where it is defined, then run the setup again."},
     {}},
    {[](MachineFacts& facts) { facts.group.reset(); }, {}, {}},
    {[](MachineFacts& facts) { facts.group->gid = 0; },
     {"service group \"lab\" is root's\nSpecify a different group with --service-group."},
     {}},
    {[](MachineFacts& facts) {
         facts.user->uid = 0;
         facts.user->isNamed = true;
     },
     {"service user \"svc\" has the UID of root\nSpecify a different user with --service-user."},
     {}},
    {[](MachineFacts& facts) {
         facts.user->uid = 500;
         facts.firstUserUid = 500;
         facts.user->hasPassword = true;
     },
     {"service user \"svc\" is not a system account: its UID is 500\nSpecify a system account with "
      "--service-user, or confirm this one with --service-user svc.",
      "service user \"svc\" has a password\nSpecify a system account with --service-user, or "
      "confirm this one with --service-user svc."},
     {}},
    {[](MachineFacts& facts) {
         facts.user->uid = 1000;
         facts.user->hasPassword = true;
         facts.user->isNamed = true;
     },
     {},
     {}},
    {[](MachineFacts& facts) { facts.user.reset(); }, {}, {}},
    {[](MachineFacts& facts) {
         facts.user->shell = QStringLiteral("/sbin/nologin");
         facts.user->hasShell = false;
     },
     {},
     {"shell \"/sbin/nologin\" of service user \"svc\" does not suit an external queue\n"
      "Run: usermod --shell /bin/bash svc."}},
    {[](MachineFacts& facts) {
         facts.user->hasShell = false;
         facts.scheduler.reset();
     },
     {},
     {}},
    {[](MachineFacts& facts) { facts.obstacles = {"/usr/bin/corvane26"}; },
     {"\"/usr/bin/corvane26\" is in the way of a symbolic link\n"
      "Move it away, then run the setup again."},
     {}},
    {[](MachineFacts& facts) { facts.targets[0].free = 4095; },
     {"not enough space in directory \"/var/corvane\": 4096 bytes needed, 4095 bytes free\n"
      "Free up disk space, then run the setup again."},
     {}},
    {[](MachineFacts& facts) { facts.targets[0].error = EROFS; },
     {"cannot write to directory \"/var/corvane\": Read-only file system\n"
      "Remount its file system as writable, then run the setup again."},
     {}},
    {[](MachineFacts& facts) { facts.targets[0].error = EPERM; },
     {"cannot write to directory \"/var/corvane\": Operation not permitted\n"
      "Make it writable, then run the setup again."},
     {}},
    {[](MachineFacts& facts) {
         facts.unusableFiles = {{"key file", QStringLiteral("/key.pem"),
                                 QStringLiteral("Permission denied"), "Repair it."}};
     },
     {"cannot use key file \"/key.pem\": Permission denied\nRepair it."},
     {}},
    {[](MachineFacts& facts) {
         facts.scheduler->queue.clear();
         facts.scheduler->missingCommands = {{QStringLiteral("sbatch"), QStringLiteral("/x/s")}};
     },
     {"cannot execute command \"/x/s\"\n"
      "Install the commands of Slurm, or specify the path with --sbatch."},
     {}},
    {[](MachineFacts& facts) {
         facts.scheduler->knownQueues = QStringList{"chemistry", "long"};
     },
     {"unknown partition of Slurm: \"chem\"\nUse one of these: chemistry, long."},
     {}},
    {[](MachineFacts& facts) { facts.scheduler->knownQueues = QStringList(); },
     {"unknown partition of Slurm: \"chem\"\nCreate it, then run the setup again.",
      "unknown partition of Slurm: \"long\"\nCreate it, then run the setup again."},
     {}},
    {[](MachineFacts& facts) {
         facts.scheduler->knownQueues.reset();
         facts.scheduler->reason = QStringLiteral("no answer within 10 seconds");
     },
     {},
     {"cannot check partition \"chem,long\" of Slurm: no answer within 10 seconds\n"
      "Make sure that it exists, or jobs will fail."}},
    {[](MachineFacts& facts) {
         facts.takenPorts = {{QStringLiteral("http"), 8080, QStringLiteral("process 7 (nginx)")}};
     },
     {"port 8080 of the compute service is in use by process 7 (nginx)\n"
      "Stop that process, or specify another port with --http-port."},
     {}},
    {[](MachineFacts& facts) { facts.scratch.isInMemory = true; },
     {},
     {"scratch directory \"/scratch\" is in memory: its files leave less for jobs\n"
      "Specify another directory with --scratch-directory."}},
    {[](MachineFacts& facts) { facts.scratch.size = 5ULL << 30U; },
     {},
     {"the scratch limits add up to 10 GB, but the file system of \"/scratch\" has 5 GB\n"
      "Specify another directory with --scratch-directory, or a lower limit with "
      "--scratch-limit."}},
};

std::vector<std::string> TextsOf(const std::vector<Problem>& problems) {
    std::vector<std::string> texts;
    for (const Problem& problem : problems)
        texts.push_back((problem.text + u'\n' + problem.remedy).toStdString());
    return texts;
}

TEST(Checks, FindEachObstacleWithItsRemedy) {
    for (const CheckCase& row : checkCases) {
        MachineFacts facts = SoundFacts();
        row.change(facts);
        const Findings findings = RunChecks(facts);
        EXPECT_EQ(TextsOf(findings.errors), row.errors);
        EXPECT_EQ(TextsOf(findings.warnings), row.warnings);
    }
}

TEST(Checks, EndSetupOnlyWithErrors) {
    Findings findings;
    findings.warnings.push_back({ExitStatus::Complete, QStringLiteral("warning"), {}});
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ReportFindings(findings));
    findings.errors.push_back(
        {ExitStatus::ChecksFailed, QStringLiteral("one"), {}, Changes::Unknown});
    const Failure only = ReportFindings(findings);
    ASSERT_TRUE(only);
    EXPECT_EQ(only->text, QStringLiteral("one"));
    EXPECT_EQ(only->changes, Changes::None);
    findings.errors.push_back({ExitStatus::ChecksFailed, QStringLiteral("two"), {}});
    const Failure several = ReportFindings(findings);
    ASSERT_TRUE(several);
    EXPECT_EQ(several->text, QStringLiteral("2 checks failed"));
    EXPECT_EQ(static_cast<int>(several->status), 65);
    testing::internal::GetCapturedStderr();
}

// Lines as the kernel writes them on a little-endian machine.
const std::string tcp =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode\n"
    "   0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 "
    "4711 1 0000000000000000 100 0 0 10 0\n"
    "   1: 00000000:20FB 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 "
    "4712 1 0000000000000000 100 0 0 10 0\n"
    "   2: 0100007F:1F90 0100007F:9C40 01 00000000:00000000 00:00000000 00000000     0        0 "
    "4713 1 0000000000000000 20 4 30 10 -1\n"
    "   3: 0000000000000000FFFF00000100007F:0050 00000000000000000000000000000000:0000 0A "
    "00000000:00000000 00:00000000 00000000     0        0 4714 1 0 100 0 0 10 0\n"
    "short\n   4: zz:1 0:0 0A 0 0 0 0 0 1 1\n";

TEST(Listeners, AreReadFromKernelTable) {
    const std::vector<Listener> found = ParseListeners(tcp);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0].address, "127.0.0.1");
    EXPECT_EQ(found[0].port, 8080);
    EXPECT_EQ(found[0].inode, "4711");
    EXPECT_FALSE(found[0].isAnyAddress);
    EXPECT_TRUE(found[1].isAnyAddress);
    EXPECT_EQ(found[1].port, 8443);
    EXPECT_TRUE(IsInTheWay(found[0], "0.0.0.0", 8080));
    EXPECT_TRUE(IsInTheWay(found[0], "127.0.0.1", 8080));
    EXPECT_FALSE(IsInTheWay(found[0], "192.0.2.1", 8080));
    EXPECT_FALSE(IsInTheWay(found[0], "0.0.0.0", 8081));
    EXPECT_TRUE(IsInTheWay(found[1], "192.0.2.1", 8443));
    EXPECT_TRUE(IsInTheWay(found[2], "127.0.0.1", 80));
}

TEST(Listeners, OfComputeServiceAreKnownByUnit) {
    EXPECT_TRUE(IsOfComputeService("0::/system.slice/corvane26_service.service\n"));
    EXPECT_TRUE(IsOfComputeService("1:name=systemd:/system.slice/corvane24_service.service\n0::/"));
    EXPECT_FALSE(IsOfComputeService("0::/system.slice/corvane26_service.service.d/other.scope\n"));
    EXPECT_FALSE(IsOfComputeService("0::/user.slice/corvane26_service\n"));
}

TEST(SchedulerQueues, AreReadFromOutputOfCommands) {
    EXPECT_EQ(ParsePartitions("chem\nlong \nchem\n\n"), (QStringList{"chem", "long"}));
    EXPECT_EQ(ParseQueues("Queue: batch\n    queue_type = Execution\n    Queue: no\n\n"
                          "Queue:\tlong\n\tenabled = True\n"),
              (QStringList{"batch", "long"}));
}

}  // namespace
