#include "report/JsonReport.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "OutputFile.h"
#include "answers/Usage.h"
#include "installation/ChildProcess.h"
#include "record/RecordText.h"
#include "report/JsonChanges.h"

namespace {

using Json = nlohmann::ordered_json;

// Changes with a member's meaning; new members do not change it.
constexpr int schemaVersion = 1;

// A file in memory that all processes of a run append to: objects, one on a line. It is complete
// even if a process is killed.
int notes = -1;

// Of a run that sets nothing up; otherwise null.
const char* otherAction = nullptr;

// True for such a run that also changes nothing.
bool onlyReads = false;

// What only such a run notes.
constexpr const char* otherMembers[] = {"differences", "unchecked", "installation"};

// Bytes that are not valid UTF-8 become U+FFFD.
std::string TextOf(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

void Note(const Json& note) {
    if (notes == -1)
        return;
    const std::string line = TextOf(note, -1) + '\n';
    [[maybe_unused]] const ssize_t written = write(notes, line.data(), line.size());
}

void Note(const char* member, Json value) {
    if (notes != -1)
        Note(Json{{member, std::move(value)}});
}

Json ObjectOf(const QString& text, const QString& remedy) {
    return {{"text", text.toStdString()}, {"remedy", remedy.toStdString()}};
}

// A problem that leaves the exit status as it is counts as a warning.
void NoteProblem(const Problem& problem, bool isWarning) {
    Json object = ObjectOf(problem.text, problem.remedy);
    if (isWarning || problem.status == ExitStatus::Complete) {
        Note("warning", std::move(object));
        return;
    }
    Note("problem", {{"status", static_cast<int>(problem.status)},
                     {"message", std::move(object)},
                     {"changes", static_cast<int>(problem.changes)}});
}

void NoteErrorText(const char* text, size_t length) {
    Note("errors", std::string(text, length));
}

// The library's messages have two or three lines: kind, text, and often the cause.
void AddLibraryMessages(const QString& errors, Json& warnings, Json& problem) {
    const QStringList lines = errors.split(u'\n');
    for (qsizetype i = 0; i + 1 < lines.size(); ++i) {
        const bool isWarning = lines[i] == u"Corvane Install: Warning";
        if (!isWarning && lines[i] != u"Corvane Install: Error")
            continue;
        QStringList text;
        while (i + 1 < lines.size() && lines[i + 1].startsWith(QStringLiteral("    ")))
            text.append(lines[++i].trimmed());
        Json object = ObjectOf(text.join(u'\n'), {});
        if (isWarning)
            warnings.push_back(std::move(object));
        else
            problem = std::move(object);
    }
}

// The log of a user's setup that was refused is removed.
Json ExistingLog(const Json& all) {
    const std::string path = all.value("log", std::string());
    return path.empty() || access(path.c_str(), F_OK) != 0 ? Json() : Json(path);
}

std::string ReadNotes() {
    struct stat found = {};
    std::string text;
    if (fstat(notes, &found) != 0)
        return text;
    text.resize(static_cast<size_t>(found.st_size));
    const ssize_t length = pread(notes, text.data(), text.size(), 0);
    text.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return text;
}

// Adds what the setup changed, and whether it did: what it noted, nothing, or null for unknown.
void AddChanges(const Json& all, const Json& problem, bool isDryRun, Json& report) {
    const int status = report["status"];
    report["changed"] = nullptr;
    report["changes"] = nullptr;
    const bool changedNothing =
        onlyReads ||
        (!problem.is_null() && problem["changes"] == static_cast<int>(Changes::None)) ||
        status == static_cast<int>(ExitStatus::UnusableArguments);
    const bool isComplete =
        status == 0 || status == static_cast<int>(ExitStatus::ServiceNotRunning);
    if (isComplete && !onlyReads) {
        report["changed"] = all.value("changed", Json());
        report["changes"] = all.value("changes", Json());
    } else if (changedNothing && !isDryRun) {
        report["changed"] = false;
        report["changes"] = Json::array();
    }
}

// `waitStatus` is the child's, as waitpid returns it.
Json ProblemOf(const Json& noted, int status, int waitStatus) {
    if (status == 0)
        return nullptr;
    if (WIFSIGNALED(waitStatus))
        return ObjectOf(QStringLiteral("terminated by signal: %1")
                            .arg(QString::fromUtf8(strsignal(WTERMSIG(waitStatus)))),
                        QStringLiteral("Run the setup again."));
    if (!noted.is_null())
        return noted;
    return ObjectOf(QStringLiteral("the setup ended with exit status %1").arg(status),
                    QStringLiteral("Read its messages on standard error."));
}

// Ignores a problem of another status, which did not end the setup. The last one replaces the
// others, which are findings.
void AddProblem(const Json& added, int status, Json& problem, Json& findings) {
    if (added["status"] != status)
        return;
    if (!problem.is_null())
        findings.push_back(problem["message"]);
    problem = added;
}

Json Assemble(bool isDryRun, int status, int waitStatus) {
    Json all = Json::object();
    Json warnings = Json::array();
    Json problem;
    Json findings = Json::array();
    QByteArray errors;
    for (const QByteArray& line : QByteArray::fromStdString(ReadNotes()).split('\n')) {
        const Json note = Json::parse(line.begin(), line.end(), nullptr, false);
        if (!note.is_object())
            continue;
        for (const auto& [member, value] : note.items()) {
            if (member == "warning")
                warnings.push_back(value);
            else if (member == "errors")
                errors += QByteArray::fromStdString(value);
            else if (member == "problem")
                AddProblem(value, status, problem, findings);
            else
                all[member] = value;
        }
    }
    Json message;
    AddLibraryMessages(QString::fromUtf8(errors), warnings, message);
    if (!problem.is_null())
        message = problem["message"];
    if (!findings.empty())
        message["findings"] = std::move(findings);
    const char* action = isDryRun ? "dry-run" : "setup";
    Json report = {
        {"schema", schemaVersion},
        {"action", otherAction == nullptr ? action : otherAction},
        {"status", status},
        {"version", HX_VERSION},
        {"host", HostName().toStdString()},
        {"install_dir", all.value("install_dir", Json())},
        {"answers", all.value("answers", Json())},
        {"warnings", std::move(warnings)},
    };
    AddChanges(all, problem, isDryRun, report);
    report["problem"] = ProblemOf(message, status, waitStatus);
    report["log"] = ExistingLog(all);
    for (const char* member : otherMembers) {
        if (all.contains(member))
            report[member] = all[member];
    }
    return report;
}

[[noreturn]] void Fail(const Problem& problem) {
    Report(problem);
    std::exit(static_cast<int>(problem.status));
}

// The status that reports a failed write if the setup itself did not fail.
int WriteReport(OutputFile& file, bool isDryRun, int waitStatus) {
    const int status =
        WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
    const int error = file.Write(TextOf(Assemble(isDryRun, status, waitStatus), 2) + '\n');
    if (error == 0)
        return status;
    Problem problem =
        file.Unwritable(QString::fromUtf8(std::strerror(error)),
                        QStringLiteral("The setup itself ended with exit status %1.").arg(status));
    problem.changes = Changes::Unknown;
    Report(problem);
    return status == 0 ? static_cast<int>(problem.status) : status;
}

// Also when a signal came after the child's end.
[[noreturn]] void WaitAndWrite(OutputFile& file, bool isDryRun, ChildProcess& child) {
    const int waitStatus = ChildProcess::Wait();
    const int status = WriteReport(file, isDryRun, waitStatus);
    child.Restore();
    if (WIFSIGNALED(waitStatus)) {
        std::signal(WTERMSIG(waitStatus), SIG_DFL);
        std::raise(WTERMSIG(waitStatus));
    }
    std::exit(status);
}

const OptionUsage* FindOptionNamed(const std::string& word) {
    for (const OptionUsage& option : Options()) {
        if (HasSpelling(option, word.c_str()))
            return &option;
    }
    return nullptr;
}

}  // namespace

JsonReport::Request JsonReport::RequestIn(int argc, char** argv) {
    Request request;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const size_t equals = word.find('=');
        const OptionUsage* option = FindOptionNamed(word.substr(0, equals));
        if (option == nullptr)
            continue;
        const char* value = equals == std::string::npos ? nullptr : argv[i] + equals + 1;
        if (TakesNextWord(*option) && value == nullptr && i + 1 < argc)
            value = argv[++i];
        if (option->own == OwnOption::Help || option->own == OwnOption::Version)
            return {};
        request.isDryRun = request.isDryRun || option->own == OwnOption::DryRun;
        if (option->own == OwnOption::Undo)
            request.action = "undo";
        if (option->own == OwnOption::Remove)
            request.action = "remove";
        if (option->own == OwnOption::Repair)
            request.action = "repair";
        if (option->own == OwnOption::Verify || option->own == OwnOption::Status)
            request.action = option->own == OwnOption::Verify ? "verify" : "status";
        request.onlyReads = request.onlyReads || option->own == OwnOption::Verify ||
                            option->own == OwnOption::Status;
        if (option->own == OwnOption::Json && value != nullptr && IsFileName(value))
            request.file = value;
    }
    return request;
}

void JsonReport::Start(const Request& request) {
    if (request.file == nullptr)
        return;
    otherAction = request.action;
    onlyReads = request.onlyReads;
    if (request.file == std::string("-"))
        ReserveStandardOutput();
    // Other users may read the report.
    OutputFile file(request.file, 0644);
    if (const Failure failure = file.Open())
        Fail(*failure);
    notes = memfd_create("corvane26_setup", MFD_CLOEXEC);
    ChildProcess child;
    const pid_t forked =
        notes != -1 && fcntl(notes, F_SETFL, O_APPEND) == 0 ? child.Fork() : pid_t{-1};
    if (forked == -1)
        Fail(file.Unwritable(QString::fromUtf8(std::strerror(errno)),
                             QStringLiteral("Free up memory, then run the setup again.")));
    if (forked != 0)
        WaitAndWrite(file, request.isDryRun, child);
    ObserveProblems(NoteProblem);
    Console::WatchErrors(NoteErrorText);
}

void JsonReport::NoteInstallDirectory(const QString& path) {
    Note("install_dir", path.toStdString());
}

void JsonReport::NoteLog(const std::string& path) {
    Note("log", path);
}

void JsonReport::NoteAnswers(const Answers& answers) {
    if (notes != -1)
        Note("answers", JsonOf(answers));
}

void JsonReport::NoteChanges(const Differences& differences, bool changesRecord) {
    if (notes == -1)
        return;
    Note("changes", JsonOf(differences));
    Note("changed", changesRecord || !differences.IsEmpty());
}

void JsonReport::NoteMember(const char* name, const nlohmann::ordered_json& value) {
    Note(name, value);
}
