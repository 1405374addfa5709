// The templates of the run scripts, and the scripts that a setup creates from them.
#include <algorithm>
#include <set>
#include <sstream>

#include "harness/Pattern.h"
#include "product/Installation.h"

namespace hx_test {
namespace {

std::set<std::string> PlaceholdersOf(const std::string& text) {
    std::set<std::string> names;
    for (const Match& match : AllMatches(text, "%([A-Za-z_][A-Za-z0-9_]*)%"))
        names.insert(match[1]);
    return names;
}

void ExpectPlaceholdersWithinDoubleQuotes(const std::string& text) {
    std::istringstream lines(text);
    int found = 0;
    for (std::string line; std::getline(lines, line);) {
        for (size_t at = line.find("%CORV_"); at != std::string::npos;
             at = line.find("%CORV_", line.find('%', at + 1) + 1)) {
            ++found;
            const auto end = line.begin() + static_cast<std::ptrdiff_t>(at);
            EXPECT_EQ(std::count(line.begin(), end, '"') % 2, 1) << line;
        }
    }
    EXPECT_GT(found, 0);
}

void ExpectCleanForShellcheck(const std::string& path) {
    const ProcessResult result = hx_test::Run({"shellcheck", "--norc", "--shell=sh", path});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Templates, UseAllPlaceholdersOfTheirScript) {
    const std::set<std::string> paths = {"CORV_ROOT", "CORV_CORVANERC"};
    std::set<std::string> placeholders;
    for (const auto& [name, value] : Installation(plainDirectory).Placeholders())
        placeholders.insert(name);
    EXPECT_EQ(placeholders.size(), 23U);
    EXPECT_EQ(PlaceholdersOf(ReadFile(mainTemplate)), placeholders);
    EXPECT_EQ(PlaceholdersOf(ReadFile(snapshotTemplate)), paths);
}

TEST(Templates, QuotePlaceholders) {
    ExpectPlaceholdersWithinDoubleQuotes(ReadFile(mainTemplate));
    ExpectPlaceholdersWithinDoubleQuotes(ReadFile(snapshotTemplate));
}

TEST(Templates, HaveNoPlaceholderAfterInstantiation) {
    const Installation installation(plainDirectory);
    const Variables values = installation.Placeholders();
    for (const char* path : {mainTemplate, snapshotTemplate}) {
        const std::string script = ReadFile(installation.Instantiate(path, values));
        EXPECT_NE(script.find(installation.Root()), std::string::npos) << path;
        EXPECT_EQ(PlaceholdersOf(script), std::set<std::string>{}) << path;
    }
}

TEST(Templates, PassShellcheck) {
    if (!Installed("shellcheck"))
        GTEST_SKIP() << "shellcheck is not installed";
    const Installation installation(directoryWithSpaces);
    for (const char* path : {mainTemplate, snapshotTemplate}) {
        ExpectCleanForShellcheck(path);
        ExpectCleanForShellcheck(installation.Instantiate(path, installation.Placeholders()));
    }
}

TEST(Templates, StartWithTheirInterpreter) {
    const Installation installation(plainDirectory);
    const Variables values = installation.Placeholders();
    EXPECT_EQ(hx_test::Run({installation.Instantiate(mainTemplate, values), "--submit", "a b"}).out,
              Lines({installation.Program("cv_spd"), "-u", "a b"}));
    EXPECT_EQ(hx_test::Run({installation.Instantiate(snapshotTemplate, values), "a b"}).out,
              Lines({installation.Program("cv_snapshot"), "a b"}));
}

}  // namespace
}  // namespace hx_test
