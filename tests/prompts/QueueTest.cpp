// The menus for the type of queue and the scheduler, the scheduler's questions, and the summary.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

// A scheduler as the prompts present it. The first field is the queue.
struct Scheduler {
    const char* choice;
    const char* name;
    std::string queueQuestion;
    const char* queueSetting;
    Words commands;
    std::vector<QString CInstallBase::*> fields;
    Words defaults;
};

const Scheduler torque = {
    "1\n",
    "TORQUE",
    "\nQueue to which CORVANE jobs will be submitted [<default>]:",
    "queue",
    {"qsub", "qdel", "qsig"},
    {&CInstallBase::m_queueName, &CInstallBase::m_qsubCmd, &CInstallBase::m_qdelCmd,
     &CInstallBase::m_qsigCmd},
    {"", "/usr/local/bin/qsub", "/usr/local/bin/qdel", "/usr/local/bin/qsig"}};
const Scheduler slurm = {
    "2\n",
    "SLURM",
    "\nPartition to which CORVANE jobs will be submitted [<default>]:",
    "partition",
    {"sbatch", "scancel"},
    {&CInstallBase::m_partitionName, &CInstallBase::m_sbatchCmd, &CInstallBase::m_scancelCmd},
    {"", "/usr/bin/sbatch", "/usr/bin/scancel"}};

Words SettingsOf(const CInstallBase& run, const Scheduler& scheduler) {
    Words settings;
    for (const auto field : scheduler.fields)
        settings.push_back((run.*field).toStdString());
    return settings;
}

std::string SummaryOf(const Scheduler& scheduler, const Words& settings) {
    std::string lines;
    const auto add = [&lines](const std::string& name, const std::string& value) {
        lines += "    " + name + "=\"" + value + "\"\n";
    };
    if (!settings[0].empty())
        add(scheduler.queueSetting, settings[0]);
    for (size_t i = 0; i < scheduler.commands.size(); ++i)
        add(scheduler.commands[i] + " command", settings[i + 1]);
    return ExternalSummary(lines);
}

std::string SummaryWithQueue(const Scheduler& scheduler, const char* queue) {
    Words settings = scheduler.defaults;
    settings[0] = queue;
    return SummaryOf(scheduler, settings);
}

// The scheduler's menu and questions, with the default in each.
std::vector<Turn> Questions(const Scheduler& scheduler, const Words& typed, const Words& offered) {
    std::vector<Turn> turns = {{Separator + SchedulerMenu, scheduler.choice},
                               {scheduler.queueQuestion, typed[0]}};
    for (size_t i = 0; i < scheduler.commands.size(); ++i) {
        turns.push_back(
            {"\nLocation of " + scheduler.commands[i] + " command [" + offered[i + 1] + "]:",
             typed[i + 1]});
    }
    return turns;
}

class Queue : public PromptTest {
protected:
    Queue() : m_opt(Replace("/opt")) {}

    void Ask(int expected, const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            run.PromptQueueType();
            EXPECT_EQ(run.m_queueType, expected);
        });
    }

    // Chooses the scheduler and answers its questions. The fields of the other do not change.
    void ExpectSettings(const Scheduler& scheduler, const Words& typed, const Words& offered,
                        const Words& expected, const std::string& choice = "2\n") {
        SCOPED_TRACE(choice + testing::PrintToString(typed));
        std::vector<Turn> turns = Questions(scheduler, typed, offered);
        turns.insert(turns.begin(), {Separator + QueueMenu, choice});
        const bool ends = typed[0].ends_with(End);
        turns.push_back({SummaryOf(scheduler, expected) + Pause, ends ? "" : "\n"});
        const Scheduler& other = &scheduler == &torque ? slurm : torque;
        Converse(turns, [&](CInstallBase& run) {
            const Words before = SettingsOf(run, other);
            run.PromptQueueType();
            EXPECT_EQ(run.m_queueType, CInstallBase::QueueExternal);
            EXPECT_EQ(run.m_scheduler, scheduler.name);
            EXPECT_EQ(SettingsOf(run, scheduler), expected);
            EXPECT_EQ(SettingsOf(run, other), before);
        });
    }

    const std::string m_opt;  // bound over /opt
};
HX_OVER_BOTH_CONSOLES(Queue);

TEST_P(Queue, AcceptsNumberOfChoice) {
    for (const std::string& choice :
         {std::string("1\n"), std::string("  1  \n"), std::string("\t1\n"), std::string("+1\n"),
          std::string("01\n"), std::string("1abc\n"), std::string("1 2\n"), std::string("1.9\n"),
          std::string("1\0002\n", 4), std::string("4294967297\n"), std::string("-4294967295\n")}) {
        SCOPED_TRACE(choice);
        Ask(CInstallBase::QueueInternal,
            {{Separator + QueueMenu, choice}, {InternalSummary + Pause, "\n"}});
    }
    for (const char* choice : {"2\n", "2abc\n", "4294967298\n"})
        ExpectSettings(slurm, {"\n", "\n", "\n"}, slurm.defaults, slurm.defaults, choice);
    Ask(CInstallBase::QueueInternal,
        {{Separator + QueueMenu, "1" + End}, {InternalSummary + Pause}});
}

TEST_P(Queue, RepeatsMenuAfterInvalidChoice) {
    std::vector<Turn> turns = {{Separator}};
    const auto addInvalid = [&turns](const std::string& menu, const Words& choices) {
        for (const std::string& choice : choices) {
            turns.back() = {turns.back().output + menu, choice};
            turns.push_back({Invalid + Pause, "1\n"});
            turns.push_back({""});
        }
    };
    addInvalid(QueueMenu, {"\n", "0\n", "3\n", "-1\n", "0x2\n", "x1\n", "one\n", "2147483649\n",
                           "4294967296\n", "9223372036854775809\n", "18446744073709551617\n"});
    turns.back() = {QueueMenu, "2\n"};
    turns.push_back({Separator});
    addInvalid(SchedulerMenu, {"\n", "0\n", "3\n", "0x2\n", "SLURM\n"});
    turns.back() = {SchedulerMenu, " 4294967298nd\n"};
    const std::vector<Turn> questions = Questions(slurm, {"\n", "\n", "\n"}, slurm.defaults);
    turns.insert(turns.end(), questions.begin() + 1, questions.end());
    turns.push_back({SummaryOf(slurm, slurm.defaults) + Pause, "\n"});
    Ask(CInstallBase::QueueExternal, turns);
}

TEST_P(Queue, ReadsRestOfLongLineNext) {
    const std::string spaces(1022, ' ');
    Ask(CInstallBase::QueueInternal,
        {{Separator + QueueMenu, spaces + "12\n"}, {InternalSummary + Pause}});
    std::vector<Turn> turns = Questions(slurm, {"\n", "\n", "\n"}, slurm.defaults);
    turns[0].typed = "";
    turns.insert(turns.begin(), {Separator + QueueMenu, spaces + "22\n"});
    turns.push_back({SummaryOf(slurm, slurm.defaults) + Pause, "\n"});
    Ask(CInstallBase::QueueExternal, turns);
    const std::string queue(1023, 'q');
    ExpectSettings(torque, {queue + "rest\n", "", std::string("\0x\n", 3), "\n"},
                   {"", torque.defaults[1], "qdel", "qsig"}, {queue, "rest", "qdel", "qsig"});
}

TEST_P(Queue, ReadsConsoleWithoutInteraction) {
    std::vector<Turn> turns = Questions(slurm, {"gpu\n", "\n", "/x/scancel\n"}, slurm.defaults);
    turns[0] = {Invalid + SchedulerMenu, "2\n"};
    turns.insert(turns.begin(), {{Separator + QueueMenu, "3\n"},
                                 {Invalid + QueueMenu, "2\n"},
                                 {Separator + SchedulerMenu, "x\n"}});
    turns.push_back({SummaryOf(slurm, {"gpu", "/usr/bin/sbatch", "/x/scancel"})});
    Converse(turns, [](CInstallBase& run) {
        run.m_interactive = false;
        run.PromptQueueType();
    });
}

TEST_P(Queue, OffersOpenPbsWhenInstalled) {
    if (!std::filesystem::exists("/opt"))
        GTEST_SKIP() << "/opt is needed, to mount another directory over it";
    std::filesystem::create_directories(m_opt + "/pbs/bin");
    WriteFile(m_opt + "/pbs/bin/qsub", "");
    const Words settings = {"", "/opt/pbs/bin/qsub", "/opt/pbs/bin/qdel", "/opt/pbs/bin/qsig"};
    ExpectSettings(torque, {"\n", "\n", "\n", "\n"}, settings, settings);
}

TEST_P(Queue, OffersCommandsInDirectoryOfSubmitCommand) {
    const std::pair<std::string, std::string> submitCommands[] = {
        {"/srv/bin/x", "/srv/bin/"}, {"/x", "/"}, {"x", ""}, {"/srv/pbs/", "/srv/pbs/"}};
    for (const Scheduler* scheduler : {&torque, &slurm}) {
        for (const auto& [submit, directory] : submitCommands) {
            Words expected = {"", submit};
            for (size_t i = 1; i < scheduler->commands.size(); ++i)
                expected.push_back(directory + scheduler->commands[i]);
            Words offered = expected;
            offered[1] = scheduler->defaults[1];
            Words typed(expected.size(), "\n");
            typed[1] = submit + "\n";
            ExpectSettings(*scheduler, typed, offered, expected);
        }
    }
}

TEST_P(Queue, TakesTypedSettings) {
    ExpectSettings(torque, {" lång kö\n", " /a b/qsub \n", "/other/qdel\n", "qsig -s\n"},
                   {"", torque.defaults[1], "/a b/qdel", "/a b/qsig"},
                   {"lång kö", "/a b/qsub", "/other/qdel", "qsig -s"});
    ExpectSettings(slurm, {"gpu\n", "sbatch\n", "/données/scancel\n"},
                   {"", slurm.defaults[1], "scancel"}, {"gpu", "sbatch", "/données/scancel"});
}

TEST_P(Queue, KeepsDefaultsAtEndOfInput) {
    Words settings = torque.defaults;
    settings[0] = "batch";
    ExpectSettings(torque, {"batch" + End, "", "", ""}, torque.defaults, settings);
    ExpectSettings(slurm, {End, "", ""}, slurm.defaults, slurm.defaults);
}

TEST_P(Queue, KeepsOnlySubmitCommandOfFields) {
    for (const Scheduler* scheduler : {&torque, &slurm}) {
        Words expected = {"", "/x/submit"};
        for (size_t i = 1; i < scheduler->commands.size(); ++i)
            expected.push_back("/x/" + scheduler->commands[i]);
        const Words typed(expected.size(), "\n");
        Converse(Questions(*scheduler, typed, expected), [&](CInstallBase& run) {
            for (const auto field : scheduler->fields)
                run.*field = QStringLiteral("/old/value");
            run.*scheduler->fields[1] = QStringLiteral("/x/submit");
            run.PromptExternalQueueOptions();
            EXPECT_EQ(SettingsOf(run, *scheduler), expected);
            EXPECT_EQ(run.m_queueType, CInstallBase::QueueUnset);
        });
    }
}

TEST_P(Queue, ReportsSettingsOfOptions) {
    struct Options {
        Words words;
        int type;
        std::string summary;
    };
    const Options cases[] = {
        {{"--internal-default-queue"}, CInstallBase::QueueInternal, InternalSummary},
        {{"--external-default-queue"}, CInstallBase::QueueExternal, SummaryWithQueue(torque, "")},
        {{"--external-queue", "lång kö"},
         CInstallBase::QueueExternal,
         SummaryWithQueue(torque, "lång kö")},
        {{"--external-queue", ""}, CInstallBase::QueueExternal, SummaryWithQueue(torque, "")},
        {{"--external-partiton", "gpu"},
         CInstallBase::QueueExternal,
         SummaryWithQueue(slurm, "gpu")},
        {{"--external-partiton", ""}, CInstallBase::QueueExternal, SummaryWithQueue(slurm, "")},
        // A setup without a queue is reported as external.
        {{"--no-queue"}, CInstallBase::QueueNone, SummaryWithQueue(torque, "")}};
    for (const Options& options : cases) {
        m_options = options.words;
        Ask(options.type, {{options.summary + Pause, "\n"}});
    }
    m_options = {"--cluster-node"};
    Ask(CInstallBase::QueueNone, {{SummaryWithQueue(torque, "")}});
}

TEST_P(Queue, ReportsAnyOtherTypeAsExternal) {
    for (const int type : {-1, -2147483647 - 1, 4, 7}) {
        SCOPED_TRACE(type);
        Converse({{SummaryOf(torque, {"%s", "a b", "", "/données/qsig"}) + Pause, "\n"}},
                 [type](CInstallBase& run) {
                     run.m_queueType = type;
                     run.m_queueName = "%s";
                     run.m_qsubCmd = "a b";
                     run.m_qdelCmd = "";
                     run.m_qsigCmd = "/données/qsig";
                     run.PromptQueueType();
                     EXPECT_EQ(run.m_queueType, type);
                 });
    }
}

TEST_P(Queue, ReportsNoSettingsOfUnknownScheduler) {
    m_options = {"--external-default-queue"};
    for (const QString scheduler : {"", "torque", "Slurm", "SGE", "TORQUE "}) {
        SCOPED_TRACE(scheduler.toStdString());
        Converse({{ExternalSummary("") + Pause, "\n"}}, [=](CInstallBase& run) {
            run.m_scheduler = scheduler;
            run.PromptQueueType();
        });
    }
}

TEST_P(Queue, EndsProcessAtEndOfInputInMenu) {
    m_status = 2;
    m_error = "Corvane Install: Error\n    [^\n]*type of queue[^\n]*\n";
    Ask(0, {{Separator + QueueMenu, End}, {Invalid}});
    Ask(0, {{Separator + QueueMenu, "3" + End}, {Invalid}});
    Ask(0, {{Separator + QueueMenu, "3\n"}, {Invalid + Pause, End}, {QueueMenu + Invalid}});
    m_error = "Corvane Install: Error\n    [^\n]*scheduler[^\n]*\n";
    for (const std::string& choice : {End, "0x2" + End}) {
        Ask(0, {{Separator + QueueMenu, "2\n"}, {Separator + SchedulerMenu, choice}, {Invalid}});
    }
}

}  // namespace
}  // namespace hx_test
