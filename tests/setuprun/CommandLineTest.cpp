// What each option sets, and what is passed over.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

using Options = std::vector<std::string>;

// Constructs a run with these options and looks at it; in a child, since it sets the environment.
void With(const Options& options, const std::function<void(const CInstallBase&)>& look) {
    ExpectInChild([&] {
        Options words = {"cv_install"};
        words.insert(words.end(), options.begin(), options.end());
        Arguments arguments(words);
        const CInstallBase run(true, arguments.argc(), arguments.argv());
        look(run);
    });
}

void ExpectOptionDefaults(const CInstallBase& run) {
    EXPECT_FALSE(run.m_cdInstall);
    EXPECT_TRUE(run.m_interactive);
    EXPECT_FALSE(run.m_clusterNode);
    EXPECT_FALSE(run.m_setup);
    EXPECT_FALSE(run.m_userMode);
    EXPECT_EQ(run.m_serviceGroup, "corvsrvc");
    EXPECT_EQ(run.m_serviceUser, "corvsrvc");
    EXPECT_EQ(run.m_scheduler, "TORQUE");
    EXPECT_EQ(run.m_queueType, 0);
    EXPECT_EQ(run.m_queueName, "");
    EXPECT_EQ(run.m_partitionName, "");
    EXPECT_EQ(run.m_scratchDir, "/tmp");
    EXPECT_EQ(run.m_argScratchLimitGB, -1);
    EXPECT_EQ(run.m_argMemoryLimitMB, -1);
}

TEST(CommandLine, WithoutArgumentsLeavesTheDefaults) {
    With({}, ExpectOptionDefaults);
}

TEST(CommandLine, TheProgramNameIsNoOption) {
    ExpectInChild([] {
        Arguments arguments({"--setup"});
        const CInstallBase run(true, arguments.argc(), arguments.argv());
        ExpectOptionDefaults(run);
    });
}

TEST(CommandLine, UnknownWordsArePassedOver) {
    With({"", "-", "--", "word", "--help", "-x", "=", "--setup "}, ExpectOptionDefaults);
}

TEST(CommandLine, ASpellingIsTheWholeWordInItsOwnCase) {
    With({"--setups", "--setu", "--SETUP", "-D", "/x", "-S", "7", "--scratch-limit=5", "--gu",
          "-d=/x", "-dx", "-cdx", "--user-modes", "--cluster", "-q=batch", "--no-queues"},
         ExpectOptionDefaults);
}

TEST(CommandLine, InterfaceWordsHaveNoEffect) {
    With({"--cli", "-cli", "--gui", "-gui"}, ExpectOptionDefaults);
}

TEST(CommandLine, ClusterNodeEndsAllQuestions) {
    With({"--cluster-node"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 3);
        EXPECT_FALSE(run.m_interactive);
        EXPECT_TRUE(run.m_clusterNode);
    });
}

TEST(CommandLine, FlagsSetTheirField) {
    With({"--user-mode"}, [](const CInstallBase& run) {
        EXPECT_TRUE(run.m_userMode);
        EXPECT_FALSE(run.m_setup);
    });
    With({"--setup"}, [](const CInstallBase& run) {
        EXPECT_TRUE(run.m_setup);
        EXPECT_FALSE(run.m_cdInstall);
    });
    for (const char* spelling : {"-c", "-cd", "--cd-install"})
        With({spelling}, [](const CInstallBase& run) { EXPECT_TRUE(run.m_cdInstall); });
}

TEST(CommandLine, TextOptionsTakeTheNextWord) {
    for (const char* spelling : {"-d", "--scratch-directory"}) {
        With({spelling, "/größe", "--setup"}, [](const CInstallBase& run) {
            EXPECT_EQ(run.m_scratchDir, QString::fromUtf8("/größe"));
            EXPECT_TRUE(run.m_setup);
        });
    }
    for (const char* spelling : {"-g", "--service-group"}) {
        With({spelling, "ours"}, [](const CInstallBase& run) {
            EXPECT_EQ(run.m_serviceGroup, "ours");
            EXPECT_EQ(run.m_serviceUser, "corvsrvc");
        });
    }
    for (const char* spelling : {"-u", "--service-user"}) {
        With({spelling, "mine"}, [](const CInstallBase& run) {
            EXPECT_EQ(run.m_serviceUser, "mine");
            EXPECT_EQ(run.m_serviceGroup, "corvsrvc");
        });
    }
}

TEST(CommandLine, ATextOptionTakesAnyNextWord) {
    With({"-d", "--setup"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_scratchDir, "--setup");
        EXPECT_FALSE(run.m_setup);
    });
    With({"-d", ""}, [](const CInstallBase& run) { EXPECT_EQ(run.m_scratchDir, ""); });
    With({"-g", "-u", "mine"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_serviceGroup, "-u");
        EXPECT_EQ(run.m_serviceUser, "corvsrvc");
    });
}

TEST(CommandLine, ATextOptionThatStandsLastHasNoEffect) {
    for (const char* spelling :
         {"-d", "--scratch-directory", "-g", "--service-group", "-u", "--service-user"})
        With({spelling}, ExpectOptionDefaults);
    With({"-d", "/one", "-d"},
         [](const CInstallBase& run) { EXPECT_EQ(run.m_scratchDir, "/one"); });
}

TEST(CommandLine, QueueOptionsChooseAnExternalScheduler) {
    for (const char* spelling : {"-q", "--external-queue"}) {
        With({spelling, "batch"}, [](const CInstallBase& run) {
            EXPECT_EQ(run.m_queueType, 2);
            EXPECT_EQ(run.m_scheduler, "TORQUE");
            EXPECT_EQ(run.m_queueName, "batch");
        });
    }
    for (const char* spelling : {"-p", "--external-partiton"}) {
        With({spelling, "fast"}, [](const CInstallBase& run) {
            EXPECT_EQ(run.m_queueType, 2);
            EXPECT_EQ(run.m_scheduler, "SLURM");
            EXPECT_EQ(run.m_partitionName, "fast");
            EXPECT_EQ(run.m_queueName, "");
        });
    }
}

TEST(CommandLine, AQueueOptionThatStandsLastTakesAnEmptyName) {
    With({"-q", "batch", "--no-queue", "-p", "fast", "-q"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 2);
        EXPECT_EQ(run.m_scheduler, "TORQUE");
        EXPECT_EQ(run.m_queueName, "");
        EXPECT_EQ(run.m_partitionName, "fast");
    });
    With({"-p", "fast", "-q", "batch", "-p"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 2);
        EXPECT_EQ(run.m_scheduler, "SLURM");
        EXPECT_EQ(run.m_partitionName, "");
        EXPECT_EQ(run.m_queueName, "batch");
    });
}

TEST(CommandLine, TheCorrectSpellingOfPartitionIsUnknown) {
    With({"--external-partition", "fast"}, ExpectOptionDefaults);
}

TEST(CommandLine, TheDefaultQueuesChooseTheirType) {
    With({"--internal-default-queue"},
         [](const CInstallBase& run) { EXPECT_EQ(run.m_queueType, 1); });
    With({"--no-queue"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 3);
        EXPECT_TRUE(run.m_interactive);
    });
    With({"-q", "batch", "-p", "fast", "--external-default-queue"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 2);
        EXPECT_EQ(run.m_queueName, "");
        EXPECT_EQ(run.m_scheduler, "SLURM");
        EXPECT_EQ(run.m_partitionName, "fast");
    });
}

TEST(CommandLine, TheLaterOfTwoOptionsWins) {
    With({"--no-queue", "--internal-default-queue"},
         [](const CInstallBase& run) { EXPECT_EQ(run.m_queueType, 1); });
    With({"--cluster-node", "--external-queue", "batch"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 2);
        EXPECT_FALSE(run.m_interactive);
    });
    With({"--external-queue", "batch", "--cluster-node"}, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_queueType, 3);
        EXPECT_EQ(run.m_queueName, "batch");
    });
    With({"-d", "/one", "--scratch-directory", "/two"},
         [](const CInstallBase& run) { EXPECT_EQ(run.m_scratchDir, "/two"); });
}

TEST(CommandLine, MayBeParsedAgain) {
    ExpectInChild([] {
        Arguments first({"cv_install", "-d", "/one"});
        CInstallBase run(true, first.argc(), first.argv());
        Arguments second({"cv_install", "-u", "mine"});
        run.ParseArgs(second.argc(), second.argv());
        EXPECT_EQ(run.m_scratchDir, "/one");
        EXPECT_EQ(run.m_serviceUser, "mine");
        run.ParseArgs(0, second.argv());
        run.ParseArgs(1, first.argv());
        EXPECT_EQ(run.m_serviceUser, "mine");
    });
}

TEST(CommandLine, SaysNothing) {
    const auto result = hx_test::RunInChild({}, [] {
        Arguments arguments({"cv_install", "--wrong", "-m", "many", "-d"});
        const CInstallBase run(true, arguments.argc(), arguments.argv());
        EndWithoutLeakCheck();
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST(UserModeArgument, IsFoundAtAnyPlace) {
    const auto ask = [](const Options& words) {
        Arguments arguments(words);
        return CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv());
    };
    EXPECT_TRUE(ask({"cv_install", "--user-mode"}));
    EXPECT_TRUE(ask({"cv_install", "-d", "--user-mode", "--setup"}));
    EXPECT_TRUE(ask({"cv_install", "a", "b", "--user-mode"}));
    EXPECT_FALSE(ask({"cv_install"}));
    EXPECT_FALSE(ask({"--user-mode"}));
    EXPECT_FALSE(ask({"--user-mode", "--setup"}));
    EXPECT_FALSE(ask({"cv_install", "--user-modes", "--user", "--User-mode", "--user-mode=1"}));
}

TEST(UserModeArgument, IsLookedForInTheCountedWordsOnly) {
    Arguments arguments({"cv_install", "--setup", "--user-mode"});
    EXPECT_FALSE(CInstallBase::ParseUserModeArg(2, arguments.argv()));
    EXPECT_FALSE(CInstallBase::ParseUserModeArg(1, arguments.argv()));
    EXPECT_FALSE(CInstallBase::ParseUserModeArg(0, arguments.argv()));
}

}  // namespace
