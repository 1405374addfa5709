// Fills a manual page or a completion with the tables of cv_install's usage:
//
//   hx_fill_template TEMPLATE OUTPUT
//
// A line of the template that is one of the marks below is replaced; all others are copied.
#include <cctype>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "answers/Usage.h"

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
    if (option.meaning == nullptr)
        page << "Accepted for older scripts, without any effect.\n";
    else
        WriteSentences(page, AsSentence(option.meaning));
    if (option.detail != nullptr)
        WriteSentences(page, option.detail);
}

void WriteOptionList(std::ostream& page) {
    page << ".Bl -tag -width Ds\n";
    for (const OptionUsage& option : Options())
        WriteOptionItem(page, option);
    page << ".El\n";
}

void WriteStatusList(std::ostream& page) {
    page << ".Bl -tag -width errno\n";
    for (const StatusUsage& usage : Statuses()) {
        page << ".It " << Label(usage) << '\n';
        WriteSentences(page, AsSentence(usage.meaning));
    }
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

const std::map<std::string, void (*)(std::ostream&)> marks = {
    {"@OPTION_LIST@", WriteOptionList},
    {"@STATUS_LIST@", WriteStatusList},
    {"@OPTION_WORDS@", WriteOptionWords},
    {"@VALUE_BRANCHES@", WriteValueBranches},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: hx_fill_template TEMPLATE OUTPUT\n";
        return 2;
    }
    std::ifstream from(argv[1]);
    std::ofstream to(argv[2]);
    for (std::string line; std::getline(from, line);) {
        const auto mark = marks.find(line);
        if (mark == marks.end())
            to << line << '\n';
        else
            mark->second(to);
    }
    to.close();
    if (from.bad() || !from.eof() || !to) {
        std::cerr << "hx_fill_template: cannot make " << argv[2] << " from " << argv[1] << '\n';
        return 1;
    }
    return 0;
}
