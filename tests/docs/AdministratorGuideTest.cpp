// The administrator's guide: its options, statuses, questions and messages are the programs' own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <regex>

#include "docs/Sources.h"
#include "docs/Texts.h"
#include "harness/Child.h"
#include "harness/TempDir.h"

namespace {

std::string Guide() {
    return hx_test::ReadFile(HX_DOCS "/administrator.md");
}

std::string Section(const std::string& title) {
    return hx_docs::Between(Guide(), "\n## " + title + "\n", "\n## ");
}

// The first cells of a text's tables.
std::vector<std::string> FirstCells(const std::string& text) {
    return hx_docs::Matches(text, "\n\\| ([^|]*) \\|");
}

TEST(AdministratorGuide, ListsTheOptionsOfTheHelp) {
    HX_REQUIRE_NAMESPACES();
    std::set<std::string> options = hx_docs::OptionsOfHelp(hx_docs::HelpOfSetup());
    EXPECT_GT(options.size(), 15U);
    options.insert({"-c", "-cd", "--cd-install", "-cli", "--cli", "-gui", "--gui"});
    std::set<std::string> listed;
    for (const std::string& cell : FirstCells(Section("Options"))) {
        for (const std::string& option : hx_docs::Matches(cell, "`(-[-a-z]+)`"))
            listed.insert(option);
    }
    EXPECT_EQ(listed, options);
}

TEST(AdministratorGuide, ListsTheStatusesOfTheHelp) {
    HX_REQUIRE_NAMESPACES();
    const auto statuses = hx_docs::StatusesOfHelp(hx_docs::HelpOfSetup());
    EXPECT_GT(statuses.size(), 10U);
    std::string table = "\n| Status | Meaning |\n| --- | --- |\n";
    for (const auto& [status, meaning] : statuses)
        table += "| " + status + " | " + meaning + " |\n";
    EXPECT_NE(Section("Exit statuses").find(table + "<!-- end -->\n"), std::string::npos) << table;
}

// Blanks and line ends alike, and without the quotes that frame what is set in.
std::string Normal(const std::string& text) {
    std::string normal;
    for (const char character : text) {
        if (character == '"')
            continue;
        const bool blank = std::isspace(static_cast<unsigned char>(character)) != 0;
        if (!blank)
            normal += character;
        else if (!normal.ends_with(' '))
            normal += ' ';
    }
    return normal;
}

// All that the programs can say, one text a line.
std::string Said() {
    std::string said;
    for (const std::string& text : hx_docs::SourceTexts())
        said += Normal(text) + '\n';
    for (const std::string& line : hx_docs::CommitScriptLines())
        said += Normal(line) + '\n';
    return said;
}

// `quoted` shows what is set in as three dots.
void ExpectSaid(const std::string& quoted, const std::string& said) {
    static const std::regex gap("\\.\\.\\.");
    const std::string text = Normal(quoted);
    for (std::sregex_token_iterator piece(text.begin(), text.end(), gap, -1), end; piece != end;
         ++piece)
        EXPECT_NE(said.find(*piece), std::string::npos) << *piece << " in " << quoted;
}

TEST(AdministratorGuide, ContainsTablesOfCvInstall) {
    EXPECT_EQ(hx_test::ReadFile(HX_DOCS "/administrator.md"),
              hx_test::ReadFile(HX_BUILT_DOCS "/administrator.md"))
        << "To update the guide, copy docs/administrator.md of the build directory.";
}

TEST(AdministratorGuide, QuotesMessagesThatTheProgramsSay) {
    const std::string said = Said();
    size_t count = 0;
    for (const std::string& cell : FirstCells(Section("Troubleshooting by message"))) {
        for (const std::string& message : hx_docs::Matches(cell, "`([^`]+)`")) {
            ExpectSaid(message, said);
            ++count;
        }
    }
    EXPECT_GT(count, 60U);
}

TEST(AdministratorGuide, QuotesTheQuestions) {
    const std::string said = Said();
    size_t count = 0;
    for (const std::string& cell : FirstCells(Section("Questions"))) {
        for (const std::string& question : hx_docs::Matches(cell, "`([^`]+[:.])`")) {
            // These words are set in.
            ExpectSaid(
                std::regex_replace(question, std::regex("Queue|Partition|qsub|sbatch"), "..."),
                said);
            ++count;
        }
    }
    EXPECT_GE(count, 10U);
}

// What tells a message from others: the longest piece between what is set in, without the reason or
// the advice that follows it.
std::string Telling(const std::string& message) {
    const std::vector<std::string> pieces = hx_docs::FixedPieces(Normal(message));
    const std::string longest = *std::max_element(
        pieces.begin(), pieces.end(),
        [](const auto& one, const auto& other) { return one.size() < other.size(); });
    const size_t start = longest.find_first_not_of(' ');
    const size_t end = std::min(longest.find(": ", start + 12), longest.find(". ", start + 12));
    const std::string telling = longest.substr(start, end - start);
    return telling.substr(0, telling.find_last_not_of(' ') + 1);
}

// Every failure that the setup, the library, the commit script and the service program can tell.
std::vector<std::string> Failures() {
    static const std::regex failure(
        "^ *(cv_install: [^%]|Unable to |Writing Commit Script: |Value entered|Error, can't|"
        "is (a symbolic|neither|not )|has a second|cannot be found|may not be|it holds |"
        "unknown argument|an account name)|Aborting$|unlink failed|needs a |Invalid choice");
    std::vector<std::string> failures;
    for (const std::string& text : hx_docs::SourceTexts()) {
        for (const std::string& line : hx_docs::Lines(text.substr(0, 400))) {
            if (line.find("ECHO_CMD") == std::string::npos && std::regex_search(line, failure))
                failures.push_back(line);
        }
        for (const std::string& message :
             hx_docs::Matches(text.substr(0, 400), "corvane: (Error, [^\n\"\\\\']+)"))
            failures.push_back(message);
    }
    for (const std::string& line : hx_docs::CommitScriptLines()) {
        for (const std::string& message : hx_docs::Matches(line, "\"(Error, [^\"]+)\""))
            failures.push_back(message);
    }
    const std::string program = hx_test::ReadFile(HX_PRODUCT_SOURCES "/corvane26_service_script");
    for (const std::string& message :
         hx_docs::Matches(program, "\"([^\"\n]*[a-z]+ [a-z]+[^\"\n]*)\"\n"))
        failures.push_back(message);
    return failures;
}

TEST(AdministratorGuide, TellsOfEveryFailure) {
    const std::string section = Normal(Section("Troubleshooting by message"));
    const std::vector<std::string> failures = Failures();
    EXPECT_GT(failures.size(), 70U);
    for (const std::string& failure : failures)
        EXPECT_NE(section.find(Telling(failure)), std::string::npos)
            << Telling(failure) << " of " << failure;
}

}  // namespace
