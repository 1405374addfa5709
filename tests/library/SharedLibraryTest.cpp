// The library's file: what it exports, how it is named and where it looks for other libraries.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "harness/Process.h"
#include "harness/TempDir.h"

namespace {

const std::string library = HX_PRODUCT_DIR "/libHXInstallBase.so.26";

using Lines = std::set<std::string>;

Lines LinesOf(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

TEST(SharedLibrary, ExportsWhatIsListedAndNothingElse) {
    const auto nm = hx_test::Run({"nm", "--dynamic", "--defined-only", "--demangle", library});
    ASSERT_EQ(nm.status, 0) << nm.err;
    Lines exported;
    const size_t nameColumn = std::string("0123456789abcdef T ").size();
    for (const std::string& line : LinesOf(nm.out))
        exported.insert(line.substr(nameColumn));
    EXPECT_EQ(exported, LinesOf(hx_test::ReadFile(HX_EXPECTED_DIR "/exported_symbols.txt")));
}

TEST(SharedLibrary, IsNamedByItsSoname) {
    const auto readelf = hx_test::Run({"readelf", "--dynamic", library});
    EXPECT_NE(readelf.out.find("Library soname: [libHXInstallBase.so.26]"), std::string::npos);
}

TEST(SharedLibrary, FindsTheLibrariesBesideItAndTheProductsQt) {
    for (const char* file : {"/libHXInstallBase.so.26", "/cv_install"}) {
        const auto readelf =
            hx_test::Run({"readelf", "--dynamic", std::string(HX_PRODUCT_DIR) + file});
        EXPECT_NE(readelf.out.find("[$ORIGIN:$ORIGIN/ssl-compat:$ORIGIN/Qt-6.5/lib]"),
                  std::string::npos)
            << file;
    }
}

TEST(SharedLibrary, LoadsWithoutStaticConstructors) {
    const auto nm = hx_test::Run({"nm", library});
    ASSERT_NE(nm.out.find("g_hx_gui_installer"), std::string::npos) << nm.err;
    EXPECT_EQ(nm.out.find("_GLOBAL__sub_I"), std::string::npos);
}

TEST(SetupProgram, KnowsNoApplicationObject) {
    const auto nm = hx_test::Run({"nm", "--dynamic", "--demangle", HX_PRODUCT_DIR "/cv_install"});
    ASSERT_NE(nm.out.find("CInstallBase::CInstallBase"), std::string::npos) << nm.err;
    EXPECT_EQ(nm.out.find("QCoreApplication"), std::string::npos);
}

}  // namespace
