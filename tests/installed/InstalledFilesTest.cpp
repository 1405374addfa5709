// The files of an installation, which can be moved.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "harness/Pattern.h"
#include "installed/InstalledTree.h"

namespace {

using Files = std::set<std::string>;

const Files productFiles = {"corvane26.template 644",
                            "corvane26_service.template 644",
                            "corvane26_service_script 755",
                            "corvane26_snapshot.template 644",
                            "cv_install 755",
                            "docroot/icons.tar 644",
                            "docroot/resources.tar 644",
                            "libHXInstallBase.so.26 644"};
const Files developersLink = {"libHXInstallBase.so -> libHXInstallBase.so.26"};

TEST(InstalledFiles, FillProductDirectory) {
    Files expected = productFiles;
    expected.insert(developersLink.begin(), developersLink.end());
    EXPECT_EQ(InstalledTree::Moved().Files("lib/corvane26"), expected);
}

TEST(InstalledFiles, IncludeHeadersInTheirDirectories) {
    EXPECT_EQ(
        InstalledTree::Moved().Files("include"),
        (Files{"HXInstallBase/bigint/mp_int.h 644", "HXInstallBase/commit/CCommitScript.h 644",
               "HXInstallBase/commit/EarlierServices.h 644", "HXInstallBase/net/CHttpCLI.h 644",
               "HXInstallBase/probes/CDfProcess.h 644", "HXInstallBase/probes/cpu_memory.h 644",
               "HXInstallBase/probes/processor_identity.h 644",
               "HXInstallBase/services/CInitService.h 644",
               "HXInstallBase/services/CSystemdService.h 644",
               "HXInstallBase/setuprun/CInstallBase.h 644",
               "HXInstallBase/setuprun/CQueueLimits.h 644",
               "HXInstallBase/setuprun/Environment.h 644",
               "HXInstallBase/setuprun/QueueLimitsKeys.h 644",
               "HXInstallBase/setuprun/Schedulers.h 644", "HXInstallBase/support/COSRelease.h 644",
               "HXInstallBase/support/HXfgets.h 644", "HXInstallBase/support/hx_export.h 644",
               "HXInstallBase/support/storeFile.h 644"}));
}

TEST(InstalledFiles, AreSplitIntoComponents) {
    const InstalledTree runtime(InstalledTree::Way::Runtime);
    EXPECT_EQ(runtime.Files("lib/corvane26"), productFiles);
    EXPECT_EQ(runtime.Files("include"), Files());
    EXPECT_EQ(runtime.Files("lib").size(), productFiles.size());
    const InstalledTree development(InstalledTree::Way::Development);
    EXPECT_EQ(development.Files("lib/corvane26"), developersLink);
    EXPECT_FALSE(development.Files("include").empty());
}

TEST(InstalledFiles, ContainNoAbsolutePath) {
    const InstalledTree& tree = InstalledTree::Moved();
    int texts = 0;
    for (const std::string& directory : {tree.CMakePackage(), tree.PkgConfig()}) {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            const std::string text = hx_test::ReadFile(entry.path());
            for (const std::string& place : {std::string(HX_BUILD_DIR), std::string(HX_SOURCE_DIR),
                                             tree.PrefixWhenInstalled()})
                EXPECT_EQ(text.find(place), std::string::npos)
                    << entry.path() << " contains " << place;
            ++texts;
        }
    }
    EXPECT_GE(texts, 6);
}

TEST(InstalledFiles, IncludeTargetsOfLinksInDocuments) {
    int links = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(InstalledTree::Moved().Path("share/doc"))) {
        if (entry.path().extension() != ".md")
            continue;
        const std::string text = hx_test::ReadFile(entry.path());
        const std::string link = R"re(\]\(([^)#]+)[^)]*\)|`(examples/[a-z_/.]+)`)re";
        for (const hx_test::Match& match : hx_test::AllMatches(text, link)) {
            const std::string target = match[1] + match[2];
            // The example is in two places.
            if (target == "examples/consumer/")
                continue;
            EXPECT_TRUE(std::filesystem::exists(entry.path().parent_path() / target))
                << entry.path() << ": " << target;
            ++links;
        }
    }
    EXPECT_GE(links, 6);
}

// Runs the command of the guide.
TEST(InstalledFiles, AreRemovedByManifest) {
    const hx_test::TempDir directory;
    RunWell({HX_CMAKE, "--install", HX_BUILD_DIR, "--prefix", directory / "prefix"},
            {.unset = {"DESTDIR"}});
    RunWell({"sh", "-c", "xargs --delimiter='\\n' rm < " HX_BUILD_DIR "/install_manifest.txt"});
    EXPECT_EQ(RunWell({"find", directory / "prefix", "!", "-type", "d"}), "");
}

TEST(InstalledFiles, IncludeRunnableSetup) {
    for (const std::string& program : {InstalledTree::Moved().Product() + "/cv_install",
                                       InstalledTree::Moved().Path("sbin/cv_install")}) {
        const std::string out = RunWell({program, "--version"});
        EXPECT_NE(out.find("26.0.0"), std::string::npos) << out;
    }
}

}  // namespace
