// Each public header compiles on its own.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "installed/InstalledTree.h"

namespace {

using Words = std::vector<std::string>;

Words Split(const std::string& text) {
    Words words;
    std::istringstream stream(text);
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// Returns the compiler options that pkg-config prints for the installed tree.
Words CompilerOptions(const std::string& package) {
    return Split(RunWell({"pkg-config", "--cflags", package},
                         {.env = {{"PKG_CONFIG_PATH", InstalledTree::Moved().PkgConfig()}}}));
}

void ExpectCompiles(const std::string& compiler, Words options, const std::string& header) {
    options.insert(options.begin(),
                   {compiler, "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror"});
    options.push_back("-");
    SCOPED_TRACE(header);
    // A C file must contain a declaration.
    RunWell(options, {.input = "#include \"" + header + "\"\nextern int other;\n"});
}

TEST(Headers, CompileAloneInCAndCPlusPlusWithoutQt) {
    for (const char* header :
         {"bigint/mp_int.h", "probes/cpu_memory.h", "probes/processor_identity.h",
          "support/HXfgets.h", "support/hx_export.h", "support/storeFile.h"}) {
        for (const Words& language :
             {Words{HX_CC, "c", "-std=c11"}, Words{HX_CXX, "c++", "-std=c++20"}}) {
            Words options = CompilerOptions("HXInstallBase-c");
            options.insert(options.end(), {"-x", language[1], language[2]});
            ExpectCompiles(language[0], options, header);
        }
    }
}

TEST(Headers, CompileAloneInCPlusPlus) {
    Words options = CompilerOptions("HXInstallBase");
    options.insert(options.end(), {"-x", "c++", "-std=c++20"});
    for (const char* header :
         {"commit/CCommitScript.h", "commit/EarlierServices.h", "net/CHttpCLI.h",
          "probes/CDfProcess.h", "services/CInitService.h", "services/CSystemdService.h",
          "setuprun/CInstallBase.h", "setuprun/CQueueLimits.h", "setuprun/Environment.h",
          "setuprun/QueueLimitsKeys.h", "setuprun/Schedulers.h", "support/COSRelease.h"})
        ExpectCompiles(HX_CXX, options, header);
}

}  // namespace
