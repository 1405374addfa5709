#include "docs/Texts.h"

#include <gtest/gtest.h>

#include <sstream>

#include "apps/UserSetup.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"

namespace hx_docs {

using hx_test::AllMatches;
using hx_test::Match;

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

std::string HelpOfSetup() {
    const auto help = UserSetup().Run({"--help"});
    EXPECT_EQ(help.status, 0) << help.err;
    return help.out;
}

std::set<std::string> OptionsOfHelp(const std::string& help) {
    std::set<std::string> options;
    for (const Match& line : AllMatches(help, "\n  ((?:--?[a-z-]+, )*--[a-z-]+)(?= )")) {
        for (const Match& option : AllMatches(line[1], "(-[-a-z]+)"))
            options.insert(option[1]);
    }
    return options;
}

std::set<std::string> OptionsOfRunScript() {
    const std::string script = hx_test::ReadFile(HX_PRODUCT_DIR "/corvane26.template");
    std::set<std::string> options;
    for (const Match& branch : AllMatches(script, "\n *(-[-|A-Za-z]+)\\)")) {
        for (const Match& option : AllMatches(branch[1], "(-[-A-Za-z]+)"))
            options.insert(option[1]);
    }
    return options;
}

}  // namespace hx_docs
