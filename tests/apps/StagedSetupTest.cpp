// Setups as root against the bare commit script, and dry runs against the setups that follow.
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <filesystem>
#include <set>

#include "apps/JsonSchema.h"
#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "harness/Effort.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

const SetupKind kinds[] = {internalQueue, slurm,       torqueWithSubmissionScripts,
                           clusterNode,   withMembers, withOtherMembers};

struct Start {
    const char* name;
    Before before;
};

const Start starts[] = {{"First", Before::Nothing},
                        {"Unchanged", Before::SameSetup},
                        {"Changed", Before::OtherAnswers},
                        {"Upgrading", Before::EarlierVersion}};

using Case = std::tuple<SetupKind, Start>;

std::vector<Case> AllCases() {
    std::vector<Case> cases;
    for (const SetupKind& kind : kinds) {
        for (const Start& start : starts)
            cases.emplace_back(kind, start);
    }
    return cases;
}

std::string NameOf(const testing::TestParamInfo<Case>& test) {
    return std::string(std::get<0>(test.param).name) + std::get<1>(test.param).name;
}

const std::string unit = "corvane26_service.service";

std::string Compact(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

QString UserName(const passwd* user) {
    return user == nullptr ? "" : user->pw_name;
}

QString GroupName(const group* group) {
    return group == nullptr ? "" : group->gr_name;
}

QJsonValue JsonOf(const std::string& path, const PathState& state) {
    if (state.mode == 0)
        return QJsonValue::Null;
    QJsonObject object = {{"uid", static_cast<int>(state.owner)},
                          {"gid", static_cast<int>(state.group)},
                          {"owner", UserName(getpwuid(state.owner))},
                          {"group", GroupName(getgrgid(state.group))}};
    if (S_ISLNK(state.mode))
        object["target"] = QString::fromStdString(state.target);
    else
        object["mode"] = QString::asprintf("%04o", state.mode & 07777U);
    // Nothing is said of what others may not read, nor of the jobs.
    if (S_ISREG(state.mode) && (state.mode & S_IROTH) != 0 && !path.ends_with("/QueueEntries"))
        object["sha256"] = QString::fromStdString(state.sha256);
    return object;
}

QJsonObject Described(const char* kind, const char* name, const std::string& value,
                      const QJsonValue& before, const QJsonValue& after) {
    const char* change = before.isNull() ? "create" : after.isNull() ? "delete" : "modify";
    return {{"kind", kind},
            {"change", change},
            {name, QString::fromStdString(value)},
            {"before", before},
            {"after", after}};
}

const char* KindWord(const PathState& state) {
    return S_ISDIR(state.mode) ? "directory" : S_ISLNK(state.mode) ? "link" : "file";
}

std::vector<std::string> FieldsOf(const std::string& record) {
    std::vector<std::string> fields;
    std::istringstream stream(record + ':');
    for (std::string field; std::getline(stream, field, ':');)
        fields.push_back(field);
    return fields;
}

QString FieldText(const std::vector<std::string>& fields, size_t number) {
    return QString::fromStdString(fields.at(number));
}

// A machine, for a comparison with the JSON of a dry run.
struct Moment {
    MachineState paths;
    std::map<std::string, std::vector<std::string>> users, groups;  // records by name
    std::set<std::string> active;

    static std::map<std::string, std::vector<std::string>> RecordsOf(const char* path) {
        std::map<std::string, std::vector<std::string>> records;
        for (const std::string& line : LinesOf(ReadFile(path)))
            records[FieldsOf(line)[0]] = FieldsOf(line);
        return records;
    }

    static Moment Now() {
        Moment now = {StateOfTouchedPaths(), RecordsOf("/etc/passwd"), RecordsOf("/etc/group"), {}};
        for (const auto& entry : std::filesystem::directory_iterator(runningServices + "/active"))
            now.active.insert(entry.path().filename());
        return now;
    }

    bool Has(const std::string& path) const {
        const auto found = paths.find(path);
        return found != paths.end() && found->second.mode != 0;
    }

    std::set<std::pair<std::string, std::string>> Members() const {
        std::set<std::pair<std::string, std::string>> members;
        for (const auto& [name, fields] : groups) {
            std::istringstream list(fields.size() > 3 ? fields[3] : "");
            for (std::string user; std::getline(list, user, ',');)
                members.insert({user, name});
        }
        return members;
    }
};

bool IsNotInJson(const std::string& path) {
    return IsMatch(path,
                   "/etc/((passwd|group|shadow|gshadow|subuid|subgid)-?|\\.pwd\\.lock)|"
                   "/var/lib/corvane26(/.*)?") ||
           path.starts_with(runningServices);
}

void AddPaths(const Moment& before, const Moment& after, std::multiset<std::string>& changes) {
    for (const PathChange& change : ChangesBetween(before.paths, after.paths)) {
        const auto& [path, was, is] = change;
        if (!IsNotInJson(path) && was.Text() != is.Text()) {
            changes.insert(Compact(Described(KindWord(is.mode == 0 ? was : is), "path", path,
                                             JsonOf(path, was), JsonOf(path, is))));
        }
    }
}

void AddAccounts(const Moment& before, const Moment& after, std::multiset<std::string>& changes) {
    for (const auto& [name, fields] : after.groups) {
        if (!before.groups.contains(name)) {
            const QJsonObject created = {{"gid", FieldText(fields, 2).toInt()}};
            changes.insert(Compact(Described("group", "name", name, QJsonValue::Null, created)));
        }
    }
    for (const auto& [name, fields] : after.users) {
        if (before.users.contains(name))
            continue;
        const QJsonObject created = {{"uid", FieldText(fields, 2).toInt()},
                                     {"gid", FieldText(fields, 3).toInt()},
                                     {"comment", FieldText(fields, 4)},
                                     {"home", FieldText(fields, 5)},
                                     {"shell", FieldText(fields, 6)}};
        changes.insert(Compact(Described("user", "name", name, QJsonValue::Null, created)));
    }
    const auto was = before.Members();
    const auto is = after.Members();
    auto all = was;
    all.insert(is.begin(), is.end());
    for (const auto& member : all) {
        if (was.contains(member) && is.contains(member))
            continue;
        const QJsonObject pair = {{"user", QString::fromStdString(member.first)},
                                  {"group", QString::fromStdString(member.second)}};
        const QJsonValue none = QJsonValue::Null;
        changes.insert(
            Compact(Described("member", "name", member.first, was.contains(member) ? pair : none,
                              is.contains(member) ? pair : none)));
    }
}

QJsonObject ServiceState(bool active) {
    return {{"state", active ? "active" : "inactive"}};
}

void AddServices(const Moment& before, const Moment& after, const std::vector<std::string>& calls,
                 std::multiset<std::string>& changes) {
    const std::pair<std::string, std::string> earlier[] = {
        {"corvane_service", "/etc/init.d/corvane_service"},
        {"corvane20_service.service", "/etc/systemd/system/corvane20_service.service"},
        {"corvane24_service.service", "/etc/systemd/system/corvane24_service.service"}};
    for (const auto& [name, path] : earlier) {
        if (before.Has(path) && !after.Has(path)) {
            const bool active = before.active.contains(name.substr(0, name.find('.')));
            changes.insert(Compact(
                Described("service", "name", name, ServiceState(active), QJsonValue::Null)));
        }
    }
    const bool was = before.active.contains("corvane26_service");
    const bool restarted =
        std::find(calls.begin(), calls.end(), "systemctl restart " + unit) != calls.end();
    if (after.active.contains("corvane26_service") == was && !restarted)
        return;
    QJsonValue state = ServiceState(was);
    if (!before.Has("/etc/systemd/system/" + unit))
        state = QJsonValue::Null;
    QJsonObject object = Described("service", "name", unit, state, ServiceState(true));
    // "create" is a start, also of a unit that exists.
    object["change"] = was ? "modify" : "create";
    changes.insert(Compact(object));
}

std::multiset<std::string> ChangesInJson(const std::string& path) {
    const QByteArray text = QByteArray::fromStdString(ReadFile(path));
    std::multiset<std::string> changes;
    for (const QJsonValue& change : QJsonDocument::fromJson(text).object()["changes"].toArray())
        changes.insert(Compact(change.toObject()));
    return changes;
}

std::vector<std::string> OnlyIn(const std::multiset<std::string>& one,
                                const std::multiset<std::string>& other) {
    std::vector<std::string> lines;
    std::set_difference(one.begin(), one.end(), other.begin(), other.end(),
                        std::back_inserter(lines));
    return lines;
}

// Returns the JSON of a dry run, which leaves nothing else.
std::multiset<std::string> ChangesOfDryRun(const SetupKind& kind, const Moment& before) {
    const std::string file = runningServices + "/changes";
    const std::string mounts = ReadFile("/proc/self/mountinfo");
    const auto dry = RunSetup(kind, {"--dry-run", "--json", file});
    EXPECT_EQ(dry.status, 0) << dry.out << dry.err;
    const auto changes = ChangesInJson(file);
    const std::string report = ReadFile(file);
    Shell("rm " + file);
    EXPECT_EQ(TracesOf(before.paths, {runningServices}), std::vector<std::string>{});
    EXPECT_EQ(ReadFile("/proc/self/mountinfo"), mounts);
    if (kind.name == withMembers.name)
        ExpectReport(report, R"({"action": "dry-run", "status": 0})");
    TakeServiceCalls();
    return changes;
}

// A setup that is not needed leaves no traces, and its calls change no service.
void ExpectNothingToDo(const SetupKind& kind) {
    const MachineState before = StateOfTouchedPaths();
    const auto setup = RunSetup(kind, {"--if-needed"});
    EXPECT_EQ(setup.status, 0) << setup.err;
    EXPECT_TRUE(setup.out.ends_with("Nothing to do.\n")) << setup.out;
    EXPECT_EQ(TracesOf(before), std::vector<std::string>{});
    for (const std::string& call : TakeServiceCalls())
        EXPECT_TRUE(call.starts_with("systemctl is-active ")) << call;
}

class StagedSetup : public testing::TestWithParam<Case> {};

TEST_P(StagedSetup, MakesWhatBareScriptMakesAndDryRunLists) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const auto& [kind, start] = GetParam();
    const std::string script = ResultInRoot([&, &kind = kind, &start = start] {
        PrepareMachine(kind, start.before);
        RunBareScript(kind);
        // When the script removes a member, it lists the user in the group of the same name.
        Shell("gpasswd --delete ann ann");
        return WholeMachine();
    });
    const std::string machine = ResultInRoot([&, &kind = kind, &start = start] {
        PrepareMachine(kind, start.before);
        const Moment before = Moment::Now();
        const auto listed = ChangesOfDryRun(kind, before);
        EXPECT_TRUE(!listed.empty() || start.before == Before::SameSetup);
        const auto setup = RunSetup(kind);
        EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
        EXPECT_EQ(setup.err.find("cannot prepare"), std::string::npos) << setup.err;
        const Moment after = Moment::Now();
        std::multiset<std::string> made;
        AddPaths(before, after, made);
        AddAccounts(before, after, made);
        AddServices(before, after, TakeServiceCalls(), made);
        EXPECT_EQ(OnlyIn(listed, made), std::vector<std::string>{}) << "listed, not made";
        EXPECT_EQ(OnlyIn(made, listed), std::vector<std::string>{}) << "made, not listed";
        if (start.before == Before::SameSetup)
            ExpectNothingToDo(kind);
        return WholeMachine();
    });
    EXPECT_GT(LinesOf(script).size(), 40u);
    EXPECT_EQ(DifferingLines(script, machine), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Setups, StagedSetup, testing::ValuesIn(TriedRows(AllCases())), NameOf);

// The answers come from every source, and are all that another machine needs.
TEST(SavedAnswers, MakeSameInstallationElsewhere) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string file = "/run/site.toml";
    const SetupKind typed = {
        "Typed",
        {"-u", "chem", "-g", "chems", "--http-port=8081", "--submission-scripts", "--save-answers",
         file},
        "2\n600\n/tmp\n3\n2\n2\nchem\n/usr/bin/true\n/usr/bin/true\nann,bob\ny\n"};
    std::string saved;
    const std::string separator = "\n----\n";
    const auto machineAfter = [&](const SetupKind& kind) {
        PrepareMachine(kind, Before::Nothing);
        if (!saved.empty())
            WriteFile(file, saved);
        const auto setup = RunSetup(kind);
        EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
        const std::string answers = ReadFile(file);
        std::filesystem::remove(file);
        return answers + separator + WholeMachine();
    };
    const std::string first = ResultInRoot([&] { return machineAfter(typed); });
    saved = first.substr(0, first.find(separator));
    EXPECT_EQ(LinesOf(saved).size(), 25u) << saved;
    const SetupKind fromFile = {"FromFile", {"--answers", file}};
    const std::string second = ResultInRoot([&] { return machineAfter(fromFile); });
    EXPECT_GT(LinesOf(first).size(), 65u);
    EXPECT_EQ(DifferingLines(first, second), std::vector<std::string>{});
}

}  // namespace
