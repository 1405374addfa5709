#include "record/Manifest.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>

#include "answers/AnswersFile.h"

namespace {

using KeyValues = std::map<std::string, std::string>;  // values by keyword

constexpr std::pair<State::Kind, const char*> kindWords[] = {
    {State::Kind::File, "file"}, {State::Kind::Directory, "dir"}, {State::Kind::Link, "link"}};

// Of both mtree(5) and the comments.
constexpr const char* kindKey = "type";
constexpr const char* modeKey = "mode";
constexpr const char* uidKey = "uid";
constexpr const char* gidKey = "gid";
constexpr const char* userNameKey = "uname";
constexpr const char* groupNameKey = "gname";
constexpr const char* sizeKey = "size";
constexpr const char* targetKey = "link";
constexpr const char* sha256Key = "sha256";

constexpr const char* topFact = "# top: ";
constexpr const char* treeFact = "# directory: ";
constexpr const char* productFact = "# product: ";
constexpr const char* userFact = "# service-user: ";
constexpr const char* groupFact = "# service-group: ";
constexpr const char* memberFact = "# member: ";
constexpr const char* commandFact = "# command: ";
constexpr const char* digestFact = "# record-file: ";

bool IsPlain(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || std::strchr("/._-+:,@%~^", byte) != nullptr;
}

// As vis(3) and mtree(5) write bytes that separate words or begin a comment or pattern.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte != 0 && IsPlain(byte)) {
            escaped += each;
            continue;
        }
        escaped += '\\';
        for (const int shift : {6, 3, 0})
            escaped += static_cast<char>('0' + (byte >> shift & 7));
    }
    return escaped;
}

std::string Unescaped(const std::string& text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '\\' && i + 3 < text.size();
        unsigned byte = 0;
        if (isEscape)
            std::from_chars(&text[i + 1], &text[i + 4], byte, 8);
        plain += isEscape ? static_cast<char>(byte) : text[i];
        i += isEscape ? 3 : 0;
    }
    return plain;
}

std::string Octal(mode_t mode) {
    std::string digits = "0";
    for (const int shift : {9, 6, 3, 0})
        digits += static_cast<char>('0' + (mode >> shift & 7));
    return digits.substr(digits[1] == '0' ? 1 : 0);
}

void AddWord(std::string& line, const char* key, const std::string& value) {
    line += std::string(" ") + key + '=' + value;
}

// mtree(5) does not decode these names.
void AddName(std::string& line, const char* key, const char* name) {
    if (name != nullptr && Escaped(name) == name)
        AddWord(line, key, name);
}

void AddOwners(std::string& line, const State& state) {
    const passwd* user = getpwuid(state.owner);
    const group* owner = getgrgid(state.group);
    AddWord(line, uidKey, std::to_string(state.owner));
    AddName(line, userNameKey, user == nullptr ? nullptr : user->pw_name);
    AddWord(line, gidKey, std::to_string(state.group));
    AddName(line, groupNameKey, owner == nullptr ? nullptr : owner->gr_name);
}

const char* TypeWord(State::Kind kind) {
    return std::ranges::find_if(kindWords, [kind](const auto& word) { return word.first == kind; })
        ->second;
}

std::string LineOf(const ManifestEntry& entry) {
    const State& state = entry.state;
    std::string line = entry.path.empty() ? "." : "./" + Escaped(entry.path);
    AddWord(line, kindKey, TypeWord(state.kind));
    if (!entry.isInstalled)
        return line + '\n';
    if (state.kind != State::Kind::Link)
        AddWord(line, modeKey, Octal(state.mode));
    AddOwners(line, state);
    if (state.kind == State::Kind::Link)
        AddWord(line, targetKey, Escaped(state.target));
    if (!state.digest.empty()) {
        AddWord(line, sizeKey, std::to_string(state.size));
        AddWord(line, sha256Key, state.digest);
    }
    return line + '\n';
}

std::string Fact(const char* fact, const std::string& value) {
    return fact + Escaped(value) + '\n';
}

std::string TextOf(const AccountFacts& account) {
    std::string user = userFact + Escaped(account.user);
    AddWord(user, uidKey, std::to_string(account.uid));
    AddWord(user, gidKey, std::to_string(account.primaryGid));
    AddWord(user, "home", Escaped(account.home));
    AddWord(user, "shell", Escaped(account.shell));
    std::string group = groupFact + Escaped(account.group);
    AddWord(group, gidKey, std::to_string(account.gid));
    std::string text = user + '\n' + group + '\n';
    for (const std::string& member : account.members)
        text += Fact(memberFact, member);
    return text;
}

std::string FactsOf(const Manifest& manifest) {
    std::string text = Fact(topFact, manifest.top) + Fact(treeFact, manifest.tree) +
                       Fact(productFact, manifest.productDir);
    if (manifest.account)
        text += TextOf(*manifest.account);
    for (const std::string& command : manifest.commands)
        text += Fact(commandFact, command);
    for (const RecordedDigest& file : manifest.digests) {
        std::string line = digestFact + Escaped(file.name);
        AddWord(line, sha256Key, file.digest);
        text += line + '\n';
    }
    return text;
}

QByteArray Commented(const QByteArray& text) {
    QByteArray commented;
    for (const QByteArray& line : text.split('\n'))
        commented += line.isEmpty() ? QByteArray() : "# " + line + '\n';
    return commented;
}

// Splits "NAME key=value key=value".
KeyValues WordsOf(const std::string& line, std::string& name) {
    KeyValues words;
    size_t begin = std::min(line.find(' '), line.size());
    name = Unescaped(line.substr(0, begin));
    while (begin < line.size()) {
        const size_t end = std::min(line.find(' ', begin + 1), line.size());
        const std::string word = line.substr(begin + 1, end - begin - 1);
        const size_t equals = std::min(word.find('='), word.size());
        words[word.substr(0, equals)] = Unescaped(word.substr(std::min(equals + 1, word.size())));
        begin = end;
    }
    return words;
}

// False if there is a value that is not a number.
template <class Number>
bool TakeNumber(const KeyValues& words, const char* key, int base, Number& number) {
    const auto found = words.find(key);
    if (found == words.end())
        return true;
    const std::string& text = found->second;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

std::string TextOf(const KeyValues& words, const char* key) {
    const auto found = words.find(key);
    return found == words.end() ? std::string() : found->second;
}

bool ParseEntry(const std::string& line, ManifestEntry& entry) {
    std::string name;
    const KeyValues words = WordsOf(line, name);
    const auto* kind = std::ranges::find_if(
        kindWords, [&](const auto& word) { return TextOf(words, kindKey) == word.second; });
    if ((name != "." && !name.starts_with("./")) || kind == std::end(kindWords))
        return false;
    entry.path = name == "." ? "" : name.substr(2);
    entry.isInstalled = words.contains(uidKey);
    State& state = entry.state;
    state.kind = kind->first;
    state.target = TextOf(words, targetKey);
    state.digest = TextOf(words, sha256Key);
    return TakeNumber(words, modeKey, 8, state.mode) &&
           TakeNumber(words, uidKey, 10, state.owner) &&
           TakeNumber(words, gidKey, 10, state.group) && TakeNumber(words, sizeKey, 10, state.size);
}

bool ParseUser(const std::string& text, AccountFacts& account) {
    const KeyValues words = WordsOf(text, account.user);
    account.home = TextOf(words, "home");
    account.shell = TextOf(words, "shell");
    return TakeNumber(words, uidKey, 10, account.uid) &&
           TakeNumber(words, gidKey, 10, account.primaryGid);
}

bool ParseGroup(const std::string& text, AccountFacts& account) {
    const KeyValues words = WordsOf(text, account.group);
    return TakeNumber(words, gidKey, 10, account.gid);
}

class Parsing {
public:
    explicit Parsing(Manifest& manifest) : m_manifest(manifest) {}

    // False for an invalid line.
    bool Take(const std::string& line) {
        if (!line.starts_with('#')) {
            if (line.empty())
                return true;
            return ParseEntry(line, m_manifest.entries.emplace_back());
        }
        for (const auto& [fact, take] : takers) {
            if (line.starts_with(fact))
                return (this->*take)(line.substr(std::strlen(fact)));
        }
        m_answers +=
            QByteArray::fromStdString(line.substr(std::min<size_t>(line.size(), 2))) + '\n';
        return true;
    }

    // Other versions may have other keys.
    void Finish() { m_manifest.answers = ParseAnswers(m_answers, AnswersForm::Record).answers; }

private:
    using Taker = bool (Parsing::*)(const std::string& text);

    bool TakeTop(const std::string& text) {
        m_manifest.top = Unescaped(text);
        return true;
    }
    bool TakeTree(const std::string& text) {
        m_manifest.tree = Unescaped(text);
        return true;
    }
    bool TakeProduct(const std::string& text) {
        m_manifest.productDir = Unescaped(text);
        return true;
    }
    bool TakeUser(const std::string& text) { return ParseUser(text, Account()); }
    bool TakeGroup(const std::string& text) { return ParseGroup(text, Account()); }
    bool TakeMember(const std::string& text) {
        Account().members.push_back(Unescaped(text));
        return true;
    }
    bool TakeCommand(const std::string& text) {
        m_manifest.commands.push_back(Unescaped(text));
        return true;
    }
    bool TakeDigest(const std::string& text) {
        RecordedDigest& file = m_manifest.digests.emplace_back();
        file.digest = TextOf(WordsOf(text, file.name), sha256Key);
        return true;
    }

    AccountFacts& Account() {
        if (!m_manifest.account)
            m_manifest.account.emplace();
        return *m_manifest.account;
    }

    static constexpr std::pair<const char*, Taker> takers[] = {
        {topFact, &Parsing::TakeTop},         {treeFact, &Parsing::TakeTree},
        {productFact, &Parsing::TakeProduct}, {userFact, &Parsing::TakeUser},
        {groupFact, &Parsing::TakeGroup},     {memberFact, &Parsing::TakeMember},
        {commandFact, &Parsing::TakeCommand}, {digestFact, &Parsing::TakeDigest}};

    Manifest& m_manifest;
    QByteArray m_answers;
};

}  // namespace

QByteArray WriteManifest(const Manifest& manifest) {
    std::string lines = FactsOf(manifest);
    for (const ManifestEntry& entry : manifest.entries)
        lines += LineOf(entry);
    // In mtree(5) format, where the facts and answers are comments.
    return RecordText("#mtree", manifest.facts,
                      Commented(WriteAnswers(manifest.answers, AnswersForm::Record)) +
                          QByteArray::fromStdString(lines));
}

std::optional<Manifest> ParseManifest(const QByteArray& text) {
    const std::optional<ParsedRecord> record = ParseRecordText(text);
    if (!record)
        return {};
    Manifest manifest;
    manifest.facts = record->facts;
    Parsing parsing(manifest);
    for (const QByteArray& line : record->body.split('\n')) {
        if (!parsing.Take(line.toStdString()))
            return {};
    }
    parsing.Finish();
    return manifest;
}
