#include "answers/Arguments.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "Problem.h"
#include "answers/NearestWord.h"

namespace {

[[noreturn]] void Refuse(const std::string& problem, const std::string& remedy) {
    Report({ExitStatus::UnusableArguments, QString::fromStdString(problem),
            QString::fromStdString(remedy), Changes::Unknown});
    std::exit(static_cast<int>(ExitStatus::UnusableArguments));
}

std::string Quoted(std::string_view word) {
    return '"' + std::string(word) + '"';
}

std::string LongSpelling(const OptionUsage& option) {
    const std::string_view spellings = option.spellings;
    return std::string(spellings.substr(spellings.rfind(' ') + 1));
}

// Returns the long spelling that is nearest to `word`; empty when none is near.
std::string NearestSpelling(std::string_view word) {
    std::vector<std::string> spellings;
    for (const OptionUsage& option : Options())
        spellings.push_back(LongSpelling(option));
    return NearestWord(word, spellings);
}

[[noreturn]] void RefuseUnknown(const std::string& word) {
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const std::string nearest = NearestSpelling(name);
    const std::string problem = "unknown option " + Quoted(word);
    if (nearest.empty())
        Refuse(problem, "Run \"cv_install --help\" for help.");
    const std::string value = equals == std::string::npos ? "" : word.substr(equals);
    Refuse(problem, "Did you mean " + Quoted(nearest + value) + '?');
}

const OptionUsage& FindOption(const std::string& name, const char* word) {
    for (const OptionUsage& option : Options()) {
        if (HasSpelling(option, name.c_str()))
            return option;
    }
    RefuseUnknown(word);
}

[[noreturn]] void RefuseValue(const std::string& word, const char* value,
                              const std::string& remedy) {
    Refuse(
        "invalid value for option " + Quoted(word) + ": " + Quoted(value == nullptr ? "" : value),
        remedy);
}

// Refuses a value that the library would silently ignore. `value` is null at the end.
void CheckValue(const OptionUsage& option, const std::string& word, const char* value) {
    if (option.value == OptionValue::OptionalText || !TakesNextWord(option))
        return;
    if (value == nullptr)
        Refuse("option " + Quoted(word) + " requires a value",
               "Use: " + word + ' ' + option.valueName);
    if (option.own == OwnOption::None)
        return;
    bool isNumber = true;
    if (option.value == OptionValue::Number) {
        const int number = QString::fromUtf8(value).toInt(&isNumber);
        isNumber = isNumber && number >= 0;
    }
    if (!isNumber)
        RefuseValue(word, value, "Use a whole number from 0 to 2147483647, without a unit.");
    // An option without its value would take the next option as its value, such as --dry-run.
    if (option.value == OptionValue::File && !IsFileName(value))
        RefuseValue(word, value, "Use the name of a file, or - for a standard stream.");
}

void CheckUser(const OptionUsage& option, const std::string& word) {
    if (option.requiresRoot && getuid() != 0)
        Refuse("option " + Quoted(word) + " requires a setup as root",
               "Run the setup as root, or without this option.");
}

[[noreturn]] void RefuseBoth(const std::string& one, const std::string& other) {
    Refuse("options " + Quoted(one) + " and " + Quoted(other) + " exclude each other",
           "Use one of them.");
}

std::string SpellingOf(OwnOption wanted) {
    const auto options = Options();
    return std::ranges::find(options, wanted, &OptionUsage::own)->spellings;
}

// True for an option that replaces the setup by another action.
bool IsAction(OwnOption option) {
    return option == OwnOption::Verify || option == OwnOption::Status ||
           option == OwnOption::Undo || option == OwnOption::Repair || option == OwnOption::Remove;
}

// The library's options for the values of --queue.
const OptionUsage& QueueOptionOf(const QString& queue) {
    const std::string spelling = queue == u"internal" ? "--internal-default-queue"
                                 : queue == u"none"   ? "--no-queue"
                                 : queue == u"torque" ? "-q"
                                                      : "-p";
    return FindOption(spelling, spelling.c_str());
}

}  // namespace

Arguments::Arguments(int argc, char** argv) {
    m_argv.push_back(argc > 0 ? argv[0] : nullptr);
    for (int i = 1; i < argc; ++i) {
        const char* word = argv[i];
        const char* equals = std::strncmp(word, "--", 2) == 0 ? std::strchr(word, '=') : nullptr;
        const std::string name = equals == nullptr ? word : std::string(word, equals);
        const OptionUsage& option = FindOption(name, word);
        const char* value = equals == nullptr ? nullptr : equals + 1;
        if (value != nullptr && option.value == OptionValue::None)
            Refuse("option " + Quoted(name) + " takes no value", "Use: " + name);
        const bool isNext = value == nullptr && TakesNextWord(option);
        if (isNext)
            value = argv[i + 1];
        CheckValue(option, name, value);
        if (isNext && i + 1 < argc)
            ++i;
        CheckUser(option, name);
        Take(option, name, value);
    }
    m_argv.push_back(nullptr);
    CheckTogether();
}

void Arguments::Take(const OptionUsage& option, const std::string& word, const char* value) {
    if (option.answer != nullptr)
        TakeAnswer(*option.answer, word, value);
    else if (option.own != OwnOption::None)
        m_own[option.own] = value;
    else
        PassOn(option, value);
}

// The library reads the options for the queue in their order, so it gets them all.
void Arguments::TakeAnswer(const AnswerRow& row, const std::string& word, const char* text) {
    const std::optional<AnswerValue> value =
        text == nullptr ? AnswerValue(true) : ValueFromText(row, QString::fromUtf8(text));
    const int* number = value ? std::get_if<int>(&*value) : nullptr;
    // Kept: the library asks its questions with such limits.
    if (number != nullptr && *number <= 0 &&
        (row.id == AnswerId::MemoryLimit || row.id == AnswerId::ScratchLimit)) {
        m_answers.Remove(row.id);
        return;
    }
    // The guard checks other texts, with the values of other sources.
    const bool isLimited = row.kind == AnswerKind::Number || !row.words.empty();
    if (!value || (isLimited && !ReasonAgainst(row, *value).isEmpty()))
        RefuseValue(word, text, RequirementOf(row).toStdString());
    if (row.id == AnswerId::Queue) {
        PassOn(QueueOptionOf(std::get<QString>(*value)), nullptr);
        m_queue = QueueOption::Kind;  // the name can come from elsewhere
        return;
    }
    m_answers.Set(row.id, *value, AnswerSource::CommandLine);
    if (row.id == AnswerId::ClusterNode && std::get<bool>(*value))
        PassOn(QueueOptionOf(QStringLiteral("none")), nullptr);
}

void Arguments::PassOn(const OptionUsage& option, const char* value) {
    m_passedOn.push_back(Spellings(option).front());
    m_argv.push_back(m_passedOn.back().data());
    if (TakesNextWord(option)) {
        m_passedOn.emplace_back(value == nullptr ? "" : value);
        m_argv.push_back(m_passedOn.back().data());
    }
    if (option.queue != QueueOption::None)
        m_queue = option.queue;
}

void Arguments::RefuseTwoActions() const {
    std::string first;
    for (const OptionUsage& option : Options()) {
        if (!IsAction(option.own) || !Has(option.own))
            continue;
        if (!first.empty())
            RefuseBoth(first, option.spellings);
        first = option.spellings;
    }
}

// Actions that work with the recorded answers would silently ignore them.
void Arguments::RefuseOptionsOfSetups() const {
    for (const OwnOption action : {OwnOption::Repair, OwnOption::Undo, OwnOption::Remove}) {
        if (!Has(action))
            continue;
        const std::string name = SpellingOf(action);
        if (!m_answers.All().empty() || m_queue != QueueOption::None || Has(OwnOption::Answers))
            Refuse("option " + Quoted(name) + " takes no answers",
                   "It uses those of the previous setup. To change them, run the setup.");
        for (const OwnOption other :
             {OwnOption::SaveAnswers, OwnOption::IfNeeded, OwnOption::Restart}) {
            if (Has(other))
                RefuseBoth(name, SpellingOf(other));
        }
    }
}

void Arguments::CheckTogether() const {
    if (Has(OwnOption::Diff) && !Has(OwnOption::DryRun))
        Refuse(R"(option "--diff" requires option "--dry-run")",
               "Use --dry-run --diff, or answer d when the setup asks whether to continue.");
    RefuseTwoActions();
    RefuseOptionsOfSetups();
    if (Has(OwnOption::Force) && !Has(OwnOption::Undo))
        Refuse(R"(option "--force" requires option "--undo")", "Use: --undo --force");
    if (Has(OwnOption::Purge) && !Has(OwnOption::Remove))
        Refuse(R"(option "--purge" requires option "--remove")", "Use: --remove --purge");
    if (UsesStream(OwnOption::Answers) && !Has(OwnOption::Yes))
        Refuse(R"(option "--answers -" requires option "--yes")",
               "Standard input cannot also contain the answers to questions.");
    if (UsesStream(OwnOption::SaveAnswers) && UsesStream(OwnOption::Json))
        Refuse(R"(options "--save-answers -" and "--json -" both write to standard output)",
               "Use the name of a file for one of them.");
}

int Arguments::NumberOf(OwnOption option) const {
    return QString::fromUtf8(TextOf(option)).toInt();
}

const char* Arguments::TextOf(OwnOption option) const {
    const auto found = m_own.find(option);
    return found == m_own.end() ? nullptr : found->second;
}

bool Arguments::UsesStream(OwnOption option) const {
    const char* text = TextOf(option);
    return text != nullptr && std::strcmp(text, "-") == 0;
}

Answers Arguments::AnswersIn(const CInstallBase& run) const {
    Answers answers = m_answers;
    if (m_queue != QueueOption::None)
        answers.Set(AnswerId::Queue, RowOf(AnswerId::Queue).read(run), AnswerSource::CommandLine);
    if (m_queue == QueueOption::KindAndName && answers.Find(AnswerId::QueueName) == nullptr)
        answers.Set(AnswerId::QueueName, RowOf(AnswerId::QueueName).read(run),
                    AnswerSource::CommandLine);
    return answers;
}
