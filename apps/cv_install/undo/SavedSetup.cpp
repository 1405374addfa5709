#include "undo/SavedSetup.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::pair<Change, const char*>, 3> savedChangeWords = {
    {{Change::Create, "create"}, {Change::Modify, "modify"}, {Change::Delete, "delete"}}};
constexpr std::array<std::pair<bool, const char*>, 2> savedResultWords = {
    {{true, "known"}, {false, "unknown"}}};
constexpr std::array<std::pair<State::Kind, const char*>, 5> savedKindWords = {
    {{State::Kind::Missing, "missing"},
     {State::Kind::File, "file"},
     {State::Kind::Directory, "directory"},
     {State::Kind::Link, "link"},
     {State::Kind::Special, "special"}}};

template <class Words, class Value>
const char* WordFor(const Words& words, Value value) {
    return std::ranges::find(words, value, &Words::value_type::first)->second;
}

template <class Words>
auto ValueFor(const Words& words, const std::string& word) {
    const auto found =
        std::ranges::find_if(words, [&](const auto& row) { return word == row.second; });
    if (found == words.end())
        throw std::invalid_argument(word);
    return found->first;
}

// JSON has no bytes that are not UTF-8. Names in the file system may have them.
std::string Encoded(const std::string& bytes) {
    return QByteArray::fromStdString(bytes).toPercentEncoding("/ ,:=+@").toStdString();
}

std::string Decoded(const Json& text) {
    return QByteArray::fromPercentEncoding(QByteArray::fromStdString(text.get<std::string>()))
        .toStdString();
}

// The number of the inode shows later whether a directory is still the same one.
Json ObjectOf(const State& state) {
    return {{"kind", WordFor(savedKindWords, state.kind)},
            {"mode", state.mode},
            {"uid", state.owner},
            {"gid", state.group},
            {"target", Encoded(state.target)},
            {"sha256", state.digest},
            {"inode", state.inode}};
}

State StateOf(const Json& object) {
    State state;
    state.kind = ValueFor(savedKindWords, object.at("kind"));
    state.mode = object.at("mode");
    state.owner = object.at("uid");
    state.group = object.at("gid");
    state.target = Decoded(object.at("target"));
    state.digest = object.at("sha256");
    state.inode = object.at("inode");
    return state;
}

Json ObjectOf(const Differences& differences) {
    Json object = {{"accounts", Json::array()},
                   {"members", Json::array()},
                   {"paths", Json::array()},
                   {"services", Json::array()}};
    for (const AccountDifference& each : differences.accounts) {
        object["accounts"].push_back({{"group", each.isGroup},
                                      {"name", Encoded(each.name)},
                                      {"uid", each.uid},
                                      {"gid", each.gid},
                                      {"comment", Encoded(each.comment)},
                                      {"home", Encoded(each.home)},
                                      {"shell", Encoded(each.shell)}});
    }
    for (const MemberDifference& each : differences.members) {
        object["members"].push_back({{"change", WordFor(savedChangeWords, each.change)},
                                     {"user", Encoded(each.user)},
                                     {"group", Encoded(each.group)}});
    }
    for (const PathDifference& each : differences.paths) {
        object["paths"].push_back({{"change", WordFor(savedChangeWords, each.change)},
                                   {"path", Encoded(each.path)},
                                   {"before", ObjectOf(each.before)},
                                   {"after", ObjectOf(each.after)}});
    }
    for (const ServiceDifference& each : differences.services) {
        object["services"].push_back({{"change", WordFor(savedChangeWords, each.change)},
                                      {"name", Encoded(each.name)},
                                      {"before", each.before},
                                      {"after", each.after}});
    }
    return object;
}

Differences DifferencesOf(const Json& object, const std::string& installDir) {
    Differences all;
    for (const Json& each : object.at("accounts")) {
        all.accounts.push_back({each.at("group"), Decoded(each.at("name")), each.at("uid"),
                                each.at("gid"), Decoded(each.at("comment")),
                                Decoded(each.at("home")), Decoded(each.at("shell"))});
    }
    for (const Json& each : object.at("members")) {
        all.members.push_back({ValueFor(savedChangeWords, each.at("change")),
                               Decoded(each.at("user")), Decoded(each.at("group"))});
    }
    for (const Json& each : object.at("paths")) {
        const std::string path = Decoded(each.at("path"));
        all.paths.push_back({ValueFor(savedChangeWords, each.at("change")), path,
                             StateOf(each.at("before")), StateOf(each.at("after")),
                             RowOfPath(path, installDir)});
    }
    for (const Json& each : object.at("services")) {
        all.services.push_back({ValueFor(savedChangeWords, each.at("change")),
                                Decoded(each.at("name")), each.at("before"), each.at("after")});
    }
    return all;
}

// The elements of all attempts, each once. `isSame` compares what two elements are about.
template <class Element, class IsSame>
std::vector<Element> FirstOfEach(const SavedSetup& saved, std::vector<Element> Differences::*list,
                                 IsSame isSame) {
    std::vector<Element> found;
    for (const Differences& attempt : saved.attempts) {
        for (const Element& each : attempt.*list) {
            if (std::ranges::none_of(found, [&](const Element& one) { return isSame(one, each); }))
                found.push_back(each);
        }
    }
    return found;
}

}  // namespace

std::vector<SavedPath> PathsOf(const SavedSetup& saved) {
    std::vector<SavedPath> paths;
    std::map<std::string, size_t> places;
    for (const Differences& attempt : saved.attempts) {
        for (const PathDifference& each : attempt.paths) {
            const auto [place, isNew] = places.emplace(each.path, paths.size());
            if (isNew)
                paths.push_back({each.path, each.entry, each.before, {}});
            else
                paths[place->second].after.push_back(each.before);
            paths[place->second].after.push_back(each.after);
        }
    }
    return paths;
}

std::vector<AccountDifference> AccountsOf(const SavedSetup& saved) {
    const auto isSame = [](const AccountDifference& one, const AccountDifference& other) {
        return one.isGroup == other.isGroup && one.name == other.name;
    };
    std::vector<AccountDifference> accounts = FirstOfEach(saved, &Differences::accounts, isSame);
    std::stable_partition(accounts.begin(), accounts.end(),
                          [](const AccountDifference& each) { return each.isGroup; });
    for (const Differences& attempt : saved.attempts) {
        for (const AccountDifference& each : attempt.accounts)
            *std::ranges::find_if(accounts, [&](const auto& one) { return isSame(one, each); }) =
                each;
    }
    return accounts;
}

std::vector<MemberDifference> MembersOf(const SavedSetup& saved) {
    return FirstOfEach(saved, &Differences::members,
                       [](const MemberDifference& one, const MemberDifference& other) {
                           return one.user == other.user && one.group == other.group;
                       });
}

std::vector<ServiceDifference> ServicesOf(const SavedSetup& saved) {
    return FirstOfEach(saved, &Differences::services,
                       [](const ServiceDifference& one, const ServiceDifference& other) {
                           return one.name == other.name;
                       });
}

const Entry* RowOfPath(const std::string& path, const std::string& installDir) {
    const auto rows = Entries();
    const auto found = std::ranges::find_if(rows, [&](const Entry& entry) {
        const std::string row = PathOf(entry, installDir);
        return IsStaged(entry) &&
               (path == row || (entry.ownsAllBelow && path.starts_with(row + '/')));
    });
    return found == rows.end() ? nullptr : &*found;
}

// Jobs are no part of it. Where other users can rename files, root reads only public ones.
Reading ReadingOfSaved(const Entry* entry, bool isInTree) {
    if (entry != nullptr && entry->item == Item::QueueEntries)
        return Reading::Nothing;
    return isInTree && getuid() == 0 ? Reading::PublicFiles : Reading::AllFiles;
}

void Collapse(SavedSetup& saved) {
    if (saved.attempts.empty())
        return;
    std::map<std::string, const State*> last;
    for (const PathDifference& each : saved.attempts.back().paths)
        last[each.path] = &each.after;
    std::vector<Differences> attempts(1);
    for (const SavedPath& path : PathsOf(saved)) {
        std::vector<State> states;
        if (last.contains(path.path))
            states.push_back(*last[path.path]);
        for (const State& state : states.empty() ? path.after : std::vector<State>()) {
            if (std::ranges::find(states, state) == states.end())
                states.push_back(state);
        }
        attempts.resize(std::max(attempts.size(), states.size()));
        for (size_t i = 0; i < states.size(); ++i) {
            const Change change = states[i].kind == State::Kind::Missing     ? Change::Delete
                                  : path.before.kind == State::Kind::Missing ? Change::Create
                                                                             : Change::Modify;
            attempts[i].paths.push_back({change, path.path, path.before, states[i], path.entry});
        }
    }
    attempts[0].accounts = AccountsOf(saved);
    attempts[0].members = MembersOf(saved);
    attempts[0].services = ServicesOf(saved);
    saved.attempts = std::move(attempts);
}

QByteArray TextOf(const SavedSetup& saved) {
    Json object = {{"complete", saved.isComplete},
                   {"inPlace", saved.isInPlace},
                   {"result", WordFor(savedResultWords, saved.isResultKnown)},
                   {"record", saved.record},
                   {"members", Json::object()},
                   {"attempts", Json::array()}};
    for (const auto& [group, names] : saved.members)
        object["members"][Encoded(group)] = Encoded(names.join(u',').toStdString());
    for (const Differences& attempt : saved.attempts)
        object["attempts"].push_back(ObjectOf(attempt));
    return QByteArray::fromStdString(object.dump(1)) + '\n';
}

std::optional<SavedSetup> ParseSavedSetup(const QByteArray& text, const std::string& installDir) {
    SavedSetup saved;
    try {
        const Json object = Json::parse(text.begin(), text.end());
        saved.isComplete = object.at("complete");
        saved.isInPlace = object.at("inPlace");
        saved.isResultKnown = ValueFor(savedResultWords, object.at("result"));
        saved.record = object.at("record");
        for (const auto& [group, names] : object.at("members").items())
            saved.members[Decoded(group)] =
                QString::fromStdString(Decoded(names)).split(u',', Qt::SkipEmptyParts);
        for (const Json& attempt : object.at("attempts"))
            saved.attempts.push_back(DifferencesOf(attempt, installDir));
    } catch (const std::exception&) {
        return {};
    }
    return saved;
}
