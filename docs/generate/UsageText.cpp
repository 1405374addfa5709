// Options, exit statuses and variables for the manual page, the completion and the guide.
#include <cctype>
#include <ostream>
#include <sstream>
#include <string>

#include "answers/Usage.h"
#include "generate/Texts.h"

namespace {

using Words = std::vector<std::string>;

Words Split(const std::string& text) {
    std::istringstream stream(text);
    Words words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// A word that begins with a hyphen is something to type, and keeps its hyphens as they are.
std::string Escaped(const std::string& word) {
    std::string escaped;
    for (const char character : word) {
        if (character == '-' && word.front() == '-')
            escaped += "\\-";
        else if (character == '\\')
            escaped += "\\e";
        else
            escaped += character;
    }
    return escaped;
}

// The sentences of `text` as lines of a manual page, each on lines of its own.
void WriteSentences(std::ostream& page, const std::string& text) {
    constexpr size_t width = 78;
    std::string line;
    const auto finish = [&] {
        if (!line.empty())
            page << line << '\n';
        line.clear();
    };
    for (const std::string& word : Split(text)) {
        if (line.size() + 1 + word.size() > width)
            finish();
        // A point at the start of a line would be a request to the formatter.
        if (line.empty())
            line = (word.front() == '.' ? "\\&" : "") + Escaped(word);
        else
            line += ' ' + Escaped(word);
        if (word.back() == '.')
            finish();
    }
    finish();
}

std::string AsSentence(std::string text) {
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return text + '.';
}

std::string MeaningOf(const OptionUsage& option) {
    return option.meaning == nullptr ? "Accepted for older scripts, without any effect."
                                     : AsSentence(option.meaning);
}

void WriteOptionItem(std::ostream& page, const OptionUsage& option) {
    page << ".It";
    const char* separator = "";
    for (const std::string& spelling : Spellings(option)) {
        page << separator << " Fl " << spelling.substr(1);
        separator = " ,";
    }
    if (option.valueName != nullptr)
        page << (option.value == OptionValue::OptionalText ? " Op Ar " : " Ar ")
             << option.valueName;
    page << '\n';
    WriteSentences(page, MeaningOf(option));
    if (option.detail != nullptr)
        WriteSentences(page, option.detail);
}

const char* TextOf(VariableUse use) {
    return use == VariableUse::Set ? "set" : use == VariableUse::Kept ? "kept" : "removed";
}

void WriteStatusItems(std::ostream& page, std::span<const StatusUsage> statuses) {
    page << ".Bl -tag -width errno\n";
    for (const StatusUsage& usage : statuses) {
        page << ".It " << Label(usage) << '\n';
        WriteSentences(page, AsSentence(usage.meaning));
    }
    page << ".El\n";
}

void WriteStatuses(std::ostream& guide, std::span<const StatusUsage> statuses) {
    guide << "| Status | Meaning |\n| --- | --- |\n";
    for (const StatusUsage& usage : statuses)
        guide << "| " << Label(usage) << " | " << usage.meaning << " |\n";
}

}  // namespace

void WriteOptionList(std::ostream& page) {
    page << ".Bl -tag -width Ds\n";
    for (const OptionUsage& option : Options())
        WriteOptionItem(page, option);
    page << ".El\n";
}

void WriteStatusList(std::ostream& page) {
    WriteStatusItems(page, Statuses());
}

void WriteVerificationList(std::ostream& page) {
    WriteStatusItems(page, VerificationStatuses());
}

// Neighbors with the same text are one item.
void WriteVariableList(std::ostream& page) {
    page << ".Bl -tag -width Ds\n";
    std::string names;
    std::string text;
    const auto finish = [&] {
        if (!names.empty())
            page << ".It Ev " << names << '\n';
        WriteSentences(page, text);
    };
    for (const VariableUsage& usage : Variables()) {
        const std::string next = AsSentence(TextOf(usage.use) + (": " + Meaning(usage)));
        if (next == text) {
            names += std::string(" , ") + usage.name;
            continue;
        }
        finish();
        names = usage.name;
        text = next;
    }
    finish();
    page << ".El\n";
}

// The spellings that are offered, one a line.
void WriteOptionWords(std::ostream& script) {
    for (const OptionUsage& option : Options()) {
        if (option.meaning == nullptr)
            continue;
        for (const std::string& spelling : Spellings(option))
            script << spelling << '\n';
    }
}

// A branch of a case statement for each option with a value, which names the kind of value.
void WriteValueBranches(std::ostream& script) {
    for (const OptionUsage& option : Options()) {
        if (option.valueName == nullptr)
            continue;
        const char* separator = "        ";
        for (const std::string& spelling : Spellings(option)) {
            script << separator << spelling;
            separator = " | ";
        }
        script << ") echo " << option.valueName << " ;;\n";
    }
}

void WriteOptionTable(std::ostream& guide) {
    guide << "| Option | Meaning |\n| --- | --- |\n";
    for (const OptionUsage& option : Options()) {
        const char* separator = "| ";
        for (const std::string& spelling : Spellings(option)) {
            guide << separator << '`' << spelling << '`';
            separator = ", ";
        }
        if (option.valueName != nullptr)
            guide << ' ' << option.valueName;
        guide << " | " << MeaningOf(option) << (option.detail == nullptr ? "" : " ")
              << (option.detail == nullptr ? "" : option.detail) << " |\n";
    }
}

void WriteStatusTable(std::ostream& guide) {
    WriteStatuses(guide, Statuses());
}

void WriteVerificationTable(std::ostream& guide) {
    WriteStatuses(guide, VerificationStatuses());
}

void WriteVariableTable(std::ostream& guide) {
    guide << "| Variable | Setup | Meaning |\n| --- | --- | --- |\n";
    for (const VariableUsage& usage : Variables())
        guide << "| `" << usage.name << "` | " << TextOf(usage.use) << " | " << Meaning(usage)
              << " |\n";
}
