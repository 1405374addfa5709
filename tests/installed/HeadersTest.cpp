// Each public header compiles on its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "harness/Pattern.h"
#include "harness/TempDir.h"
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

void ExpectCompile(const std::string& compiler, Words options, const Words& headers) {
    options.insert(options.begin(),
                   {compiler, "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror"});
    options.push_back("-");
    std::string source;
    for (const std::string& header : headers)
        source += "#include \"" + header + "\"\n";
    SCOPED_TRACE(source);
    // A C file must contain a declaration.
    RunWell(options, {.input = source + "extern int other;\n"});
}

// What a header includes, also through other headers of this library.
std::set<std::string> IncludedBy(const std::string& header) {
    const std::string directory = InstalledTree::Moved().Path("include/HXInstallBase/");
    std::set<std::string> included;
    for (const hx_test::Match& line :
         hx_test::AllMatches(hx_test::ReadFile(directory + header), "#include [<\"]([^>\"]+)")) {
        included.insert(line[1]);
        if (std::filesystem::exists(directory + line[1]))
            included.merge(IncludedBy(line[1]));
    }
    return included;
}

// Headers that each include all that those before it include: like alone, each can use only what it
// includes itself.
struct Unit {
    Words headers;
    std::set<std::string> included;
};

void Add(std::vector<Unit>& units, const std::string& header) {
    std::set<std::string> included = IncludedBy(header);
    const auto unit = std::find_if(units.rbegin(), units.rend(), [&](const Unit& other) {
        return std::includes(included.begin(), included.end(), other.included.begin(),
                             other.included.end());
    });
    Unit& chosen = unit == units.rend() ? units.emplace_back() : *unit;
    // Its class has the name of a header.
    const std::string text =
        hx_test::ReadFile(InstalledTree::Moved().Path("include/HXInstallBase/" + header));
    for (const std::string& other : chosen.headers) {
        const std::string name = std::filesystem::path(other).stem();
        EXPECT_TRUE(included.contains(other) || text.find(name) == std::string::npos ||
                    text.find("class " + name + ";") != std::string::npos)
            << header << " does not include " << other;
    }
    chosen.headers.push_back(header);
    chosen.included = std::move(included);
}

TEST(Headers, CompileAloneInCAndCPlusPlusWithoutQt) {
    for (const char* header :
         {"bigint/mp_int.h", "probes/cpu_memory.h", "probes/processor_identity.h",
          "support/HXfgets.h", "support/hx_export.h", "support/storeFile.h"}) {
        for (const Words& language :
             {Words{HX_CC, "c", "-std=c11"}, Words{HX_CXX, "c++", "-std=c++20"}}) {
            Words options = CompilerOptions("HXInstallBase-c");
            options.insert(options.end(), {"-x", language[1], language[2]});
            ExpectCompile(language[0], options, {header});
        }
    }
}

// In few runs of the compiler, because reading Qt takes most of the time.
TEST(Headers, CompileAloneInCPlusPlus) {
    Words options = CompilerOptions("HXInstallBase");
    options.insert(options.end(), {"-x", "c++", "-std=c++20"});
    std::vector<Unit> units;
    for (const char* header :
         {"commit/EarlierServices.h", "setuprun/CQueueLimits.h", "setuprun/Schedulers.h",
          "net/CHttpCLI.h", "commit/CCommitScript.h", "probes/CDfProcess.h",
          "services/CInitService.h", "services/CSystemdService.h", "support/COSRelease.h",
          "setuprun/CInstallBase.h", "setuprun/Environment.h", "setuprun/QueueLimitsKeys.h"})
        Add(units, header);
    for (const Unit& unit : units)
        ExpectCompile(HX_CXX, options, unit.headers);
}

}  // namespace
