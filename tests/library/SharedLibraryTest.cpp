// The library's file: its binary interface, its name, and where it searches for other libraries.
#include <gtest/gtest.h>

#include <string>

#include "commit/CCommitScript.h"
#include "harness/Expect.h"
#include "harness/Process.h"
#include "harness/TempDir.h"
#include "probes/CDfProcess.h"
#include "services/CInitService.h"
#include "services/CSystemdService.h"

namespace {

const std::string library = HX_PRODUCT_DIR "/libHXInstallBase.so.26";

std::string Output(const std::vector<std::string>& command) {
    const auto run = hx_test::Run(command);
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
}

TEST(SharedLibrary, KeepsItsBinaryInterface) {
#if !defined(__x86_64__) || defined(HX_TEST_KEEP_MALLOC)
    GTEST_SKIP() << "the expected interface is that of an x86-64 build without a sanitizer";
#endif
    if (hx_test::Run({"gdb", "--version"}).status != 0)
        GTEST_SKIP() << "gdb is not installed";
    const hx_test::TempDir directory;
    hx_test::WriteFile(directory / "interface.txt", Output({"gdb", "--batch", "--nx", "--command",
                                                            HX_INTERFACE_SCRIPT, library}));
    const auto diff = hx_test::Run(
        {"diff", "--unified=0", HX_EXPECTED_DIR "/interface.txt", directory / "interface.txt"});
    EXPECT_EQ(diff.status, 0) << diff.out << diff.err
                              << "If the change is intended, run scripts/abi-baseline.";
}

TEST(SharedLibrary, HasItsSoname) {
    hx_test::ExpectHolds(Output({"readelf", "--dynamic", library}),
                         "Library soname: [libHXInstallBase.so.26]");
}

TEST(SharedLibrary, SearchesTheProductDirectoryForLibraries) {
    for (const std::string& file : {library, std::string(HX_PRODUCT_DIR "/cv_install")})
        hx_test::ExpectHolds(Output({"readelf", "--dynamic", file}),
                             "[$ORIGIN:$ORIGIN/ssl-compat:$ORIGIN/Qt-6.5/lib]");
}

TEST(SharedLibrary, LoadsWithoutStaticConstructors) {
    const std::string symbols = Output({"nm", library});
    hx_test::ExpectHolds(symbols, "g_hx_gui_installer");
    EXPECT_EQ(symbols.find("_GLOBAL__sub_I"), std::string::npos);
}

TEST(SetupProgram, UsesNoApplicationObject) {
    const std::string symbols =
        Output({"nm", "--dynamic", "--demangle", HX_PRODUCT_DIR "/cv_install"});
    hx_test::ExpectHolds(symbols, "CInstallBase::CInstallBase");
    EXPECT_EQ(symbols.find("QCoreApplication"), std::string::npos);
}

template <typename Class>
void ExpectNoMetaObjectEntries(const char* name) {
    const QMetaObject& meta = Class::staticMetaObject;
    EXPECT_STREQ(meta.className(), name);
    EXPECT_EQ(meta.superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
    EXPECT_EQ(meta.classInfoCount(), meta.classInfoOffset());
    EXPECT_EQ(meta.constructorCount(), 0);
    const Class object(nullptr);
    EXPECT_EQ(object.metaObject(), &meta);
}

TEST(MetaObjects, AddNothingToQProcess) {
    ExpectNoMetaObjectEntries<CCommitScript>("CCommitScript");
    ExpectNoMetaObjectEntries<CDfProcess>("CDfProcess");
    ExpectNoMetaObjectEntries<CInitService>("CInitService");
    ExpectNoMetaObjectEntries<CSystemdService>("CSystemdService");
}

}  // namespace
