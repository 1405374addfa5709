// Setups as root in whose merge an entry of the install tree is replaced, at every step.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <numeric>
#include <set>
#include <vector>

#include "apps/PlantedEntries.h"
#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "apps/TracedSetup.h"
#include "harness/Effort.h"
#include "harness/TempDir.h"
#include "installation/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

const std::string tree = sharedDirectory;
const Victims victims = {"/var/victim", tree + "/secret"};

// The paths in the tree whose names are known before the setup.
std::vector<std::string> PathsInTree() {
    std::vector<std::string> paths;
    for (const Entry& entry : Entries()) {
        const std::string path = PathOf(entry, tree);
        if (IsInTree(entry) && path != tree && path.find(randomPart) == std::string::npos &&
            Applies(entry, AsRoot | WithoutClusterNode | WithSubmissionScripts))
            paths.push_back(path);
    }
    return paths;
}

void PlaceVictims() {
    WriteFile(victims.file, "secret");
    std::filesystem::create_directory(victims.directory);
    WriteFile(victims.directory + "/key", "key");
    Shell("chmod 640 " + victims.file + "; chmod 700 " + victims.directory + "; chmod 600 " +
          victims.directory + "/key");
}

// Content, mode, owner and times of the victims, wherever the directory is.
std::string StateOfVictims(bool withInodeTime) {
    const std::string format = withInodeTime ? "%m %U:%G %T@ %C@\\n" : "%m %U:%G %T@\\n";
    return Shell("cat " + victims.file + "; find " + victims.file + " -printf '" + format +
                 "'; cd \"$(find " + tree + " -name key -printf %h)\" && cat key && find key " +
                 "-printf '" + format + "' && find . -maxdepth 0 -printf '%m %U:%G\\n'");
}

std::multiset<std::string> OutsideOfTree(const std::string& machine) {
    std::multiset<std::string> lines;
    for (const std::string& line : LinesOf(machine)) {
        if (!line.starts_with(tree) && !line.starts_with(victims.file))
            lines.insert(line);
    }
    return lines;
}

std::multiset<std::string> OutsideOfTreeAfter(const std::function<void()>& action) {
    return OutsideOfTree(ResultInRoot([&] {
        PrepareMachine(internalQueue, Before::EarlierVersion);
        action();
        return WholeMachine();
    }));
}

struct Undisturbed {
    TracedResult calls;
    std::multiset<std::string> before;
    std::multiset<std::string> after;
};

const Undisturbed& WithoutReplacement() {
    static const Undisturbed undisturbed = {
        TraceUndisturbed(internalQueue, Before::EarlierVersion), OutsideOfTreeAfter([] {}),
        OutsideOfTreeAfter([] { EXPECT_EQ(RunSetup(internalQueue).status, 0); })};
    return undisturbed;
}

void Replace(const std::string& path, const PlantedEntry& planted) {
    std::error_code ignored;  // the parent may be missing
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found)
        std::filesystem::rename(path, path + ".moved", ignored);
    planted.put(path, victims);
}

class ReplacedEntries : public testing::TestWithParam<size_t> {};

// Root writes neither to what is planted nor through it. The rest of the machine is as after the
// setup, or as before it if the setup is refused.
TEST_P(ReplacedEntries, ReachNothingAtAnyStepOfMerge) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const PlantedEntry& planted = PlantedEntries()[GetParam()];
    const std::vector<std::string> paths = PathsInTree();
    ASSERT_GT(paths.size(), 10u);
    const Undisturbed& undisturbed = WithoutReplacement();
    const size_t begin = undisturbed.calls.callsBeforeMerge + 1;
    const size_t end = undisturbed.calls.calls[0] + 1;
    const size_t step =
        TriesEveryFault() ? 1 : (end - begin) / static_cast<size_t>(RaceRounds()) + 1;
    size_t points = 0;
    size_t refused = 0;
    for (size_t call = begin; call < end; call += step) {
        const std::string& path = paths[(GetParam() + points++) % paths.size()];
        SCOPED_TRACE(path + " before call " + std::to_string(call));
        const auto machine = OutsideOfTreeAfter([&] {
            PlaceVictims();
            const std::string before = StateOfVictims(!planted.changesTimeOfFile);
            const auto result =
                RunTraced(SetupCommand(internalQueue),
                          {SetupProcess::Parent, call, 0, [&] { Replace(path, planted); }});
            EXPECT_EQ(StateOfVictims(!planted.changesTimeOfFile), before) << result.output;
            EXPECT_EQ(OtherProcesses(), std::vector<std::string>{});
            EXPECT_TRUE(result.status == 0 || result.status == 8) << result.output;
        });
        EXPECT_TRUE(machine == undisturbed.before || machine == undisturbed.after)
            << JoinLines({machine.begin(), machine.end()});
        refused += machine == undisturbed.before ? 1U : 0U;
    }
    std::printf("%s: %zu steps, %zu setups refused\n", planted.name, points, refused);
}

std::vector<size_t> KindNumbers() {
    std::vector<size_t> numbers(PlantedEntries().size());
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReplacedEntries, testing::ValuesIn(TriedRows(KindNumbers())),
                         [](const auto& test) {
                             return std::string(PlantedEntries()[test.param].name);
                         });

}  // namespace
