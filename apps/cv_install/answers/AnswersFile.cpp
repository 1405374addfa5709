#include "answers/AnswersFile.h"

// The configuration of toml++: no exceptions, no library at run time.
#define TOML_EXCEPTIONS 0
#define TOML_HEADER_ONLY 1
#include <toml++/toml.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sstream>

#include "OutputFile.h"
#include "answers/NearestWord.h"
#include "installation/State.h"
#include "installation/TimeLimit.h"

namespace {

// In a record, the keys of the chosen answers.
constexpr const char* chosenKey = "chosen";

QString FromToml(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// A value as it can be in the file; a text without its quotes.
QString ValueText(const toml::node& node) {
    if (const auto* text = node.as_string())
        return FromToml(text->get());
    std::ostringstream stream;
    node.visit([&](const auto& value) { stream << value; });
    return QString::fromStdString(stream.str());
}

AnswersFinding FindingAt(const toml::source_region& region, QString text, QString remedy) {
    return {region.begin.line, region.begin.column, std::move(text), std::move(remedy)};
}

std::optional<QStringList> ListFrom(const toml::node& node) {
    const toml::array* array = node.as_array();
    if (array == nullptr)
        return {};
    QStringList list;
    for (const toml::node& element : *array) {
        if (!element.is_string())
            return {};
        list.push_back(FromToml(element.as_string()->get()));
    }
    return list;
}

// Returns nothing if the value is not of the row's kind.
std::optional<AnswerValue> ValueFrom(const toml::node& node, AnswerKind kind) {
    if (kind == AnswerKind::Flag && node.is_boolean())
        return node.as_boolean()->get();
    if (kind == AnswerKind::Number && node.is_integer()) {
        // Values beyond int are beyond every range.
        return static_cast<int>(std::clamp<int64_t>(node.as_integer()->get(), INT_MIN, INT_MAX));
    }
    if ((kind == AnswerKind::Text || kind == AnswerKind::Word) && node.is_string())
        return FromToml(node.as_string()->get());
    if (kind == AnswerKind::List)
        return ListFrom(node);
    return {};
}

bool IsInt(const toml::node& node) {
    const auto* number = node.as_integer();
    return number == nullptr || (number->get() >= INT_MIN && number->get() <= INT_MAX);
}

AnswersFinding UnknownKey(const toml::key& key) {
    std::vector<std::string> keys;
    for (const AnswerRow& row : AnswerRows())
        keys.emplace_back(row.key);
    const std::string nearest = NearestWord(key.str(), keys);
    return FindingAt(
        key.source(), QStringLiteral("unknown key \"%1\"").arg(FromToml(key.str())),
        nearest.empty()
            ? QStringLiteral("The keys are the long options without their hyphens at the start.")
            : QStringLiteral("Did you mean \"%1\"?").arg(QString::fromStdString(nearest)));
}

void ParseAnswer(const AnswerRow& row, const toml::node& node, ParsedAnswers& parsed) {
    const std::optional<AnswerValue> value = IsInt(node) ? ValueFrom(node, row.kind) : std::nullopt;
    const QString reason = value ? ReasonAgainst(row, *value) : QString();
    if (value && reason.isEmpty()) {
        parsed.answers.Set(row.id, *value, AnswerSource::File);
        return;
    }
    QString text = QStringLiteral("invalid value for \"%1\": \"").arg(QLatin1String(row.key)) +
                   ValueText(node) + u'"';
    const bool isText = value && row.kind != AnswerKind::Number && row.words.empty();
    parsed.findings.push_back(
        FindingAt(node.source(), isText ? text + QStringLiteral(": ") + reason : text,
                  isText ? QStringLiteral("Use another value.") : RequirementOf(row)));
}

void ParseChosen(const toml::node& node, ParsedAnswers& parsed) {
    const std::optional<QStringList> keys = ListFrom(node);
    if (!keys) {
        parsed.findings.push_back(
            FindingAt(node.source(),
                      QStringLiteral("invalid value for \"%1\": \"").arg(QLatin1String(chosenKey)) +
                          ValueText(node) + u'"',
                      QStringLiteral("Use a list of keys.")));
        return;
    }
    for (const QString& key : *keys) {
        const AnswerRow* row = FindAnswerRow(key);
        const Answer* answer = row == nullptr ? nullptr : parsed.answers.Find(row->id);
        if (answer != nullptr)
            parsed.answers.Set(row->id, {answer->value, answer->source, true});
    }
}

// In a record, `chosen` lists the chosen answers.
void TakeAsRecord(const toml::table& table, ParsedAnswers& parsed) {
    const Answers file = parsed.answers;
    for (const auto& [id, answer] : file.All())
        parsed.answers.Set(id, {answer.value, AnswerSource::Record, false});
    if (const toml::node* chosen = table.get(chosenKey))
        ParseChosen(*chosen, parsed);
}

QByteArray Quoted(const QString& text) {
    QByteArray quoted = "\"";
    for (const char byte : text.toUtf8()) {
        if (byte == '"' || byte == '\\')
            quoted += '\\';
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20 || code == 0x7f)
            quoted += "\\u00" + QByteArray(1, byte).toHex();
        else
            quoted += byte;
    }
    return quoted + '"';
}

QByteArray Quoted(const QStringList& list) {
    QByteArrayList elements;
    for (const QString& element : list)
        elements.push_back(Quoted(element));
    return '[' + elements.join(", ") + ']';
}

QByteArray Quoted(bool value) {
    return value ? "true" : "false";
}

QByteArray Quoted(int value) {
    return QByteArray::number(value);
}

constexpr qsizetype longestFile = 1 << 20;

// Returns why the file cannot be read; empty on success.
QString ReadAll(int descriptor, QByteArray& content) {
    QByteArray block(65536, '\0');
    for (;;) {
        const ssize_t length = read(descriptor, block.data(), static_cast<size_t>(block.size()));
        if (length < 0)
            return QString::fromUtf8(std::strerror(errno));
        if (length == 0)
            return {};
        content += block.first(length);
        if (content.size() > longestFile)
            return QStringLiteral("longer than 1 MB");
    }
}

QString ReadFile(const char* path, QByteArray& content) {
    const TimeLimit limit;
    const Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat found = {};
    if (!file || fstat(file.Number(), &found) != 0)
        return QString::fromUtf8(std::strerror(errno));
    if (getuid() == 0 && S_ISREG(found.st_mode) && (found.st_mode & S_IWOTH) != 0)
        return QStringLiteral("other users can write to it");
    // Such as the pipe of a process substitution.
    if (!S_ISREG(found.st_mode) && fcntl(file.Number(), F_SETFL, 0) != 0)
        return QString::fromUtf8(std::strerror(errno));
    return ReadAll(file.Number(), content);
}

Problem UnusableAnswers(const QString& text, const QString& remedy, Changes changes) {
    return {ExitStatus::UnusableArguments, text, remedy, changes};
}

}  // namespace

ParsedAnswers ParseAnswers(const QByteArray& toml, AnswersForm form) {
    ParsedAnswers parsed;
    const toml::parse_result result =
        toml::parse(std::string_view(toml.constData(), static_cast<size_t>(toml.size())));
    if (!result) {
        parsed.findings.push_back(FindingAt(
            result.error().source(),
            QStringLiteral("invalid TOML: %1").arg(FromToml(result.error().description())),
            QStringLiteral("Write one \"key = value\" a line, and text in quotes.")));
        return parsed;
    }
    for (const auto& [key, node] : result.table()) {
        if (const AnswerRow* row = FindAnswerRow(FromToml(key.str())))
            ParseAnswer(*row, node, parsed);
        else if (form == AnswersForm::File || key.str() != chosenKey)
            parsed.findings.push_back(UnknownKey(key));
    }
    if (form == AnswersForm::Record)
        TakeAsRecord(result.table(), parsed);
    std::sort(parsed.findings.begin(), parsed.findings.end(), [](const auto& a, const auto& b) {
        return std::pair(a.line, a.column) < std::pair(b.line, b.column);
    });
    return parsed;
}

Failure ReadAnswersFile(const char* path, Answers& answers) {
    if (path == nullptr)
        return {};
    const bool isInput = std::strcmp(path, "-") == 0;
    const QString name = isInput
                             ? QStringLiteral("standard input")
                             : QStringLiteral("answers file \"%1\"").arg(QString::fromUtf8(path));
    QByteArray content;
    const QString reason = isInput ? ReadAll(STDIN_FILENO, content) : ReadFile(path, content);
    if (!reason.isEmpty()) {
        return UnusableAnswers(QStringLiteral("cannot read %1: %2").arg(name, reason),
                               QStringLiteral("Fix the cause, then run the setup again."),
                               Changes::None);
    }
    const ParsedAnswers parsed = ParseAnswers(content, AnswersForm::File);
    answers = parsed.answers;
    Failure failure;
    for (const AnswersFinding& finding : parsed.findings) {
        if (failure)
            Report(*failure);
        const bool isLast = &finding == &parsed.findings.back();
        failure = UnusableAnswers(
            name + QStringLiteral(", line %1, column %2: ").arg(finding.line).arg(finding.column) +
                finding.text,
            finding.remedy, isLast ? Changes::None : Changes::Unknown);
    }
    return failure;
}

Failure SaveAnswersFile(const char* path, const Answers& answers) {
    if (path == nullptr)
        return {};
    return WriteOutputFile(
        path, "# For cv_install --answers.\n" + WriteAnswers(answers, AnswersForm::File), 0600);
}

QByteArray WriteAnswers(const Answers& answers, AnswersForm form) {
    QByteArray toml;
    QStringList chosen;
    for (const auto& [id, answer] : answers.All()) {
        const AnswerRow& row = RowOf(id);
        toml += row.key + QByteArray(" = ") +
                std::visit([](const auto& value) { return Quoted(value); }, answer.value);
        if (row.unit[0] != '\0')
            toml += QByteArray("  # ") + row.unit;
        toml += '\n';
        if (answer.chosen)
            chosen.push_back(QLatin1String(row.key));
    }
    if (form == AnswersForm::Record)
        toml += chosenKey + (" = " + Quoted(chosen)) + '\n';
    return toml;
}
