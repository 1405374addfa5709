// What the checks read about a machine, in a throwaway root.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>

#include "answers/Facts.h"
#include "answers/Listeners.h"
#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "installation/Tool.h"
#include "machine/Accounts.h"
#include "machine/ThrowawayRoot.h"

namespace {

// A setup run on a machine with group "lab" and its members ann and bob.
std::unique_ptr<CInstallBase> PrepareRun() {
    LayOutRootSetup();
    Shell(
        "groupadd --system lab; useradd --system --gid lab --shell /sbin/nologin svc;"
        "useradd ann; useradd bob; gpasswd --members ann,bob lab");
    static char program[] = "/opt/corvane26/cv_install";
    static char* arguments[] = {program, nullptr};
    auto run = std::make_unique<CInstallBase>(false, 1, arguments);
    run->m_serviceUser = QStringLiteral("svc");
    run->m_serviceGroup = QStringLiteral("lab");
    run->m_queueType = CInstallBase::QueueInternal;
    run->m_jobLimit = 2;
    run->m_scratchLimitGB = 3;
    return run;
}

MachineFacts Facts(const CInstallBase& run, const Answers& answers = {}) {
    const Descriptor tree(open("/var/corvane", O_PATH | O_CLOEXEC));
    return FindFacts(run, answers, {}, ReadEntryPlaces("/var/corvane", tree.Number()),
                     tree.Number());
}

MachineFacts FactsOfClusterNode(CInstallBase& run) {
    run.m_clusterNode = true;
    MachineFacts facts = Facts(run);
    run.m_clusterNode = false;
    return facts;
}

std::vector<std::string> FilesOf(const MachineFacts& facts) {
    std::vector<std::string> lines;
    for (const MachineFacts::File& file : facts.unusableFiles)
        lines.push_back(file.kind + (' ' + file.path + ' ' + file.reason).toStdString());
    return lines;
}

TEST(Facts, OfAccountAreThoseOfNameService) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        run->m_serviceMembers = {"ann", "ghost"};
        MachineFacts facts = Facts(*run);
        EXPECT_EQ(facts.unknownMembers, QStringList("ghost"));
        ASSERT_TRUE(facts.user && facts.group);
        EXPECT_EQ(facts.group->localMembers, (QStringList{"ann", "bob"}));
        EXPECT_FALSE(facts.user->hasShell);
        EXPECT_EQ(std::to_string(facts.user->uid), Shell("id -u svc"));

        Answers answers;
        for (const auto& [source, chosen, isNamed] :
             {std::tuple{AnswerSource::CommandLine, true, true},
              std::tuple{AnswerSource::File, true, false},
              std::tuple{AnswerSource::Record, true, true},
              std::tuple{AnswerSource::Record, false, false}}) {
            answers.Set(AnswerId::ServiceUser, {QStringLiteral("svc"), source, chosen});
            EXPECT_EQ(Facts(*run, answers).user->isNamed, isNamed);
        }

        run->m_serviceGroup = QStringLiteral("none-such");
        EXPECT_FALSE(Facts(*run).group);
        run->m_serviceUser = QStringLiteral("none-such");
        EXPECT_FALSE(Facts(*run).user);

        Shell("sed -i 's/^UID_MIN.*/UID_MIN\\t\\t 0500/' /etc/login.defs");
        EXPECT_EQ(Facts(*run).firstUserUid, 0500U);
        std::filesystem::remove("/etc/login.defs");
        EXPECT_EQ(Facts(*run).firstUserUid, 1000U);
    });
}

TEST(Facts, TellPasswordsAndShells) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        const std::pair<const char*, bool> passwords[] = {{"'!'", false},
                                                          {"'*'", false},
                                                          {"'!$y$hash'", false},
                                                          {"'$y$hash'", true},
                                                          {"''", true}};
        for (const auto& [password, isPassword] : passwords) {
            Shell(std::string("usermod --password ") + password + " svc");
            EXPECT_EQ(Facts(*run).user->hasPassword, isPassword) << password;
        }
        const std::pair<const char*, bool> shells[] = {
            {"/bin/bash", true}, {"/bin/false", false}, {"/no/such/shell", false}, {"''", true}};
        for (const auto& [shell, hasShell] : shells) {
            Shell(std::string("usermod --shell ") + shell + " svc");
            EXPECT_EQ(Facts(*run).user->hasShell, hasShell) << shell;
        }
    });
}

TEST(Facts, OfTargetsAreThoseOfFileSystems) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        MachineFacts facts = Facts(*run);
        ASSERT_EQ(facts.targets.size(), 1U);
        EXPECT_EQ(facts.targets[0].path, QStringLiteral("/var"));
        EXPECT_EQ(facts.targets[0].error, 0);
        const auto needed = facts.targets[0].needed;
        const auto archives = std::filesystem::file_size("/opt/corvane26/docroot/resources.tar") +
                              std::filesystem::file_size("/opt/corvane26/docroot/icons.tar");
        EXPECT_GT(needed, archives);
        EXPECT_LT(needed, archives + 200000);
        EXPECT_LT(FactsOfClusterNode(*run).targets[0].needed, needed - archives);
        EXPECT_EQ(facts.obstacles, QStringList());

        Shell(
            "mkdir /var/corvane; mount -t tmpfs -o size=16k tmpfs /var/corvane;"
            "mount --bind /usr/bin /usr/bin; touch /usr/bin/corvane26;"
            "mount -o remount,bind,ro /usr/bin");
        facts = Facts(*run);
        ASSERT_EQ(facts.targets.size(), 3U);
        EXPECT_EQ(facts.targets[0].path, QStringLiteral("/usr/bin"));
        EXPECT_EQ(facts.targets[0].error, EROFS);
        EXPECT_EQ(facts.obstacles, QStringList("/usr/bin/corvane26"));
        for (const MachineFacts::Target& target : facts.targets) {
            if (target.path == QStringLiteral("/var/corvane")) {
                EXPECT_EQ(target.free, 16384U);
                EXPECT_GT(target.needed, archives);
            }
        }
    });
}

TEST(Facts, OfProductNameUnreadableFiles) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        EXPECT_EQ(FilesOf(Facts(*run)), std::vector<std::string>{});
        Shell(
            "cd /opt/corvane26; : > docroot/icons.tar; rm corvane26.template; mkfifo "
            "corvane26.template; rm corvane26_service_script");
        const std::string product = "file of the product /opt/corvane26/";
        const std::string fifo = product + "corvane26.template it is not a regular file";
        EXPECT_EQ(FilesOf(Facts(*run)),
                  (std::vector<std::string>{
                      fifo, product + "corvane26_service_script No such file or directory",
                      product + "docroot/icons.tar it is empty"}));
        EXPECT_EQ(FilesOf(FactsOfClusterNode(*run)), std::vector<std::string>{fifo});
        // Web pages that exist are kept.
        Shell("mkdir -p /var/corvane/corvanerc/corvane26server/icons");
        EXPECT_EQ(FilesOf(Facts(*run)).size(), 2U);
    });
}

TEST(Facts, OfCertificatesAreThoseOfServiceAccount) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        run->m_compSrvcCert = QStringLiteral("cert.pem");
        run->m_compSrvcKey = QStringLiteral("/var/corvane/private/key.pem");
        Shell(
            "mkdir -p /var/corvane/private; touch /cert.pem /var/corvane/private/key.pem;"
            "chmod 750 /var/corvane/private; chgrp lab /var/corvane/private;"
            "chmod 600 /var/corvane/private/key.pem");
        EXPECT_EQ(FilesOf(Facts(*run)), std::vector<std::string>{});
        run->m_compSrvcAllow = QStringLiteral("HTTP,HTTPS");
        const std::string key = "key file /var/corvane/private/key.pem ";
        EXPECT_EQ(FilesOf(Facts(*run)), std::vector<std::string>{key + "Permission denied"});
        EXPECT_EQ(FilesOf(FactsOfClusterNode(*run)), std::vector<std::string>{});
        Shell("chgrp lab /var/corvane/private/key.pem; chmod 640 /var/corvane/private/key.pem");
        EXPECT_EQ(FilesOf(Facts(*run)), std::vector<std::string>{});
        // A new account.
        run->m_serviceUser = QStringLiteral("none-such");
        Shell("chmod 600 /var/corvane/private/key.pem");
        EXPECT_EQ(FilesOf(Facts(*run)), std::vector<std::string>{});
        Shell("rm /cert.pem /var/corvane/private/key.pem; mkfifo /var/corvane/private/key.pem");
        EXPECT_EQ(FilesOf(Facts(*run)),
                  (std::vector<std::string>{"certificate file /cert.pem No such file or directory",
                                            key + "it is not a regular file"}));
    });
}

TEST(Facts, OfScratchAreThoseOfItsFileSystem) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        Shell("mount -t tmpfs -o size=64m tmpfs /srv");
        run->m_scratchDir = QStringLiteral("/srv");
        const MachineFacts facts = Facts(*run);
        EXPECT_TRUE(facts.scratch.isInMemory);
        EXPECT_EQ(facts.scratch.size, 64ULL << 20U);
        EXPECT_EQ(facts.scratch.promised, 6ULL << 30U);
        run->m_scratchDir = QStringLiteral("/opt");
        EXPECT_FALSE(Facts(*run).scratch.isInMemory);
        run->m_scratchDir = QStringLiteral("/no/such");
        EXPECT_EQ(Facts(*run).scratch.size, 0U);
    });
}

TEST(Facts, OfSchedulerAreItsAnswer) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto run = PrepareRun();
        EXPECT_FALSE(Facts(*run).scheduler);
        run->m_queueType = CInstallBase::QueueExternal;
        run->m_scheduler = QStringLiteral("SLURM");
        run->m_partitionName = QStringLiteral("chem");
        run->m_sbatchCmd = QStringLiteral("/srv/sbatch");
        run->m_scancelCmd = QStringLiteral("/srv/scancel");
        MachineFacts facts = Facts(*run);
        ASSERT_EQ(facts.scheduler->missingCommands.size(), 2U);
        EXPECT_EQ(facts.scheduler->missingCommands[1].path, QStringLiteral("/srv/scancel"));
        EXPECT_EQ(facts.scheduler->queue, QString());

        hx_test::WriteFile("/srv/sinfo",
                           "#!/bin/sh\n[ \"$*\" = '--all --noheader --format=%R' ] && echo chem\n");
        Shell("chmod 755 /srv/sinfo; cp /srv/sinfo /srv/sbatch; cp /srv/sinfo /srv/scancel");
        EXPECT_EQ(Facts(*run).scheduler->knownQueues, QStringList("chem"));

        hx_test::WriteFile("/srv/sinfo", "#!/bin/sh\necho no controller >&2\nexit 1\n");
        facts = Facts(*run);
        EXPECT_FALSE(facts.scheduler->knownQueues);
        EXPECT_EQ(facts.scheduler->reason, QStringLiteral("no controller"));

        run->m_scheduler = QStringLiteral("TORQUE");
        run->m_queueName = QStringLiteral("batch");
        run->m_qsubCmd = run->m_qdelCmd = QStringLiteral("/srv/sbatch");
        run->m_qsigCmd = QStringLiteral("/srv/qsig");
        Shell("printf '#!/bin/sh\\necho \"Queue: $*\"\\n' > /srv/qstat; chmod 755 /srv/qstat");
        facts = Facts(*run);
        ASSERT_EQ(facts.scheduler->missingCommands.size(), 1U);
        EXPECT_FALSE(facts.scheduler->missingCommands[0].isNeeded);
        EXPECT_EQ(facts.scheduler->knownQueues, QStringList("-Q -f"));

        run->m_scheduler = QStringLiteral("SLURM");
        Shell("printf '#!/bin/sh\\ntouch /pwned\\n' > /srv/sinfo; chown ann /srv/sinfo");
        EXPECT_TRUE(Facts(*run).scheduler->reason.startsWith(
            QStringLiteral("root does not run \"/srv/sinfo\": others could replace it")));
        EXPECT_FALSE(std::filesystem::exists("/pwned"));
    });
}

TEST(Facts, OfPortsNameOtherProcesses) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        ASSERT_EQ(bind(listener.Number(), generic, length), 0);
        ASSERT_EQ(listen(listener.Number(), 1), 0);
        ASSERT_EQ(getsockname(listener.Number(), generic, &length), 0);

        const auto run = PrepareRun();
        run->m_compSrvcHttpsPort = ntohs(address.sin_port);
        run->m_compSrvcHttpPort = 1;
        EXPECT_TRUE(Facts(*run).takenPorts.empty());
        run->m_compSrvcAllow = QStringLiteral("HTTPS");
        const MachineFacts facts = Facts(*run);
        ASSERT_EQ(facts.takenPorts.size(), 1U);
        EXPECT_EQ(facts.takenPorts[0].protocol, QStringLiteral("https"));
        EXPECT_EQ(facts.takenPorts[0].port, run->m_compSrvcHttpsPort);
        EXPECT_TRUE(
            facts.takenPorts[0].process.startsWith(QStringLiteral("process %1 (").arg(getpid())));
        EXPECT_TRUE(FactsOfClusterNode(*run).takenPorts.empty());
        // A process of the service user is the service.
        EXPECT_EQ(FindPortHolder("0.0.0.0", run->m_compSrvcHttpsPort, 0), "");
    });
}

TEST(Tool, IsEndedAfterItsTime) {
    EXPECT_EQ(ReadTool({"echo", "text"}, std::chrono::seconds(9)).text, "text\n");
    const ToolOutput late = ReadTool({"sleep", "60"}, std::chrono::seconds(1));
    EXPECT_EQ(late.failure, QStringLiteral("the process did not end within 1 seconds"));
}

}  // namespace
