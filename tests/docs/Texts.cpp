#include "docs/Texts.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "apps/UserSetup.h"
#include "harness/TempDir.h"

namespace hx_docs {

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string Between(const std::string& text, const std::string& from, const std::string& to) {
    const size_t start = text.find(from);
    if (start == std::string::npos)
        return {};
    const size_t first = start + from.size();
    return text.substr(first, text.find(to, first) - first);
}

std::vector<std::string> Matches(const std::string& text, const std::string& pattern) {
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
         ++match)
        found.push_back((*match)[1]);
    return found;
}

std::string HelpOfSetup() {
    const auto help = UserSetup().Run({"--help"});
    EXPECT_EQ(help.status, 0) << help.err;
    return help.out;
}

std::set<std::string> OptionsOfHelp(const std::string& help) {
    std::set<std::string> options;
    for (const std::string& line : Matches(help, "\n  ((?:-[a-z]+, )*--[a-z-]+)(?= )")) {
        for (const std::string& option : Matches(line, "(-[-a-z]+)"))
            options.insert(option);
    }
    return options;
}

std::set<std::string> OptionsOfRunScript() {
    const std::string script = hx_test::ReadFile(HX_PRODUCT_DIR "/corvane26.template");
    std::set<std::string> options;
    for (const std::string& branch : Matches(script, "\n *(-[-|A-Za-z]+)\\)")) {
        for (const std::string& option : Matches(branch, "(-[-A-Za-z]+)"))
            options.insert(option);
    }
    return options;
}

}  // namespace hx_docs
