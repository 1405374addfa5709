#include "report/JsonChanges.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "report/OwnerNames.h"

namespace {

using Json = nlohmann::ordered_json;

std::string Utf8(const QString& text) {
    return text.toStdString();
}

const char* ChangeWord(Change change) {
    return change == Change::Create ? "create" : change == Change::Modify ? "modify" : "delete";
}

// Other users may read the JSON: it has no digest of a file that they cannot read.
bool HasPublicDigest(const State& state) {
    return !state.digest.empty() && (state.mode & S_IROTH) != 0;
}

// Null if nothing exists.
Json ObjectOf(const State& state, State::Kind kind, const OwnerNames& names) {
    if (state.kind == State::Kind::Missing)
        return nullptr;
    Json object = Json::object();
    if (state.kind != kind)
        object["kind"] = WordOf(state.kind);
    object["owner"] = Utf8(names.User(state.owner));
    object["group"] = Utf8(names.Group(state.group));
    object["uid"] = state.owner;
    object["gid"] = state.group;
    if (state.kind == State::Kind::Link)
        object["target"] = state.target;
    else
        object["mode"] = Utf8(ModeText(state.mode));
    if (HasPublicDigest(state))
        object["sha256"] = state.digest;
    return object;
}

// `name` is the member that contains the path or name.
Json ChangeObject(const char* name, const std::string& value, const char* kind, Change change,
                  Json before, Json after) {
    return {{name, value},
            {"kind", kind},
            {"change", ChangeWord(change)},
            {"before", std::move(before)},
            {"after", std::move(after)}};
}

Json ObjectOf(const PathDifference& difference, const OwnerNames& names) {
    const State& described =
        difference.change == Change::Delete ? difference.before : difference.after;
    return ChangeObject("path", difference.path, WordOf(described.kind), difference.change,
                        ObjectOf(difference.before, described.kind, names),
                        ObjectOf(difference.after, described.kind, names));
}

Json ObjectOf(const AccountDifference& account) {
    Json record = account.isGroup ? Json{{"gid", account.gid}}
                                  : Json{{"uid", account.uid},
                                         {"gid", account.gid},
                                         {"comment", account.comment},
                                         {"home", account.home},
                                         {"shell", account.shell}};
    const char* kind = account.isGroup ? "group" : "user";
    return account.change == Change::Delete
               ? ChangeObject("name", account.name, kind, account.change, record, nullptr)
               : ChangeObject("name", account.name, kind, account.change, nullptr, record);
}

Json ObjectOf(const MemberDifference& member) {
    Json membership = {{"user", member.user}, {"group", member.group}};
    return member.change == Change::Delete
               ? ChangeObject("name", member.user, "member", member.change, membership, nullptr)
               : ChangeObject("name", member.user, "member", member.change, nullptr, membership);
}

// Numbers are numbers, as in the object of a new user.
Json AttributeObject(const std::string& attribute, const std::string& value) {
    Json object = Json::object();
    if (attribute == "gid")
        object[attribute] = QString::fromStdString(value).toUInt();
    else
        object[attribute] = value;
    return object;
}

Json ServiceState(const std::string& state) {
    return state.empty() ? Json() : Json{{"state", state}};
}

const char* SourceWord(AnswerSource source) {
    switch (source) {
        case AnswerSource::Default:
            return "default";
        case AnswerSource::Record:
            return "record";
        case AnswerSource::File:
            return "file";
        case AnswerSource::CommandLine:
            return "option";
        default:
            return "typed";
    }
}

struct ValueOf {
    Json operator()(bool value) const { return value; }
    Json operator()(int value) const { return value; }
    Json operator()(const QString& value) const { return Utf8(value); }
    Json operator()(const QStringList& values) const {
        Json array = Json::array();
        for (const QString& value : values)
            array.push_back(Utf8(value));
        return array;
    }
};

}  // namespace

nlohmann::ordered_json JsonOf(const Differences& differences) {
    const OwnerNames names(differences.accounts);
    Json changes = Json::array();
    for (const AccountDifference& account : differences.accounts)
        changes.push_back(ObjectOf(account));
    for (const UserChange& each : differences.userChanges)
        changes.push_back(ChangeObject("name", each.user, "user", Change::Modify,
                                       AttributeObject(each.attribute, each.before),
                                       AttributeObject(each.attribute, each.after)));
    for (const MemberDifference& member : differences.members)
        changes.push_back(ObjectOf(member));
    for (const PathDifference& path : differences.paths)
        changes.push_back(ObjectOf(path, names));
    for (const ServiceDifference& service : differences.services)
        changes.push_back(ChangeObject("name", service.name, "service", service.change,
                                       ServiceState(service.before), ServiceState(service.after)));
    return changes;
}

nlohmann::ordered_json JsonOf(const Answers& answers) {
    Json object = Json::object();
    for (const auto& [id, answer] : answers.All())
        object[RowOf(id).key] = {{"value", std::visit(ValueOf(), answer.value)},
                                 {"source", SourceWord(answer.source)},
                                 {"chosen", answer.chosen}};
    return object;
}
