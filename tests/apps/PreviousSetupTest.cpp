// What a setup takes over from the previous one: from its record, or from its files.
#include "record/PreviousSetup.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/Child.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "record/SetupRecord.h"

namespace {

namespace fs = std::filesystem;

const std::string tree = "/var/corvane";

// Removes what is on the machine and writes these files of the install directory.
void LayOut(const std::string& runScript, const std::string& limits) {
    Shell("rm -rf /var/corvane /var/lib/corvane26 /etc/corvane26; mkdir -p /var/corvane");
    if (!runScript.empty())
        hx_test::WriteFile(tree + "/corvane26", runScript);
    if (!limits.empty())
        hx_test::WriteFile(tree + "/QueueLimits", limits);
}

void Record(const Answers& answers, SetupFacts facts = FactsOf({"cv_install"}, "/var/corvane")) {
    SetupRecord record({.installDir = QString::fromStdString(tree),
                        .productDir = "/opt",
                        .conditions = AsRoot,
                        .serviceUser = "root",
                        .serviceGroup = "root"});
    EXPECT_FALSE(record.Prepare(facts, answers, "exit 0\n"));
    EXPECT_FALSE(record.Place());
}

// The answers as "key=text", separated by spaces.
std::string TextOf(const Answers& answers) {
    QStringList words;
    for (const auto& [id, answer] : answers.All()) {
        EXPECT_EQ(answer.source, AnswerSource::Record);
        EXPECT_TRUE(answer.chosen);
        words.append(QLatin1String(RowOf(id).key) + u'=' + answers.Text(id));
    }
    return words.join(u' ').toStdString();
}

char programName[] = "/opt/corvane26/cv_install";
char* programArguments[] = {programName, nullptr};

struct MeasuredRun : CInstallBase {
    explicit MeasuredRun(bool interactive) : CInstallBase(false, 1, programArguments) {
        m_interactive = interactive;
        m_coreCount = 2;
        m_ramMB = 8000;
    }
};

PreviousSetup ReadPrevious(const CInstallBase& run = MeasuredRun(true)) {
    const Descriptor directory(open(tree.c_str(), O_PATH | O_DIRECTORY));
    PreviousSetup previous;
    EXPECT_FALSE(ReadPreviousSetup(run, directory.Number(), previous));
    return previous;
}

// What a setup with --yes repeats.
std::string Repeated() {
    MeasuredRun run(false);
    return TextOf(AnswersToRepeat(ReadPrevious(run), run));
}

struct FilesCase {
    const char* name;
    std::string runScript;
    std::string limits;
    std::string repeated;
};

const std::string slurmLines = R"(export CORV_QUEUE_TYPE="EXTERNAL"
export CORV_QUEUE_NAME=""
export CORV_PARTITION_NAME="chem"
export CORV_SCHEDULER="SLURM"
cvset CORV_QSUB_CMD "/usr/local/bin/qsub" "${CORV_USER_QSUB_CMD}"
)";

TEST(PreviousSetup, IsReadFromFilesWithoutRecord) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const FilesCase cases[] = {
        {"nothing", "", "", ""},
        {"limits alone", "", "MaxThreads: 7\n", "job-limit=7 threads"},
        {"Slurm", slurmLines, "", "queue=Slurm queue-name=chem"},
        {"own commands", slurmLines + "cvset CORV_SBATCH_CMD \"/usr/sbin/sbatch\" \"\"\n", "",
         "queue=Slurm queue-name=chem sbatch=/usr/sbin/sbatch"},
        {"a command that others can replace",
         slurmLines + "cvset CORV_SBATCH_CMD \"/tmp/sbatch\" \"\"\n", "",
         "queue=Slurm queue-name=chem"},
        {"a default command", slurmLines + "cvset CORV_SBATCH_CMD \"/usr/bin/sbatch\" \"\"\n", "",
         "queue=Slurm queue-name=chem"},
        {"Torque",
         "export CORV_QUEUE_TYPE=\"EXTERNAL\"\nexport CORV_QUEUE_NAME=\"batch\"\n"
         "export CORV_SCHEDULER=\"TORQUE\"\n",
         "", "queue=Torque/OpenPBS queue-name=batch"},
        {"internal queue and limits", "export CORV_QUEUE_TYPE=\"INTERNAL\"\n",
         "MaxThreads: 3\nMemoryPerThreadMB: 700\nScratch: /srv\nDiskPerThreadGB: 4\n",
         "job-limit=3 threads memory-limit=700 MB per thread scratch-directory=/srv "
         "scratch-limit=4 GB per thread queue=internal"},
        {"measured limits", "export CORV_QUEUE_TYPE=\"INTERNAL\"\n",
         "MaxThreads: 2\nMemoryPerThreadMB: 4000\nScratch: /tmp\n", "queue=internal"},
        {"compute node", "export CORV_CLUSTER_NODE=\"YES\"\nexport CORV_QUEUE_TYPE=\"NONE\"\n", "",
         "queue=none cluster-node=yes"},
        {"listeners",
         "export CORV_COMPSRVC_ALLOW=\"HTTP,HTTPS\"\nexport CORV_COMPSRVC_HTTP_PORT=\"8080\"\n"
         "export CORV_COMPSRVC_HTTPS_PORT=\"443\"\nexport CORV_COMPSRVC_CERT=\"/etc/c.pem\"\n",
         "", "protocols=HTTP,HTTPS https-port=443 certificate=/etc/c.pem"},
        {"values that are refused",
         "export CORV_COMPSRVC_HTTPS_PORT=\"99999\"\nexport CORV_COMPSRVC_CERT=\"$(id)\"\n"
         "export CORV_COMPSRVC_ALLOW=\"FTP\"\nexport CORV_QUEUE_TYPE=\"OTHER\"\n",
         "MaxThreads: 0\nMemoryPerThreadMB: 1e9\n", ""},
        {"an account that members chose",
         "export CORV_COMPSRVC_USER=\"daemon\"\nexport CORV_COMPSRVC_GROUP=\"daemon\"\n", "", ""},
        {"lines that are cut", "export CORV_QUEUE_TYPE=\"INTERNAL\nexport CORV_\ncvset CORV_A", "",
         ""},
        {"more than a run script contains", std::string(70000, '#') + '\n' + slurmLines, "", ""},
    };
    HX_EXPECT_SCENARIO([&] {
        for (const FilesCase& test : cases) {
            LayOut(test.runScript, test.limits);
            EXPECT_EQ(Repeated(), test.repeated) << test.name;
        }
        LayOut("", "");
        Shell("mkfifo /var/corvane/corvane26");
        EXPECT_EQ(Repeated(), "");
    });
}

Answers RecordedAnswers() {
    Answers answers;
    answers.Set(AnswerId::JobLimit, 2, AnswerSource::Default);
    answers.Set(AnswerId::MemoryLimit, 4000, AnswerSource::Default);
    answers.Set(AnswerId::ScratchDirectory, QStringLiteral("/srv"), AnswerSource::CommandLine);
    answers.Set(AnswerId::ScratchLimit, 5, AnswerSource::Default);
    answers.Set(AnswerId::Queue, QStringLiteral("slurm"), AnswerSource::Typed);
    answers.Set(AnswerId::QueueName, QStringLiteral("chem"), AnswerSource::Record);
    answers.Set(AnswerId::Members, QStringList{"ann", "bob"}, AnswerSource::File);
    answers.Set(AnswerId::SubmissionScripts, true, AnswerSource::CommandLine);
    answers.Set(AnswerId::HttpPort, 8080, AnswerSource::Default);
    return answers;
}

const std::string recordedLimits =
    "MaxThreads: 2\nMemoryPerThreadMB: 4000\nScratch: /srv\nDiskPerThreadGB: 5\n";

TEST(PreviousSetup, RepeatsChosenAnswers) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        Shell("groupdel corvsrvc || true");
        LayOut("export CORV_QUEUE_TYPE=\"INTERNAL\"\n", recordedLimits);
        Record(RecordedAnswers());
        const std::string chosen = "scratch-directory=/srv queue=Slurm queue-name=chem";
        EXPECT_EQ(Repeated(), chosen + " members=ann,bob");
        // Members of an existing group may have been changed since.
        Shell("groupadd corvsrvc");
        EXPECT_EQ(Repeated(), chosen);
        Shell("useradd ann; useradd bob; gpasswd --add bob corvsrvc; gpasswd --add ann corvsrvc");
        EXPECT_EQ(Repeated(), chosen + " members=ann,bob");
        Shell("gpasswd --delete bob corvsrvc");
        EXPECT_EQ(Repeated(), chosen);
        // The file was edited.
        LayOut("", "MaxThreads: 1\nMemoryPerThreadMB: 4000\nScratch: /srv\nDiskPerThreadGB: 9\n");
        Record(RecordedAnswers());
        EXPECT_EQ(Repeated(),
                  "job-limit=1 threads scratch-directory=/srv scratch-limit=9 GB per thread "
                  "queue=Slurm queue-name=chem");
    });
}

TEST(PreviousSetup, OffersOnlyChosenLimits) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        Answers answers = RecordedAnswers();
        answers.Set(AnswerId::MemoryLimit, 700, AnswerSource::Typed);
        for (const char* limits : {"", recordedLimits.c_str()}) {
            LayOut("", limits);
            Record(answers);
            MeasuredRun run(true);
            PreviousSetup previous = ReadPrevious();
            previous.answers.Set(AnswerId::MemoryLimit, {700, AnswerSource::Record, true});
            EXPECT_EQ(TextOf(AnswersToRepeat(previous, run)).find("limit"), std::string::npos);
            EXPECT_EQ(run.m_prevJobLimit, 2);
            EXPECT_EQ(run.m_prevMemoryLimitMB, 700);
            EXPECT_EQ(run.m_prevScratchDir, "/srv");
            EXPECT_EQ(run.m_prevScratchLimitGB, 0);
        }
    });
}

TEST(PreviousSetup, RecognizesRecordOfAnotherMachine) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::WriteFile("/etc/machine-id", std::string(32, 'a') + '\n');
        LayOut("", "");
        SetupFacts facts = FactsOf({"cv_install"}, "/var/corvane");
        EXPECT_EQ(facts.machineId, QString(32, u'a'));
        Record(RecordedAnswers(), facts);
        EXPECT_EQ(ReadPrevious().source, PreviousSetup::Source::Record);
        facts.machineId = QString(32, u'b');
        facts.host = "n2";
        Record(RecordedAnswers(), facts);
        const PreviousSetup previous = ReadPrevious();
        EXPECT_EQ(previous.source, PreviousSetup::Source::Copy);
        EXPECT_EQ(previous.facts.host, "n2");
        EXPECT_EQ(previous.answers.Text(AnswerId::QueueName), "chem");
    });
}

// A change in the answers, or in the setup that recorded them.
struct OtherRecord {
    const char* name;
    std::function<void(Answers&, SetupFacts&)> change;
    bool isSame = false;
};

const OtherRecord otherRecords[] = {
    {"time and caller",
     [](Answers&, SetupFacts& facts) {
         facts.time = "2026-01-01T00:00:00Z";
         facts.user = "ann";
         facts.command = "cv_install --yes";
     },
     true},
    {"source",
     [](Answers& answers, SetupFacts&) {
         answers.Set(AnswerId::QueueName, QStringLiteral("chem"), AnswerSource::Typed);
     },
     true},
    {"value", [](Answers& answers,
                 SetupFacts&) { answers.Set(AnswerId::JobLimit, 3, AnswerSource::Default); }},
    {"choice", [](Answers& answers,
                  SetupFacts&) { answers.Set(AnswerId::JobLimit, 2, AnswerSource::Typed); }},
    {"fewer answers", [](Answers& answers, SetupFacts&) { answers.Remove(AnswerId::HttpPort); }},
    {"version", [](Answers&, SetupFacts& facts) { facts.version = "25.9.0"; }},
    {"machine", [](Answers&, SetupFacts& facts) { facts.machineId = QString(32, u'b'); }},
};

TEST(PreviousSetup, FindsWhetherRecordWouldChange) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::WriteFile("/etc/machine-id", std::string(32, 'a') + '\n');
        // Edited limits are answers that the record does not have.
        for (const std::string& limits : {recordedLimits, std::string("MaxThreads: 3\n")}) {
            LayOut(slurmLines, limits);
            EXPECT_FALSE(IsRecorded(RecordedAnswers(), ReadPrevious()));
            for (const OtherRecord& row : otherRecords) {
                Answers answers = RecordedAnswers();
                SetupFacts facts = FactsOf({"cv_install"}, "/var/corvane");
                row.change(answers, facts);
                Record(answers, facts);
                EXPECT_EQ(IsRecorded(RecordedAnswers(), ReadPrevious()), row.isSame) << row.name;
            }
        }
    });
}

TEST(PreviousSetup, RefusesDamagedRecordWithoutOtherFiles) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOut(slurmLines, "");
        Record(RecordedAnswers());
        Shell("sed -i 's/chem/evil/' /var/lib/corvane26/private/answers");
        EXPECT_EQ(Repeated(), "queue=Slurm queue-name=chem");
        PreviousSetup previous;
        const Failure failure = ReadPreviousSetup(MeasuredRun(false), -1, previous);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->status, ExitStatus::RecordUnusable);
        EXPECT_EQ(failure->text.toStdString(),
                  "cannot use record \"/var/lib/corvane26/private/answers\": it is damaged");
        EXPECT_FALSE(ReadPreviousSetup(MeasuredRun(true), -1, previous));
    });
}

}  // namespace
