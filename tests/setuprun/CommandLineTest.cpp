// The command-line options and the fields that they set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Machine.h"

namespace {

using Words = std::vector<std::string>;

// Lists the fields of options that do not have their defaults.
std::string ChangedFields(const CInstallBase& run) {
    std::string changed;
    const auto add = [&](const std::string& name, const auto& value, const auto& standard,
                         const std::string& text) {
        if (value != standard)
            changed += (changed.empty() ? "" : " ") + name + "=" + text;
    };
    const auto addFlag = [&](const std::string& name, bool value, bool standard) {
        add(name, value, standard, value ? "true" : "false");
    };
    const auto addText = [&](const std::string& name, const QString& value, const char* standard) {
        add(name, value, QString::fromUtf8(standard), value.toStdString());
    };
    const auto addNumber = [&](const std::string& name, int value, int standard) {
        add(name, value, standard, std::to_string(value));
    };
    addFlag("cd", run.m_cdInstall, false);
    addFlag("interactive", run.m_interactive, true);
    addFlag("node", run.m_clusterNode, false);
    addFlag("setup", run.m_setup, false);
    addFlag("user-mode", run.m_userMode, false);
    addText("group", run.m_serviceGroup, "corvsrvc");
    addText("user", run.m_serviceUser, "corvsrvc");
    addText("scheduler", run.m_scheduler, "TORQUE");
    addNumber("type", run.m_queueType, 0);
    addText("queue", run.m_queueName, "");
    addText("partition", run.m_partitionName, "");
    addText("dir", run.m_scratchDir, "/tmp");
    addNumber("scratch", run.m_argScratchLimitGB, -1);
    addNumber("memory", run.m_argMemoryLimitMB, -1);
    EXPECT_EQ(run.m_scratchLimitGB, 0);
    EXPECT_EQ(run.m_memoryLimitMB, 0);
    return changed;
}

void ExpectFields(const std::vector<std::pair<Words, std::string>>& cases) {
    ExpectInChild([&] {
        for (const auto& [options, expected] : cases) {
            Words words = {"cv_install"};
            words.insert(words.end(), options.begin(), options.end());
            Construct(words, [&, &fields = expected](CInstallBase& run) {
                EXPECT_EQ(ChangedFields(run), fields) << testing::PrintToString(words);
            });
        }
    });
}

TEST(CommandLine, IgnoresUnknownWords) {
    ExpectFields(
        {{{}, ""},
         {{"", "-", "--", "word", "--help", "-x", "=", "--setup "}, ""},
         {{"--setups", "--setu", "--SETUP", "-D", "/x", "-S", "7", "--gu", "-d=/x", "-dx"}, ""},
         {{"-cdx", "--user-modes", "--cluster", "-q=batch", "--no-queues"}, ""},
         {{"--scratch-limit=5", "--external-partition", "fast"}, ""},
         {{"--cli", "-cli", "--gui", "-gui"}, ""}});
}

TEST(CommandLine, IgnoresProgramName) {
    ExpectInChild([] {
        Construct({"--setup"}, [](CInstallBase& run) { EXPECT_EQ(ChangedFields(run), ""); });
    });
}

TEST(CommandLine, SetsFlags) {
    ExpectFields({{{"--cluster-node"}, "interactive=false node=true type=3"},
                  {{"--user-mode"}, "user-mode=true"},
                  {{"--setup"}, "setup=true"},
                  {{"-c"}, "cd=true"},
                  {{"-cd"}, "cd=true"},
                  {{"--cd-install"}, "cd=true"}});
}

TEST(CommandLine, SetsTexts) {
    ExpectFields({{{"-d", "/größe", "--setup"}, "setup=true dir=/größe"},
                  {{"--scratch-directory", "/größe", "--setup"}, "setup=true dir=/größe"},
                  {{"-g", "ours"}, "group=ours"},
                  {{"--service-group", "ours"}, "group=ours"},
                  {{"-u", "mine"}, "user=mine"},
                  {{"--service-user", "mine"}, "user=mine"},
                  {{"-d", "--setup"}, "dir=--setup"},
                  {{"-d", ""}, "dir="},
                  {{"-g", "-u", "mine"}, "group=-u"}});
}

TEST(CommandLine, IgnoresTextOptionWithoutValue) {
    ExpectFields({{{"-d"}, ""},
                  {{"--scratch-directory"}, ""},
                  {{"-g"}, ""},
                  {{"--service-group"}, ""},
                  {{"-u"}, ""},
                  {{"--service-user"}, ""},
                  {{"-d", "/one", "-d"}, "dir=/one"}});
}

TEST(CommandLine, SelectsQueue) {
    ExpectFields({{{"-q", "batch"}, "type=2 queue=batch"},
                  {{"--external-queue", "batch"}, "type=2 queue=batch"},
                  {{"-p", "fast"}, "scheduler=SLURM type=2 partition=fast"},
                  {{"--external-partiton", "fast"}, "scheduler=SLURM type=2 partition=fast"},
                  {{"-q", "batch", "--no-queue", "-p", "fast", "-q"}, "type=2 partition=fast"},
                  {{"-p", "fast", "-q", "batch", "-p"}, "scheduler=SLURM type=2 queue=batch"},
                  {{"--internal-default-queue"}, "type=1"},
                  {{"--no-queue"}, "type=3"},
                  {{"-q", "batch", "-p", "fast", "--external-default-queue"},
                   "scheduler=SLURM type=2 partition=fast"}});
}

TEST(CommandLine, AppliesLaterOption) {
    ExpectFields({{{"--no-queue", "--internal-default-queue"}, "type=1"},
                  {{"--cluster-node", "--external-queue", "batch"},
                   "interactive=false node=true type=2 queue=batch"},
                  {{"--external-queue", "batch", "--cluster-node"},
                   "interactive=false node=true type=3 queue=batch"},
                  {{"-d", "/one", "--scratch-directory", "/two"}, "dir=/two"}});
}

TEST(CommandLine, SetsNumbers) {
    const std::pair<std::string, std::string> options[] = {{"-s", "scratch"},
                                                           {"--scratch-limit", "scratch"},
                                                           {"-m", "memory"},
                                                           {"--memory-limit", "memory"}};
    for (const auto& [word, field] : options) {
        const std::string set = field + "=";
        ExpectFields({{{word, "12", "--setup"}, "setup=true " + set + "12"},
                      {{word, "2147483647"}, set + "2147483647"},
                      {{word, "+7"}, set + "7"},
                      {{word, "010"}, set + "10"},
                      {{word, "0", "--setup"}, "setup=true " + set + "0"},
                      {{word, "-5", "--setup"}, "setup=true " + set + "-5"},
                      {{word, "-2147483648"}, set + "-2147483648"},
                      {{word, word, "3"}, set + "3"},
                      {{word, "3", word, "4"}, set + "4"},
                      {{word, "3", word, "four"}, set + "3"},
                      {{word, "3", word}, set + "3"},
                      {{"--setup", word}, "setup=true"}});
        for (const char* invalid : {"", "foo", "5GB", "0x10", "1.5", "1e3", "5,0", "--5",
                                    "99999999999", "2147483648", "-2147483649"})
            ExpectFields({{{word, invalid}, ""}});
        ExpectFields({{{word, "--setup"}, "setup=true"}});
    }
    ExpectFields({{{"-s", "5", "-m", "700"}, "scratch=5 memory=700"}});
}

TEST(CommandLine, KeepsFieldsWhenParsedAgain) {
    ExpectInChild([] {
        Construct({"cv_install", "-d", "/one"}, [](CInstallBase& run) {
            Arguments second({"cv_install", "-u", "mine"});
            run.ParseArgs(second.argc(), second.argv());
            EXPECT_EQ(ChangedFields(run), "user=mine dir=/one");
            run.ParseArgs(0, second.argv());
            run.ParseArgs(1, second.argv());
            EXPECT_EQ(ChangedFields(run), "user=mine dir=/one");
        });
    });
}

TEST(CommandLine, PrintsNothing) {
    const auto result = hx_test::RunInChild({}, [] {
        Construct({"cv_install", "--wrong", "-m", "many", "-d"});
        EndWithoutLeakCheck();
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
}

TEST(UserModeArgument, IsFoundAmongCountedWords) {
    struct {
        Words words;
        int count;
        bool found;
    } const cases[] = {{{"cv_install", "--user-mode"}, 2, true},
                       {{"cv_install", "-d", "--user-mode", "--setup"}, 4, true},
                       {{"cv_install", "a", "b", "--user-mode"}, 4, true},
                       {{"cv_install"}, 1, false},
                       {{"--user-mode"}, 1, false},
                       {{"--user-mode", "--setup"}, 2, false},
                       {{"cv_install", "--user-modes", "--user", "--User-mode"}, 4, false},
                       {{"cv_install", "--user-mode=1"}, 2, false},
                       {{"cv_install", "--setup", "--user-mode"}, 2, false},
                       {{"cv_install", "--setup", "--user-mode"}, 1, false},
                       {{"cv_install", "--setup", "--user-mode"}, 0, false}};
    for (const auto& test : cases) {
        Arguments arguments(test.words);
        EXPECT_EQ(CInstallBase::ParseUserModeArg(test.count, arguments.argv()), test.found)
            << testing::PrintToString(test.words);
    }
}

}  // namespace
