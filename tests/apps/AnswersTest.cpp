// The answers of a setup: their table, their sources, and their form as TOML.
#include "answers/Answers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QIODevice>
#include <filesystem>
#include <set>

#include "answers/AnswersFile.h"
#include "answers/Arguments.h"
#include "answers/Conversation.h"
#include "answers/StartRun.h"
#include "apps/Leaks.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"

namespace {

// Every kind of value, and text that must be escaped.
Answers EveryKind() {
    Answers answers;
    answers.Set(AnswerId::JobLimit, 4, AnswerSource::CommandLine);
    answers.Set(AnswerId::MemoryLimit, 4000, AnswerSource::Default);
    answers.Set(AnswerId::ScratchDirectory, QStringLiteral("/größe/a b"), AnswerSource::Typed);
    answers.Set(AnswerId::Queue, QStringLiteral("slurm"), AnswerSource::File);
    answers.Set(AnswerId::QueueName, QString(), AnswerSource::Default);
    answers.Set(AnswerId::SbatchCommand, QStringLiteral("a\"b\\c\td"), AnswerSource::Default);
    answers.Set(AnswerId::Members, QStringList{"ann", "bob"}, AnswerSource::Typed);
    answers.Set(AnswerId::ClusterNode, false, AnswerSource::Default);
    answers.Set(AnswerId::Protocols, QStringList{"HTTP"}, AnswerSource::Default);
    return answers;
}

constexpr const char* everyKindAsToml = R"(job-limit = 4  # threads
memory-limit = 4000  # MB per thread
scratch-directory = "/größe/a b"
queue = "slurm"
queue-name = ""
sbatch = "a\"b\\c\u0009d"
members = ["ann", "bob"]
cluster-node = false
protocols = ["HTTP"]
)";

class CommandLine {
public:
    explicit CommandLine(std::vector<std::string> words) : m_words(std::move(words)) {
        m_words.insert(m_words.begin(), "/opt/product/cv_install");
        for (std::string& word : m_words)
            m_argv.push_back(word.data());
        m_argv.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(m_words.size()); }
    char** argv() { return m_argv.data(); }

private:
    const IgnoredLeaks m_ignored;
    std::vector<std::string> m_words;
    std::vector<char*> m_argv;
};

// The answers of a command line as TOML, with the scheduler that the library would use.
std::string AnswersIn(const std::vector<std::string>& words) {
    CommandLine line(words);
    Arguments arguments(line.argc(), line.argv());
    const CInstallBase run(true, arguments.argc(), arguments.argv());
    const Answers answers = arguments.AnswersIn(run);
    for (const auto& [id, answer] : answers.All())
        EXPECT_EQ(answer.source, AnswerSource::CommandLine);
    return WriteAnswers(answers, AnswersForm::File).toStdString();
}

TEST(AnswerTable, HasUniqueKeysInOrderOfIds) {
    std::set<std::string> keys;
    for (const AnswerRow& row : AnswerRows()) {
        EXPECT_EQ(&RowOf(row.id), &row) << row.key;
        EXPECT_EQ(FindAnswerRow(QLatin1String(row.key)), &row);
        EXPECT_TRUE(keys.insert(row.key).second) << row.key;
    }
}

TEST(Answers, ReadsFieldsThatItApplies) {
    CommandLine none({});
    CInstallBase run(true, none.argc(), none.argv());
    const std::pair<AnswerId, AnswerValue> values[] = {
        {AnswerId::JobLimit, 3},
        {AnswerId::MemoryLimit, 700},
        {AnswerId::ScratchDirectory, QStringLiteral("/scratch")},
        {AnswerId::ScratchLimit, 5},
        {AnswerId::Queue, QStringLiteral("slurm")},
        {AnswerId::QueueName, QStringLiteral("chem")},
        {AnswerId::QsubCommand, QStringLiteral("/q/qsub")},
        {AnswerId::QdelCommand, QStringLiteral("/q/qdel")},
        {AnswerId::QsigCommand, QStringLiteral("/q/qsig")},
        {AnswerId::SbatchCommand, QStringLiteral("/s/sbatch")},
        {AnswerId::ScancelCommand, QStringLiteral("/s/scancel")},
        {AnswerId::Members, QStringList{"ann"}},
        {AnswerId::ServiceUser, QStringLiteral("chem")},
        {AnswerId::ServiceGroup, QStringLiteral("chems")},
        {AnswerId::ClusterNode, true},
        {AnswerId::SubmissionScripts, true},
        {AnswerId::Protocols, QStringList{"HTTP", "HTTPS"}},
        {AnswerId::HttpAddress, QStringLiteral("10.0.0.1")},
        {AnswerId::HttpPort, 81},
        {AnswerId::HttpsAddress, QStringLiteral("10.0.0.2")},
        {AnswerId::HttpsPort, 444},
        {AnswerId::Certificate, QStringLiteral("/c.pem")},
        {AnswerId::Key, QStringLiteral("/k.pem")},
        {AnswerId::DiffieHellman, QStringLiteral("/d.pem")}};
    ASSERT_EQ(std::size(values), AnswerRows().size());
    Answers given;
    for (const auto& [id, value] : values)
        given.Set(id, value, AnswerSource::File);
    ApplyAnswers(given, run);
    EXPECT_EQ(AnswersOf(run, given), given);
    EXPECT_EQ(run.m_jobLimit, 3);
    EXPECT_EQ(run.m_argMemoryLimitMB, 700);
    EXPECT_EQ(run.m_argScratchLimitGB, 5);
    EXPECT_EQ(run.m_queueType, CInstallBase::QueueExternal);
    EXPECT_EQ(run.m_scheduler, "SLURM");
    EXPECT_EQ(run.m_partitionName, "chem");
    EXPECT_EQ(run.m_compSrvcAllow, "HTTP,HTTPS");
    EXPECT_FALSE(run.m_interactive);
    // A value that the run has changed is a default.
    run.m_jobLimit = 2;
    EXPECT_EQ(*AnswersOf(run, given).Find(AnswerId::JobLimit), Answer{.value = 2});
}

TEST(Answers, CompletesWithWeakerAnswersThatFit) {
    Answers weaker;
    weaker.Set(AnswerId::JobLimit, 4, AnswerSource::Record);
    weaker.Set(AnswerId::Queue, QStringLiteral("torque"), AnswerSource::Record);
    weaker.Set(AnswerId::QueueName, QStringLiteral("batch"), AnswerSource::Record);
    Answers other;
    other.Set(AnswerId::JobLimit, 2, AnswerSource::CommandLine);
    other.Set(AnswerId::Queue, QStringLiteral("slurm"), AnswerSource::CommandLine);
    other.Complete(weaker);
    EXPECT_EQ(other.Text(AnswerId::JobLimit), "2 threads");
    EXPECT_EQ(other.Text(AnswerId::Queue), "Slurm");
    EXPECT_EQ(other.Find(AnswerId::QueueName), nullptr);
    Answers same;
    same.Set(AnswerId::Queue, QStringLiteral("torque"), AnswerSource::CommandLine);
    same.Complete(weaker);
    EXPECT_EQ(same.Text(AnswerId::QueueName), "batch");
    EXPECT_EQ(same.Find(AnswerId::QueueName)->source, AnswerSource::Record);
    Answers node;
    node.Set(AnswerId::ClusterNode, true, AnswerSource::File);
    Answers completed;
    completed.Complete(node);
    completed.Complete(weaker);
    EXPECT_EQ(completed.Text(AnswerId::Queue), "none");
}

TEST(Answers, PassThroughStreamUnchanged) {
    QByteArray bytes;
    QDataStream sender(&bytes, QIODevice::WriteOnly);
    sender << EveryKind();
    Answers received;
    QDataStream stream(bytes);
    stream >> received;
    EXPECT_EQ(received, EveryKind());
}

TEST(Options, GiveEachAnswer) {
    const struct {
        std::vector<std::string> words;
        std::string toml;
    } cases[] = {
        {{"--job-limit", "4"}, "job-limit = 4  # threads\n"},
        {{"-m", "700", "--memory-limit=800"}, "memory-limit = 800  # MB per thread\n"},
        {{"-s", "5"}, "scratch-limit = 5  # GB per thread\n"},
        {{"-s", "5", "-s", "0", "-m", "-1"}, ""},
        {{"-d", "/a=b"}, "scratch-directory = \"/a=b\"\n"},
        {{"--scratch-directory=/a=b"}, "scratch-directory = \"/a=b\"\n"},
        {{"--qsub", "/q/qsub"}, "qsub = \"/q/qsub\"\n"},
        {{"--members", "ann,bob carl"}, "members = [\"ann\", \"bob\", \"carl\"]\n"},
        {{"--members=none"}, "members = []\n"},
        {{"-u", "chem", "-g", "chems"}, "service-user = \"chem\"\nservice-group = \"chems\"\n"},
        {{"--submission-scripts"}, "submission-scripts = true\n"},
        {{"--submission-scripts=false"}, "submission-scripts = false\n"},
        {{"--protocols", "HTTP,HTTPS"}, "protocols = [\"HTTP\", \"HTTPS\"]\n"},
        {{"--http-port=81"}, "http-port = 81\n"},
        {{"--setup", "--user-mode", "--yes", "--cli"}, ""},
    };
    for (const auto& [words, toml] : cases)
        EXPECT_EQ(AnswersIn(words), toml);
}

TEST(Options, ApplyLastOneForQueue) {
    const std::string chem = "queue = \"slurm\"\nqueue-name = \"chem\"\n";
    const struct {
        std::vector<std::string> words;
        std::string toml;
    } cases[] = {
        {{"--queue", "internal"}, "queue = \"internal\"\n"},
        {{"-p", "chem"}, chem},
        {{"--external-partiton", "chem"}, chem},
        {{"--external-partition=chem"}, chem},
        {{"--queue-name", "chem", "--queue", "slurm"}, chem},
        {{"-p", "gpu", "--queue-name", "chem"}, chem},
        {{"-q", "batch", "--queue=slurm", "--queue-name=chem"}, chem},
        {{"-p"}, "queue = \"slurm\"\nqueue-name = \"\"\n"},
        {{"--queue", "torque"}, "queue = \"torque\"\n"},
        {{"-p", "chem", "--no-queue"}, "queue = \"none\"\n"},
        {{"--no-queue", "--external-default-queue"}, "queue = \"torque\"\nqueue-name = \"\"\n"},
        {{"-p", "chem", "--external-default-queue"}, chem},
        {{"-p", "chem", "--cluster-node"}, "queue = \"none\"\ncluster-node = true\n"},
        {{"--cluster-node", "-p", "chem"}, chem + "cluster-node = true\n"},
        {{"--cluster-node=false"}, "cluster-node = false\n"},
    };
    for (const auto& [words, toml] : cases)
        EXPECT_EQ(AnswersIn(words), toml);
}

TEST(AnswersFile, WritesOneLineForEachAnswer) {
    EXPECT_EQ(WriteAnswers(EveryKind(), AnswersForm::File), everyKindAsToml);
    EXPECT_EQ(WriteAnswers(EveryKind(), AnswersForm::Record),
              QByteArray(everyKindAsToml) +
                  "chosen = [\"job-limit\", \"scratch-directory\", \"queue\", \"members\"]\n");
}

TEST(AnswersFile, ReadsWhatItWrites) {
    Answers answers = EveryKind();
    answers.Remove(AnswerId::SbatchCommand);
    const ParsedAnswers file =
        ParseAnswers(WriteAnswers(answers, AnswersForm::File), AnswersForm::File);
    EXPECT_TRUE(file.findings.empty());
    for (const auto& [id, answer] : answers.All())
        EXPECT_EQ(*file.answers.Find(id), (Answer{answer.value, AnswerSource::File, true}));
    const ParsedAnswers record =
        ParseAnswers(WriteAnswers(answers, AnswersForm::Record), AnswersForm::Record);
    EXPECT_TRUE(record.findings.empty());
    for (const auto& [id, answer] : answers.All())
        EXPECT_EQ(*record.answers.Find(id),
                  (Answer{answer.value, AnswerSource::Record, answer.chosen}));
}

TEST(AnswersFile, HasExampleOfEveryKey) {
    const std::string example = hx_test::ReadFile(HX_EXAMPLE_ANSWERS);
    const ParsedAnswers parsed = ParseAnswers(example.c_str(), AnswersForm::File);
    EXPECT_TRUE(parsed.findings.empty());
    for (const AnswerRow& row : AnswerRows())
        EXPECT_NE(parsed.answers.Find(row.id), nullptr) << row.key;
}

TEST(AnswersFile, ReportsInvalidLineWithPlaceAndRemedy) {
    const std::string number = "Use a whole number from 1 to 2147483647 (threads), without a unit.";
    const std::string port = "Use a whole number from 1 to 65535, without a unit.";
    const std::string other = "Use another value.";
    const struct {
        std::string line;
        unsigned column;
        std::string text;
        std::string remedy;
    } cases[] = {
        {"job-limt = 4", 1, "unknown key \"job-limt\"", "Did you mean \"job-limit\"?"},
        {"chosen = []", 1, "unknown key \"chosen\"",
         "The keys are the long options without their hyphens at the start."},
        {"job-limit = \"4\"", 13, "invalid value for \"job-limit\": \"4\"", number},
        {"job-limit = 4.5", 13, "invalid value for \"job-limit\": \"4.5\"", number},
        {"job-limit = 0", 13, "invalid value for \"job-limit\": \"0\"", number},
        {"job-limit = 4294967300", 13, "invalid value for \"job-limit\": \"4294967300\"", number},
        {"http-port = 65536", 13, "invalid value for \"http-port\": \"65536\"", port},
        {"queue = \"sge\"", 9, "invalid value for \"queue\": \"sge\"",
         "Use one of \"internal\", \"none\", \"torque\", \"slurm\"."},
        {"protocols = [\"FTP\"]", 13, "invalid value for \"protocols\": \"[ 'FTP' ]\"",
         "Use a list of \"HTTP\", \"HTTPS\"."},
        {"protocols = []", 13, "invalid value for \"protocols\": \"[]\"",
         "Use a list of \"HTTP\", \"HTTPS\"."},
        {"members = \"ann\"", 11, "invalid value for \"members\": \"ann\"", "Use a list of names."},
        {"members = [1]", 11, "invalid value for \"members\": \"[ 1 ]\"", "Use a list of names."},
        {"cluster-node = 1", 16, "invalid value for \"cluster-node\": \"1\"", "Use true or false."},
        {"qsub = \"/a|b\"", 8, "invalid value for \"qsub\": \"/a|b\": it contains \"|\"", other},
        {"qsub = \"\"", 8, "invalid value for \"qsub\": \"\": it is empty", other},
        {"scratch-directory = \"/" + std::string(246, 'a') + '"', 21,
         "invalid value for \"scratch-directory\": \"/" + std::string(246, 'a') +
             "\": it is longer than 246 bytes",
         other},
    };
    for (const auto& [line, column, text, remedy] : cases) {
        const QByteArray toml = QByteArray("# first\nhttps-port = 444\n").append(line);
        const ParsedAnswers parsed = ParseAnswers(toml, AnswersForm::File);
        ASSERT_EQ(parsed.findings.size(), 1) << line;
        EXPECT_EQ(parsed.findings[0].line, 3) << line;
        EXPECT_EQ(parsed.findings[0].column, column) << line;
        EXPECT_EQ(parsed.findings[0].text.toStdString(), text);
        EXPECT_EQ(parsed.findings[0].remedy.toStdString(), remedy);
        EXPECT_EQ(parsed.answers.All().size(), 1) << line;
    }
}

TEST(AnswersFile, ReportsEveryInvalidLineInOrder) {
    const ParsedAnswers parsed =
        ParseAnswers("scratch-limit = \"x\"\nport = 1\njob-limit = -1\n", AnswersForm::File);
    ASSERT_EQ(parsed.findings.size(), 3);
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(parsed.findings[i].line, i + 1);
}

TEST(AnswersFile, ReportsPlaceOfInvalidToml) {
    for (const char* line :
         {"job-limit 4", "job-limit = 4\njob-limit = 5", "queue = \"a", "queue = \"\xff\""}) {
        const ParsedAnswers parsed =
            ParseAnswers(QByteArray("http-port = 81\n") + line, AnswersForm::File);
        ASSERT_EQ(parsed.findings.size(), 1) << line;
        EXPECT_TRUE(parsed.findings[0].text.startsWith("invalid TOML: ")) << line;
        EXPECT_GE(parsed.findings[0].line, 2) << line;
        EXPECT_GE(parsed.findings[0].column, 1) << line;
    }
}

TEST(AnswersFile, IsReadOnlyIfOthersCannotChangeIt) {
    const hx_test::TempDir directory;
    const std::string path = directory / "site.toml";
    hx_test::WriteFile(path, "job-limit = 4\n");
    Answers answers;
    EXPECT_FALSE(ReadAnswersFile(nullptr, answers));
    EXPECT_TRUE(answers.All().empty());
    EXPECT_FALSE(ReadAnswersFile(path.c_str(), answers));
    EXPECT_EQ(answers.Text(AnswerId::JobLimit), "4 threads");
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    const Failure failure = ReadAnswersFile(path.c_str(), answers);
    // A user's setup has only the user's own rights.
    ASSERT_EQ(failure.has_value(), getuid() == 0);
    if (failure) {
        EXPECT_TRUE(failure->text.endsWith("\": other users can write to it"));
    }
}

TEST(AnswersFile, RefusesFileThatIsTooLong) {
    const hx_test::TempDir directory;
    const std::string path = directory / "site.toml";
    hx_test::WriteFile(path, std::string((1 << 20) + 1, '#'));
    Answers answers;
    const Failure failure = ReadAnswersFile(path.c_str(), answers);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->status, ExitStatus::UnusableArguments);
    EXPECT_TRUE(failure->text.endsWith("\": longer than 1 MB"));
    EXPECT_FALSE(ReadAnswersFile("/dev/null", answers));
}

// The answers after the questions, with these lines of input.
Answers AnswersAfter(CInstallBase& run, Answers answers, std::string input,
                     const Answers& previous = {}) {
    FILE* const kept = stdin;
    stdin = fmemopen(input.data(), input.size(), "r");
    testing::internal::CaptureStdout();
    const Failure failure = AskQuestions(run, answers, previous);
    testing::internal::GetCapturedStdout();
    std::fclose(stdin);
    stdin = kept;
    EXPECT_FALSE(failure) << qUtf8Printable(failure->text);
    return answers;
}

Answers Recorded() {
    Answers recorded;
    recorded.Set(AnswerId::JobLimit, {7, AnswerSource::Record, true});
    recorded.Set(AnswerId::Queue, {QStringLiteral("slurm"), AnswerSource::Record, true});
    recorded.Set(AnswerId::QueueName, {QStringLiteral("chem"), AnswerSource::Record, true});
    return recorded;
}

TEST(Questions, NoteWhatWasTyped) {
    CommandLine line({"--internal-default-queue"});
    CInstallBase run(true, line.argc(), line.argv());
    // The empty lines are defaults or end pauses.
    const Answers answers = AnswersAfter(run, {}, "\n600\n\n\n\n5\n\n\n\n\n");
    EXPECT_EQ(*answers.Find(AnswerId::JobLimit), Answer{.value = run.m_coreCount});
    EXPECT_EQ(*answers.Find(AnswerId::MemoryLimit), (Answer{600, AnswerSource::Typed, true}));
    EXPECT_EQ(answers.Find(AnswerId::ScratchDirectory)->source, AnswerSource::Default);
    EXPECT_EQ(*answers.Find(AnswerId::ScratchLimit), (Answer{5, AnswerSource::Typed, true}));
    EXPECT_EQ(answers.Find(AnswerId::QsubCommand)->source, AnswerSource::Default);
}

TEST(Questions, KeepAcceptedChoiceOfPreviousSetup) {
    CommandLine line({"--internal-default-queue"});
    CInstallBase run(true, line.argc(), line.argv());
    run.m_prevJobLimit = run.m_coreCount;
    run.m_prevMemoryLimitMB = 600;
    run.m_prevScratchDir = "/tmp";
    run.m_prevScratchLimitGB = 5;
    Answers previous;
    previous.Set(AnswerId::MemoryLimit, 600, AnswerSource::Record);
    previous.Set(AnswerId::ScratchLimit, 5, AnswerSource::Default);
    const Answers answers = AnswersAfter(run, {}, "", previous);
    EXPECT_EQ(*answers.Find(AnswerId::MemoryLimit), (Answer{600, AnswerSource::Record, true}));
    EXPECT_EQ(*answers.Find(AnswerId::ScratchLimit), (Answer{5, AnswerSource::Default, false}));
}

// A script answers the library's questions, and does not expect others.
TEST(Questions, IgnoreRecordedAnswersOnPipe) {
    CommandLine line({"-m", "600", "-s", "5", "-d", "/tmp"});
    Arguments arguments(line.argc(), line.argv());
    Answers answers;
    const auto run = StartRun(
        arguments, {}, [](const CInstallBase&) { return Recorded(); }, answers);
    EXPECT_EQ(run->m_queueType, CInstallBase::QueueUnset);
    answers = AnswersAfter(*run, answers, "3\n\n\n1\n\n\n");
    EXPECT_EQ(run->m_queueType, CInstallBase::QueueInternal);
    EXPECT_EQ(*answers.Find(AnswerId::JobLimit), (Answer{3, AnswerSource::Typed, true}));
    EXPECT_EQ(answers.Find(AnswerId::Queue)->source, AnswerSource::Typed);
}

TEST(StartRun, PrefersOptionsToFileToPreviousSetup) {
    CommandLine line({"--yes", "--job-limit=2", "--http-port=81"});
    Arguments arguments(line.argc(), line.argv());
    Answers file;
    file.Set(AnswerId::JobLimit, 3, AnswerSource::File);
    file.Set(AnswerId::HttpsPort, 444, AnswerSource::File);
    file.Set(AnswerId::SbatchCommand, QStringLiteral("/s/sbatch"), AnswerSource::File);
    Answers answers;
    const auto run = StartRun(
        arguments, file,
        [](const CInstallBase& started) {
            EXPECT_EQ(started.m_jobLimit, 2);
            EXPECT_FALSE(started.m_interactive);
            Answers recorded = Recorded();
            recorded.Set(AnswerId::HttpsPort, {445, AnswerSource::Record, true});
            return recorded;
        },
        answers);
    EXPECT_EQ(run->m_jobLimit, 2);
    EXPECT_EQ(run->m_compSrvcHttpPort, 81);
    EXPECT_EQ(run->m_compSrvcHttpsPort, 444);
    EXPECT_EQ(run->m_partitionName, "chem");
    EXPECT_EQ(run->m_sbatchCmd, "/s/sbatch");
    // It is expected in the same directory.
    EXPECT_EQ(run->m_scancelCmd, "/s/scancel");
}

class AnswersOfSetup : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    hx_test::ProcessResult Run(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), {"--setup", "--user-mode", "--yes"});
        return m_setup.Run(arguments, input);
    }

    UserSetup m_setup;
};

TEST_F(AnswersOfSetup, ComeFromFileAndCanBeSaved) {
    const CheckedLeaks leaks;
    const std::string commands = m_setup.Root() + "/s/";
    std::filesystem::create_directory(commands);
    for (const char* name : {"sbatch", "scancel"})
        std::filesystem::create_symlink("/bin/true", commands + name);
    hx_test::WriteFile(m_setup.Root() + "/site.toml",
                       "job-limit = 3\nmemory-limit = 700\nscratch-limit = 5\n"
                       "scratch-directory = \"/tmp\"\nqueue = \"slurm\"\nqueue-name = \"chem\"\n"
                       "sbatch = \"/tmp/s/sbatch\"\nhttp-port = 81\nsubmission-scripts = true\n");
    const auto result = Run(
        {"--answers", "/tmp/site.toml", "--job-limit", "2", "--save-answers", "/tmp/saved.toml"});
    EXPECT_EQ(result.status, 0) << result.err;
    hx_test::ExpectHolds(result.out, "\n  Job limit: 2 threads\n");
    hx_test::ExpectHolds(result.out, "\n  Scratch directory: /tmp\n");
    hx_test::ExpectHolds(result.out, "\n    partition=\"chem\"\n");
    EXPECT_EQ(m_setup.File("QueueLimits"),
              "MaxThreads: 2\nMemoryPerThreadMB: 700\nScratch: /tmp\nDiskPerThreadGB: 5\n");
    for (const char* line : {"CORV_PARTITION_NAME=\"chem\"", "CORV_SCANCEL_CMD \"/tmp/s/scancel\"",
                             "CORV_COMPSRVC_HTTP_PORT=\"81\""})
        hx_test::ExpectHolds(m_setup.File("corvane26"), line);
    EXPECT_TRUE(m_setup.Has("corvane26_samba"));
    const std::string saved = hx_test::ReadFile(m_setup.Root() + "/saved.toml");
    hx_test::ExpectHolds(saved, "job-limit = 2  # threads\n");
    EXPECT_EQ(std::filesystem::status(m_setup.Root() + "/saved.toml").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    // From standard input to standard output.
    const auto again = Run({"--answers", "-", "--save-answers", "-"}, saved);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, saved);
}

TEST_F(AnswersOfSetup, SkipTheirQuestions) {
    const auto result = m_setup.Run({"--setup", "--user-mode", "--job-limit=2", "-m", "600", "-d",
                                     "/tmp", "-s", "3", "--queue=internal"});
    EXPECT_EQ(result.status, 0) << result.err;
    for (const char* question : {"Job thread limit [", "Memory usage limit per job [",
                                 "Scratch directory [", "Scratch limit per job [", "Choose "})
        EXPECT_EQ(result.out.find(question), std::string::npos) << question;
    for (const char* report :
         {"Job limit: 2 threads\n", "Memory limit per job: 600MB\n", "Scratch directory: /tmp\n",
          "Scratch limit per thread: 3GB\n", "Queue type: Internal\n"})
        hx_test::ExpectHolds(result.out, std::string("\n  ") + report);
}

TEST_F(AnswersOfSetup, AreRefusedTogether) {
    hx_test::WriteFile(m_setup.Root() + "/site.toml", "job-limt = 4\nhttp-port = 0\n");
    const auto result = Run({"--answers", "/tmp/site.toml"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "cv_install: answers file \"/tmp/site.toml\", line 1, column 1: unknown key "
              "\"job-limt\"\n"
              "    Did you mean \"job-limit\"?\n"
              "cv_install: answers file \"/tmp/site.toml\", line 2, column 13: invalid value for "
              "\"http-port\": \"0\"\n"
              "    Use a whole number from 1 to 65535, without a unit.\n"
              "    No changes were made.\n");
    EXPECT_FALSE(m_setup.Has("QueueLimits"));
    const auto missing = Run({"--answers", "/tmp/none.toml"});
    EXPECT_EQ(missing.status, 3);
    hx_test::ExpectHolds(missing.err,
                         "cv_install: cannot read answers file \"/tmp/none.toml\": "
                         "No such file or directory\n");
}

}  // namespace
