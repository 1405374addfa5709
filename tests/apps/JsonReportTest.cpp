// The JSON report of a run: its content for every end of the process, and its file.
#include "report/JsonReport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <csignal>

#include "Console.h"
#include "OutputFile.h"
#include "apps/JsonSchema.h"
#include "harness/Child.h"
#include "setuprun/CInstallBase.h"

namespace {

using hx_test::TempDir;

State InodeOf(State::Kind kind, mode_t mode, uid_t owner) {
    State state;
    state.kind = kind;
    state.mode = mode;
    state.owner = owner;
    state.group = owner;
    return state;
}

State FileOf(mode_t mode, uid_t owner, const std::string& digest) {
    State state = InodeOf(State::Kind::File, mode, owner);
    state.digest = digest;
    return state;
}

State LinkTo(const std::string& target) {
    State state = InodeOf(State::Kind::Link, 0, 0);
    state.target = target;
    return state;
}

const std::string digest(64, 'a');

Differences EachKindOfChange() {
    return {
        .accounts = {{true, "corvsrvc", 0, 4001, "", "", ""},
                     {false, "corvsrvc", 4001, 4001, "Compute \xff", "/nonexistent", "/bin/sh"}},
        .members = {{Change::Create, "anna", "corvsrvc"}, {Change::Delete, "bo", "corvsrvc"}},
        .paths = {{Change::Create, "/T", {}, InodeOf(State::Kind::Directory, 02775, 4001)},
                  {Change::Modify, "/T/a", FileOf(0600, 0, digest), FileOf(0644, 4999, digest)},
                  {Change::Modify, "/T/\x1b\"\xff", InodeOf(State::Kind::Special, 0666, 0),
                   LinkTo("/\xc3")},
                  {Change::Delete, "/b", FileOf(0, 0, ""), {}}},
        .services = {{Change::Create, "s", "", "active"},
                     {Change::Modify, "s", "active", "active"}}};
}

// In JSON, a byte that is not valid UTF-8 is U+FFFD.
const std::string eachKindOfChange = R"([
    {"name": "corvsrvc", "kind": "group", "change": "create", "before": null,
     "after": {"gid": 4001}},
    {"name": "corvsrvc", "kind": "user", "change": "create", "before": null,
     "after": {"uid": 4001, "gid": 4001, "comment": "Compute \ufffd", "home": "/nonexistent",
               "shell": "/bin/sh"}},
    {"name": "anna", "kind": "member", "change": "create", "before": null,
     "after": {"user": "anna", "group": "corvsrvc"}},
    {"name": "bo", "kind": "member", "change": "delete",
     "before": {"user": "bo", "group": "corvsrvc"}, "after": null},
    {"path": "/T", "kind": "directory", "change": "create", "before": null,
     "after": {"mode": "2775", "owner": "corvsrvc", "group": "corvsrvc", "uid": 4001,
               "gid": 4001}},
    {"path": "/T/a", "kind": "file", "change": "modify",
     "before": {"mode": "0600", "owner": "root", "group": "root", "uid": 0, "gid": 0},
     "after": {"mode": "0644", "owner": "4999", "group": "4999", "uid": 4999, "gid": 4999,
               "sha256": ")" + digest +
                                     R"("}},
    {"path": "/T/\u001b\"\ufffd", "kind": "link", "change": "modify",
     "before": {"kind": "special", "mode": "0666", "owner": "root", "group": "root", "uid": 0,
                "gid": 0},
     "after": {"target": "/\ufffd", "owner": "root", "group": "root", "uid": 0, "gid": 0}},
    {"path": "/b", "kind": "file", "change": "delete",
     "before": {"mode": "0000", "owner": "root", "group": "root", "uid": 0, "gid": 0},
     "after": null},
    {"name": "s", "kind": "service", "change": "create", "before": null,
     "after": {"state": "active"}},
    {"name": "s", "kind": "service", "change": "modify", "before": {"state": "active"},
     "after": {"state": "active"}}])";

Answers EachKindOfAnswer() {
    Answers answers;
    answers.Set(AnswerId::JobLimit, 2, AnswerSource::Typed);
    answers.Set(AnswerId::ScratchDirectory, QStringLiteral("/\u00fc"), AnswerSource::File);
    answers.Set(AnswerId::Members, QStringList{"ann", "bo"}, AnswerSource::CommandLine);
    answers.Set(AnswerId::ClusterNode, false, AnswerSource::Default);
    answers.Set(AnswerId::ServiceUser, {QStringLiteral("u"), AnswerSource::Record, false});
    return answers;
}

const std::string eachKindOfAnswer = R"({
    "job-limit": {"value": 2, "source": "typed", "chosen": true},
    "scratch-directory": {"value": "/\u00fc", "source": "file", "chosen": true},
    "members": {"value": ["ann", "bo"], "source": "option", "chosen": true},
    "cluster-node": {"value": false, "source": "default", "chosen": false},
    "service-user": {"value": "u", "source": "record", "chosen": false}})";

Problem ProblemWith(ExitStatus status, Changes changes) {
    return {status, QStringLiteral("the text"), QStringLiteral("The remedy."), changes};
}

// Reports a failure and ends as cv_install does.
[[noreturn]] void FailWith(ExitStatus status, Changes changes) {
    JsonReport::NoteChanges({}, false);
    Report(ProblemWith(status, changes));
    std::exit(static_cast<int>(status));
}

const std::string theProblem = R"("problem": {"text": "the text", "remedy": "The remedy."})";

// Runs a body that writes a report, in a process of its own.
hx_test::ProcessResult RunWithReport(const std::string& file, const std::function<void()>& body,
                                     bool isDryRun = false) {
    return hx_test::RunInChild({}, [&] {
        JsonReport::Start({file.c_str(), isDryRun});
        Console::Start();
        body();
    });
}

struct EndOfRun {
    const char* name;
    int status;
    std::string report;
    std::function<void()> body;
    bool isDryRun = false;
};

void PrintTo(const EndOfRun& end, std::ostream* out) {
    *out << end.name;
}

const EndOfRun ends[] = {
    {"Success", 0,
     R"("action": "setup", "status": 0, "install_dir": "/T", "log": "/dev/null", "problem": null,
        "warnings": [], "changed": true, "changes": )" +
         eachKindOfChange + R"(, "answers": )" + eachKindOfAnswer,
     [] {
         JsonReport::NoteInstallDirectory("/T");
         JsonReport::NoteLog("/dev/null");
         JsonReport::NoteAnswers(EachKindOfAnswer());
         JsonReport::NoteChanges(EachKindOfChange(), false);
     }},
    {"SuccessWithoutNotes", 0,
     R"("install_dir": null, "answers": null, "warnings": [], "changed": null, "changes": null,
        "problem": null,
        "log": null)",
     [] { JsonReport::NoteLog("/none"); }},
    {"DryRun", 0, R"("action": "dry-run", "changed": false, "changes": [])",
     [] { JsonReport::NoteChanges({}, false); }, true},
    {"ChangeOfRecord", 0, R"("changed": true, "changes": [])",
     [] { JsonReport::NoteChanges({}, true); }},
    {"NothingToDo", 0, R"("changed": false, "log": null)",
     [] {
         JsonReport::NoteLog("/dev/null");
         JsonReport::NoteChanges({}, false);
         JsonReport::NoteLog({});
     }},
    {"FailureWithoutChanges", 9, R"("status": 9, "changed": false, "changes": [], )" + theProblem,
     [] { FailWith(ExitStatus::Declined, Changes::None); }},
    {"FailureWithChanges", 10, R"("status": 10, "changed": null, "changes": null, )" + theProblem,
     [] { FailWith(ExitStatus::Incomplete, Changes::Kept); }},
    {"FailureOfDryRun", 67,
     R"("action": "dry-run", "changed": null, "changes": null, )" + theProblem,
     [] { FailWith(ExitStatus::NoDryRun, Changes::None); }, true},
    {"ServiceThatDoesNotRun", 66, R"("changed": false, "changes": [], )" + theProblem,
     [] { FailWith(ExitStatus::ServiceNotRunning, Changes::Unknown); }},
    {"InvalidCommandLine", 3, R"("changes": [], )" + theProblem,
     [] { FailWith(ExitStatus::UnusableArguments, Changes::Unknown); }},
    {"ProblemsThatDidNotEndIt", 0,
     R"("problem": null, "warnings": [{"text": "the text", "remedy": "The remedy."},
        {"text": "the text", "remedy": "The remedy."}])",
     [] {
         ReportWarning(ProblemWith(ExitStatus::Refused, Changes::None));
         Report(ProblemWith(ExitStatus::Complete, Changes::Unknown));
         Report(ProblemWith(ExitStatus::ValueRefused, Changes::Unknown));
     }},
    {"SeveralProblems", 4,
     R"("changes": [], "problem": {"text": "the text", "remedy": "The remedy.",
        "findings": [{"text": "first \u001b", "remedy": ""}, {"text": "second", "remedy": ""}]})",
     [] {
         Report({ExitStatus::ValueRefused, QStringLiteral("first \x1b"), {}, Changes::Unknown});
         Report({ExitStatus::SystemCallFailed, QStringLiteral("other"), {}, Changes::Unknown});
         Report({ExitStatus::ValueRefused, QStringLiteral("second"), {}, Changes::Unknown});
         FailWith(ExitStatus::ValueRefused, Changes::None);
     }},
    {"ErrorOfLibrary", 2,
     R"("warnings": [{"text": "first\nsecond", "remedy": ""}],
        "problem": {"text": "it \ufffd failed\nNo such file or directory", "remedy": ""})",
     [] {
         Report(ProblemWith(ExitStatus::ValueRefused, Changes::Unknown));
         CInstallBase::InstallWarning(QStringLiteral("first\n    second"), 0);
         CInstallBase::InstallError(QStringLiteral("it \ufffd failed"), 2, ENOENT);
     }},
    {"UnknownCause", 2,
     R"("problem": {"text": "the setup ended with exit status 2",
                    "remedy": "Read its messages on standard error."})",
     [] { _exit(2); }},
    {"Signal", 128 + SIGKILL,
     R"("status": 137, "changed": null, "changes": null,
        "problem": {"text": "terminated by signal: Killed", "remedy": "Run the setup again."})",
     [] {
         JsonReport::NoteChanges({}, false);
         Report(ProblemWith(ExitStatus::ValueRefused, Changes::Unknown));
         raise(SIGKILL);
     }}};

class JsonReportEnd : public testing::TestWithParam<EndOfRun> {};

TEST_P(JsonReportEnd, IsReported) {
    const TempDir files;
    const auto result = RunWithReport(files / "json", GetParam().body, GetParam().isDryRun);
    EXPECT_EQ(result.status, GetParam().status) << result.out << result.err;
    ExpectReport(hx_test::ReadFile(files / "json"), '{' + GetParam().report + '}');
}

INSTANTIATE_TEST_SUITE_P(Ends, JsonReportEnd, testing::ValuesIn(ends),
                         [](const auto& test) { return test.param.name; });

// The process that a caller knows is the one that writes the report.
TEST(JsonReport, PassesSignalsOn) {
    const TempDir files;
    const std::string file = files / "json";
    const auto result = RunWithReport(file, [] {
        kill(getppid(), SIGTERM);
        ::pause();
    });
    EXPECT_EQ(result.status, 128 + SIGTERM);
    ExpectReport(hx_test::ReadFile(file), R"({"status": 143})");
}

TEST(JsonReport, IsAloneOnStandardOutput) {
    const auto result = RunWithReport("-", [] {
        std::printf("text\n");
        EXPECT_EQ(hx_test::Run({"sh", "-c", "echo of a tool >&2"}).status, 0);
    });
    EXPECT_EQ(result.err, "text\n");
    ExpectReport(result.out);
}

TEST(JsonReport, KeepsStatusWhenItCannotBeWritten) {
    for (const int status : {0, 9}) {
        const auto result = RunWithReport("/dev/full", [&] { std::exit(status); });
        EXPECT_EQ(result.status, status == 0 ? 2 : 9);
        EXPECT_EQ(result.err,
                  "cv_install: cannot write \"/dev/full\": No space left on device\n"
                  "    The setup itself ended with exit status " +
                      std::to_string(status) + ".\n");
    }
}

TEST(JsonReport, EndsProcessWhenFileCannotBeOpened) {
    const auto result = RunWithReport("/none/json", [] { std::printf("unreachable"); });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "cv_install: cannot write \"/none/json\": No such file or directory\n"
              "    Use another file, or - for standard output, then run the setup again.\n"
              "    No changes were made.\n");
}

TEST(JsonReport, IsRequestedByCommandLine) {
    const struct {
        std::vector<const char*> words;
        const char* file;
        bool isDryRun;
    } cases[] = {{{"--setup"}, nullptr, false},
                 {{"--json", "f", "--dry-run"}, "f", true},
                 {{"--json=-"}, "-", false},
                 {{"--bogus", "--json", "f"}, "f", false},
                 {{"-d", "--json", "f"}, nullptr, false},
                 {{"--json", "f", "--json"}, "f", false},
                 {{"--json", "--dry-run"}, nullptr, false},
                 {{"--json", "f", "--help"}, nullptr, false},
                 {{"--version", "--json", "f"}, nullptr, false}};
    for (const auto& [words, file, isDryRun] : cases) {
        std::vector<std::string> texts(words.begin(), words.end());
        texts.insert(texts.begin(), "cv_install");
        std::vector<char*> argv;
        for (std::string& text : texts)
            argv.push_back(text.data());
        argv.push_back(nullptr);
        const auto request = JsonReport::RequestIn(static_cast<int>(texts.size()), argv.data());
        EXPECT_STREQ(request.file, file) << words.back();
        EXPECT_EQ(request.isDryRun, isDryRun) << words.back();
    }
}

TEST(OutputFile, ReplacesFile) {
    const TempDir files;
    hx_test::WriteFile(files / "json", "old");
    std::filesystem::create_hard_link(files / "json", files / "other");
    EXPECT_FALSE(WriteOutputFile(files / "json", "new", 0644));
    EXPECT_EQ(hx_test::ReadFile(files / "json"), "new");
    EXPECT_EQ(hx_test::ReadFile(files / "other"), "old");
    const auto inDirectory = hx_test::RunInChild({}, [&] {
        EXPECT_EQ(chdir(files.path().c_str()), 0);
        EXPECT_FALSE(WriteOutputFile("name", "new", 0600));
    });
    EXPECT_EQ(inDirectory.status, 0) << inDirectory.out;
    EXPECT_EQ(hx_test::Run({"stat", "-c", "%a %s %n", files / "json", files / "name"}).out,
              "644 3 " + files / "json" + "\n600 3 " + files / "name" + "\n");
    EXPECT_EQ(hx_test::Run({"ls", "-A", files.path()}).out, "json\nname\nother\n");
}

TEST(OutputFile, ReportsFileThatCannotBeWritten) {
    const TempDir files;
    std::filesystem::create_symlink("target", files / "link");
    hx_test::WriteFile(files / "target", "old");
    std::filesystem::create_directory(files / "directory");
    hx_test::Run({"mkfifo", files / "fifo"});
    const struct {
        std::string path;
        const char* reason;
    } cases[] = {{files / "link", "not a regular file"},
                 {files / "directory", "not a regular file"},
                 {files / "fifo", "No such device or address"},
                 {files / "none/json", "No such file or directory"},
                 {"/dev/full", "No space left on device"}};
    for (const auto& [path, reason] : cases) {
        const Failure failure = WriteOutputFile(path, "new", 0644);
        ASSERT_TRUE(failure) << path;
        EXPECT_EQ(failure->status, ExitStatus::SystemCallFailed);
        EXPECT_EQ(failure->text.toStdString(), "cannot write \"" + path + "\": " + reason);
        EXPECT_EQ(failure->remedy,
                  "Use another file, or - for standard output, then run the setup again.");
    }
    const auto limited = hx_test::RunInChild({}, [&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit none = {};
        setrlimit(RLIMIT_FSIZE, &none);
        _exit(WriteOutputFile(files / "json", "new", 0644) ? 0 : 1);
    });
    EXPECT_EQ(limited.status, 0);
    EXPECT_EQ(hx_test::ReadFile(files / "target"), "old");
    EXPECT_EQ(hx_test::Run({"ls", "-A", files.path()}).out, "directory\nfifo\nlink\ntarget\n");
}

TEST(OutputFile, IsWrittenToPipe) {
    std::array<int, 2> pipes = {};
    ASSERT_EQ(pipe2(pipes.data(), O_CLOEXEC), 0);
    const Descriptor reader(pipes[0]);
    const Descriptor writer(pipes[1]);
    EXPECT_FALSE(WriteOutputFile("/dev/fd/" + std::to_string(writer.Number()), "text", 0644));
    std::string text(5, '\0');
    text.resize(static_cast<size_t>(read(reader.Number(), text.data(), text.size())));
    EXPECT_EQ(text, "text");
}

}  // namespace
