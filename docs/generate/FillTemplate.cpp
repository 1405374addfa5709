// Fills a text with tables of cv_install, such as its options and what it installs:
//
//   hx_fill_template TEMPLATE OUTPUT
//
// A line of the template that consists of one of the marks below is replaced, with the indentation
// of the mark. In a guide, the lines between "<!-- table NAME -->" and "<!-- end -->" are replaced,
// so that a filled guide is a template again. All other lines are copied.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "generate/Texts.h"

namespace {

using Writer = void (*)(std::ostream&);

const std::map<std::string, Writer> marks = {
    {"@CRONTABS@", WriteCrontabs},
    {"@LOG_PATH@", WriteLogPath},
    {"@OPTION_LIST@", WriteOptionList},
    {"@OPTION_WORDS@", WriteOptionWords},
    {"@PRIVATE_PARENTS@", WritePrivateParents},
    {"@QUEUE_COMMANDS@", WriteQueueCommands},
    {"@QUEUE_VARIABLES@", WriteQueueVariables},
    {"@REMOVAL_SETTINGS@", WriteRemovalSettings},
    {"@SET_UP_ELSEWHERE@", WriteElsewhereTest},
    {"@REMOVED_FILES@", WriteRemovedFiles},
    {"@REMOVED_LINKS@", WriteRemovedLinks},
    {"@PURGED_FILES@", WritePurgedFiles},
    {"@STATUS_LIST@", WriteStatusList},
    {"@UPGRADE_SETTINGS@", WriteUpgradeSettings},
    {"@VALUE_BRANCHES@", WriteValueBranches},
    {"@VARIABLE_LIST@", WriteVariableList},
    {"@VERIFICATION_LIST@", WriteVerificationList},
};

const std::map<std::string, Writer> tables = {
    {"<!-- table elsewhere -->", WriteElsewhereTable},
    {"<!-- table options -->", WriteOptionTable},
    {"<!-- table statuses -->", WriteStatusTable},
    {"<!-- table tree -->", WriteTreeTable},
    {"<!-- table variables -->", WriteVariableTable},
    {"<!-- table verification -->", WriteVerificationTable},
};

constexpr const char* tableEnd = "<!-- end -->";

// Returns false when the table has no end.
bool SkipOldTable(std::istream& from) {
    for (std::string line; std::getline(from, line);) {
        if (line == tableEnd)
            return true;
    }
    return false;
}

// A line that looks like a mark but is none. A line with spaces is of a unified diff.
bool IsUnknownMark(const std::string& line) {
    return (line.size() > 2 && line.front() == '@' && line.back() == '@' &&
            line.find(' ') == std::string::npos) ||
           (line.starts_with("<!-- table ") && !tables.contains(line));
}

// Each line gets the indentation of the mark.
void WriteIndented(std::ostream& to, Writer writer, const std::string& indentation) {
    std::stringstream text;
    writer(text);
    for (std::string line; std::getline(text, line);)
        to << indentation << line << '\n';
}

// Returns false when a mark is unknown or a table has no end.
bool Fill(std::istream& from, std::ostream& to) {
    for (std::string line; std::getline(from, line);) {
        const std::string indentation(std::min(line.find_first_not_of(' '), line.size()), ' ');
        const std::string text = line.substr(indentation.size());
        if (const auto mark = marks.find(text); mark != marks.end()) {
            WriteIndented(to, mark->second, indentation);
            continue;
        }
        if (IsUnknownMark(text))
            return false;
        to << line << '\n';
        if (const auto table = tables.find(line); table != tables.end()) {
            table->second(to);
            if (!SkipOldTable(from))
                return false;
            to << tableEnd << '\n';
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: hx_fill_template TEMPLATE OUTPUT\n";
        return 2;
    }
    std::ifstream from(argv[1]);
    std::ofstream to(argv[2]);
    const bool filled = Fill(from, to);
    to.close();
    if (!filled || from.bad() || !from.eof() || !to) {
        std::cerr << "hx_fill_template: cannot write " << argv[2] << " from " << argv[1] << '\n';
        return 1;
    }
    return 0;
}
