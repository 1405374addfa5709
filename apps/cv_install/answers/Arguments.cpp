#include "answers/Arguments.h"

#include <unistd.h>

#include <cstdlib>
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
    const std::string value = equals == std::string::npos ? "" : ' ' + word.substr(equals + 1);
    Refuse(problem, "Did you mean " + Quoted(nearest + value) + '?');
}

const OptionUsage& FindOption(const char* word) {
    for (const OptionUsage& option : Options()) {
        if (HasSpelling(option, word))
            return option;
    }
    RefuseUnknown(word);
}

// Refuses a value that the library would silently ignore. `value` is null at the end.
void CheckValue(const OptionUsage& option, const char* word, const char* value) {
    if (option.value == OptionValue::OptionalText)
        return;
    if (value == nullptr)
        Refuse("option " + Quoted(word) + " requires a value",
               std::string("Use: ") + word + ' ' + option.valueName);
    bool isNumber = true;
    if (option.value == OptionValue::Number) {
        const int number = QString::fromUtf8(value).toInt(&isNumber);
        // The library has a meaning for negative limits.
        isNumber = isNumber && (number >= 0 || option.own == OwnOption::None);
    }
    const std::string problem = "invalid value for option " + Quoted(word) + ": " + Quoted(value);
    if (!isNumber)
        Refuse(problem, "Use a whole number of at most 2147483647 without a unit, such as 4.");
    // An option without its value would take the next option as its value, such as --dry-run.
    if (option.value == OptionValue::File && !IsFileName(value))
        Refuse(problem, "Use the name of a file, such as changes.json, or - for standard output.");
}

void CheckUser(const OptionUsage& option, const char* word) {
    if (option.requiresRoot && getuid() != 0)
        Refuse("option " + Quoted(word) + " requires a setup as root",
               "Run the setup as root, or without this option.");
}

}  // namespace

Arguments::Arguments(int argc, char** argv) {
    m_argv.push_back(argc > 0 ? argv[0] : nullptr);
    for (int i = 1; i < argc; ++i) {
        char* word = argv[i];
        const OptionUsage& option = FindOption(word);
        char* value = nullptr;
        if (option.value != OptionValue::None) {
            CheckValue(option, word, argv[i + 1]);
            if (i + 1 < argc)
                value = argv[++i];
        }
        CheckUser(option, word);
        if (option.own != OwnOption::None) {
            m_own[option.own] = value;
            continue;
        }
        m_argv.push_back(word);
        if (value != nullptr)
            m_argv.push_back(value);
    }
    m_argv.push_back(nullptr);
}

int Arguments::NumberOf(OwnOption option) const {
    return QString::fromUtf8(TextOf(option)).toInt();
}

const char* Arguments::TextOf(OwnOption option) const {
    const auto found = m_own.find(option);
    return found == m_own.end() ? nullptr : found->second;
}
