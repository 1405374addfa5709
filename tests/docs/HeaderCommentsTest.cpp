// Every name that a public header declares has a comment, above its declaration or behind it.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "docs/Texts.h"
#include "harness/TempDir.h"

namespace {

namespace fs = std::filesystem;

bool IsComment(const std::string& line) {
    return std::regex_search(line, std::regex("^ *(//|/\\*| \\*)"));
}

// Lines that declare nothing: preprocessor, access, braces, forward declarations, Qt's macros.
bool DeclaresNothing(const std::string& line) {
    static const std::regex nothing(
        R"(^ *($|#|\}|extern "C" \{|class \w+;|(public|private|protected)( Q_SLOTS)?:|Q_\w+(\(<\w+>\))?$|explicit \w+\(QObject\* parent = nullptr\);$|typedef struct \{$|.*= delete;$))");
    return std::regex_search(line, nothing);
}

bool EndsDeclaration(const std::string& line) {
    static const std::regex end(R"([;{}] *(//.*|/\*.*)?$|= -?[0-9]+,? *(/\*.*)?$)");
    return std::regex_search(line, end);
}

// The first lines of declarations in `header` without a comment.
std::vector<std::string> Uncommented(const std::string& header) {
    std::vector<std::string> found;
    bool commentAbove = false;
    std::string first;  // of a declaration that goes on
    bool commented = false;
    bool isPrivate = false;
    for (const std::string& line : hx_docs::Lines(header)) {
        if (line.find("private") == 0)
            isPrivate = true;
        if (line.find("public") == 0)
            isPrivate = false;
        if (first.empty() && (IsComment(line) || DeclaresNothing(line))) {
            commentAbove = IsComment(line);
            continue;
        }
        if (first.empty()) {
            first = line;
            commented = commentAbove;
        }
        commented = commented || line.find(" // ") != std::string::npos ||
                    line.find("/* ") != std::string::npos;
        if (!EndsDeclaration(line))
            continue;
        if (!commented && !isPrivate)
            found.push_back(first);
        first.clear();
        commentAbove = false;
    }
    return found;
}

TEST(PublicHeaders, ExplainEveryNameThatTheyDeclare) {
    size_t headers = 0;
    for (const auto& entry : fs::recursive_directory_iterator(HX_SOURCE "/src")) {
        if (entry.path().extension() != ".h" || entry.path().filename() == "hx_export.h")
            continue;
        const std::string header = hx_test::ReadFile(entry.path());
        if (header.find("HX_EXPORT") == std::string::npos)
            continue;
        ++headers;
        for (const std::string& line : Uncommented(header))
            ADD_FAILURE() << entry.path().filename() << " does not explain\n" << line;
    }
    EXPECT_GE(headers, 13U);
}

TEST(PublicHeaders, ADeclarationWithoutACommentIsFound) {
    const std::vector<std::string> found = Uncommented(
        "/* A file. */\n#include <a>\n\n/* Above. */\nint a(int x,\n      int y);\nint b();\n"
        "int c;  // behind\nint d = 0;\n// A class.\nclass E {\npublic:\n    void f();\n};\n");
    EXPECT_EQ(found, (std::vector<std::string>{"int b();", "int d = 0;", "    void f();"}));
}

}  // namespace
