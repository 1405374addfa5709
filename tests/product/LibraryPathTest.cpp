// The library search path of both run scripts.
#include "product/RunScript.h"

namespace hx_test {
namespace {

class LibraryPath : public RunScriptTest {
protected:
    void SetUp() override {
        RunScriptTest::SetUp();
        Installation::AddProgram(installation.Program("cv_snapshot"),
                                 "#!/bin/sh\nprintf '<%s>' \"$LD_LIBRARY_PATH\"\n");
    }

    // Both scripts give the snapshot program this path.
    void ExpectPath(const Variables& env, const std::string& expected) const {
        EXPECT_EQ(RunScript(main, {"--snapshot"}, env).out, "<" + expected + ">");
        EXPECT_EQ(RunScript(snapshot, {}, env).out, "<" + expected + ">");
    }

    const Variables values = installation.Placeholders();
    std::string main = installation.Instantiate(kMainTemplate, values);
    std::string snapshot = installation.Instantiate(kSnapshotTemplate, values);
    std::string qt = installation.root() + "/Qt-6.5/lib";
    std::string product = installation.root() + ":" + installation.root() + "/ssl-compat:" + qt;
};

TEST_P(LibraryPath, IsTheProductsWhenTheCallerHasNone) {
    ExpectPath({}, product);
    ExpectPath({{"LD_LIBRARY_PATH", ""}}, product);
}

TEST_P(LibraryPath, PutsTheProductBeforeTheCallersPath) {
    ExpectPath({{"LD_LIBRARY_PATH", "/opt/mpi lib:/opt/größe"}},
               product + ":/opt/mpi lib:/opt/größe");
}

TEST_P(LibraryPath, IsTheUsersBehindQtWithOverridesOn) {
    ExpectPath({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", "/my lib:/more"}},
               qt + ":/my lib:/more");
}

TEST_P(LibraryPath, TheUsersReplacesTheCallersToo) {
    ExpectPath({{"CORV_USER_OVERRIDE", "YES"},
                {"CORV_USER_LD_PATH", "/my lib"},
                {"LD_LIBRARY_PATH", "/callers"}},
               qt + ":/my lib");
}

TEST_P(LibraryPath, AnEmptyUserPathReplacesNothing) {
    ExpectPath(
        {{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", ""}, {"LD_LIBRARY_PATH", "/callers"}},
        product + ":/callers");
}

TEST_P(LibraryPath, TheUsersPathNeedsOverridesOn) {
    for (const char* word : {"", "yes", "NO"})
        ExpectPath({{"CORV_USER_OVERRIDE", word},
                    {"CORV_USER_LD_PATH", "/my lib"},
                    {"LD_LIBRARY_PATH", "/callers"}},
                   product + ":/callers");
}

TEST_P(LibraryPath, NeverHoldsAnEmptyComponent) {
    for (const char* path : {":/a:/b", "/a:/b:", "/a::/b", "::/a:::/b::"}) {
        ExpectPath({{"LD_LIBRARY_PATH", path}}, product + ":/a:/b");
        ExpectPath({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", path}}, qt + ":/a:/b");
    }
    ExpectPath({{"LD_LIBRARY_PATH", ":"}}, product);
    ExpectPath({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", ":"}}, qt);
}

TEST_P(LibraryPath, TakesTheCallersCharactersAsTheyAre) {
    for (const char* path : {"/*", "/a%s", "/a\\n", "-n", "/ two  blanks "})
        ExpectPath({{"LD_LIBRARY_PATH", path}}, product + ":" + path);
}

INSTANTIATE_TEST_SUITE_P(On, LibraryPath, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
