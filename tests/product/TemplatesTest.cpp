// The templates as a setup finds them, and what instantiating leaves.
#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "product/RunScript.h"

namespace hx_test {
namespace {

std::set<std::string> PlaceholdersOf(const std::string& text) {
    static const std::regex placeholder("%([A-Za-z_][A-Za-z0-9_]*)%");
    std::set<std::string> names;
    for (std::sregex_iterator it(text.begin(), text.end(), placeholder), end; it != end; ++it)
        names.insert((*it)[1]);
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

TEST(Templates, TheMainTemplateUsesEveryPlaceholderAndNoOther) {
    const std::set<std::string> placeholders = {
        "CORV_ROOT",
        "CORV_CORVANERC",
        "CORV_CLUSTER_NODE",
        "CORV_QUEUE_ALLOW",
        "CORV_SCHEDULER",
        "CORV_QUEUE_TYPE",
        "CORV_QUEUE_NAME",
        "CORV_QSUB_CMD",
        "CORV_QDEL_CMD",
        "CORV_QSIG_CMD",
        "CORV_PARTITION_NAME",
        "CORV_SBATCH_CMD",
        "CORV_SCANCEL_CMD",
        "CORV_COMPSRVC_ALLOW",
        "CORV_COMPSRVC_HTTP_PORT",
        "CORV_COMPSRVC_HTTP_ADDR",
        "CORV_COMPSRVC_HTTPS_PORT",
        "CORV_COMPSRVC_HTTPS_ADDR",
        "CORV_COMPSRVC_CERT",
        "CORV_COMPSRVC_KEY",
        "CORV_COMPSRVC_DH",
        "CORV_COMPSRVC_GROUP",
        "CORV_COMPSRVC_USER",
    };
    EXPECT_EQ(placeholders.size(), 23U);
    EXPECT_EQ(PlaceholdersOf(ReadFile(kMainTemplate)), placeholders);
}

TEST(Templates, TheSnapshotTemplateUsesTheTwoPathsOnly) {
    const std::set<std::string> paths = {"CORV_ROOT", "CORV_CORVANERC"};
    EXPECT_EQ(PlaceholdersOf(ReadFile(kSnapshotTemplate)), paths);
}

TEST(Templates, EveryPlaceholderStandsWithinDoubleQuotes) {
    ExpectPlaceholdersWithinDoubleQuotes(ReadFile(kMainTemplate));
    ExpectPlaceholdersWithinDoubleQuotes(ReadFile(kSnapshotTemplate));
}

TEST(Templates, InstantiatingLeavesNoPlaceholder) {
    const Installation installation("plain");
    const Variables values = installation.Placeholders();
    for (const char* path : {kMainTemplate, kSnapshotTemplate}) {
        const std::string script = ReadFile(installation.Instantiate(path, values));
        EXPECT_NE(script.find(installation.root()), std::string::npos) << path;
        EXPECT_EQ(PlaceholdersOf(script), std::set<std::string>{}) << path;
    }
}

TEST(Templates, ShellcheckFindsNothingInTheTemplates) {
    if (!Installed("shellcheck"))
        GTEST_SKIP() << "shellcheck is not installed";
    ExpectCleanForShellcheck(kMainTemplate);
    ExpectCleanForShellcheck(kSnapshotTemplate);
}

TEST(Templates, ShellcheckFindsNothingInTheRunScripts) {
    if (!Installed("shellcheck"))
        GTEST_SKIP() << "shellcheck is not installed";
    const Installation installation("Corvane 26  für Zürich");
    for (const char* path : {kMainTemplate, kSnapshotTemplate})
        ExpectCleanForShellcheck(installation.Instantiate(path, installation.Placeholders()));
}

TEST(Templates, TheRunScriptsStartByThemselves) {
    const Installation installation("plain");
    const std::string script = installation.Instantiate(kMainTemplate, installation.Placeholders());
    EXPECT_EQ(hx_test::Run({script, "--submit", "a b"}).out,
              Lines({installation.Program("cv_spd"), "-u", "a b"}));
    const std::string snapshot =
        installation.Instantiate(kSnapshotTemplate, installation.Placeholders());
    EXPECT_EQ(hx_test::Run({snapshot, "a b"}).out,
              Lines({installation.Program("cv_snapshot"), "a b"}));
}

}  // namespace
}  // namespace hx_test
