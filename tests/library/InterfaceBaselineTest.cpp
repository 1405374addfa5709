// The whole binary interface against the one that was taken down with scripts/abi-baseline.
#include <gtest/gtest.h>

#include <string>

#include "harness/Process.h"
#include "harness/TempDir.h"

namespace {

const std::string baseline = HX_EXPECTED_DIR "/HXInstallBase.abi";

// Status 0: equal; 4: changed; 12: changed so that callers break.
hx_test::ProcessResult Compare(const std::string& before, const std::string& after) {
    return hx_test::Run({"abidiff", before, after});
}

class InterfaceBaseline : public testing::Test {
protected:
    void SetUp() override {
#if !defined(__x86_64__) || defined(HX_TEST_KEEP_MALLOC)
        GTEST_SKIP() << "the baseline is of a plain build for x86-64";
#endif
        if (hx_test::Run({"abidiff", "--version"}).status != 0)
            GTEST_SKIP() << "abidiff is not installed";
    }
};

TEST_F(InterfaceBaseline, IsThatOfTheLibrary) {
    const auto abidiff = Compare(baseline, HX_PRODUCT_DIR "/libHXInstallBase.so.26");
    EXPECT_EQ(abidiff.status, 0) << abidiff.out << abidiff.err
                                 << "If the change is meant, run scripts/abi-baseline.";
}

TEST_F(InterfaceBaseline, WouldTellAChangedSize) {
    std::string text = hx_test::ReadFile(baseline);
    const std::string size = "<class-decl name='CInstallBase' size-in-bits='5568'";
    const size_t at = text.find(size);
    ASSERT_NE(at, std::string::npos);
    text.replace(at, size.size(), "<class-decl name='CInstallBase' size-in-bits='5632'");
    const hx_test::TempDir directory;
    const std::string changed = directory / "changed.abi";
    hx_test::WriteFile(changed, text);
    const auto abidiff = Compare(changed, baseline);
    EXPECT_EQ(abidiff.status, 12) << abidiff.err;
    EXPECT_NE(abidiff.out.find("type size changed from 5632 to 5568"), std::string::npos)
        << abidiff.out;
}

}  // namespace
