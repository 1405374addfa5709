// Setups as root, their undo and their removal, in whose merge an entry of the install tree is
// replaced, at every step.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
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

// What is done on a machine with an earlier version.
struct Merging {
    const char* name;
    const char* option;  // of what is done after a setup; null: the setup itself
};

const Merging mergings[] = {{"Setup", nullptr}, {"Undo", "--undo"}, {"Removal", "--remove"}};

std::vector<std::string> CommandOf(const Merging& merging) {
    if (merging.option == nullptr)
        return SetupCommand(internalQueue);
    return {"/opt/corvane26/cv_install", merging.option, "--yes"};
}

std::multiset<std::string> OutsideOfTreeAfter(const Merging& merging,
                                              const std::function<void()>& action) {
    return OutsideOfTree(ResultInRoot([&] {
        PrepareMachine(internalQueue, Before::EarlierVersion);
        if (merging.option != nullptr) {
            EXPECT_EQ(RunSetup(internalQueue).status, 0);
        }
        action();
        return WholeMachine();
    }));
}

struct Undisturbed {
    TracedResult calls;
    std::multiset<std::string> before;
    std::multiset<std::string> after;
};

const Undisturbed& WithoutReplacement(const Merging& merging) {
    static std::map<const Merging*, Undisturbed> all;
    if (const auto known = all.find(&merging); known != all.end())
        return known->second;
    Undisturbed& undisturbed = all[&merging];
    undisturbed.before = OutsideOfTreeAfter(merging, [] {});
    const int counts = memfd_create("counts", 0);
    undisturbed.after = OutsideOfTreeAfter(merging, [&] {
        const TracedResult result = RunTraced(CommandOf(merging));
        EXPECT_EQ(result.status, 0) << result.output;
        const size_t numbers[] = {result.callsBeforeMerge, result.calls[0]};
        EXPECT_EQ(write(counts, numbers, sizeof numbers), static_cast<ssize_t>(sizeof numbers));
    });
    size_t numbers[2] = {};
    EXPECT_EQ(pread(counts, numbers, sizeof numbers, 0), static_cast<ssize_t>(sizeof numbers));
    close(counts);
    undisturbed.calls.callsBeforeMerge = numbers[0];
    undisturbed.calls.calls[0] = numbers[1];
    return undisturbed;
}

void Replace(const std::string& path, const PlantedEntry& planted) {
    std::error_code ignored;  // the parent may be missing
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found)
        std::filesystem::rename(path, path + ".moved", ignored);
    planted.put(path, victims);
}

class ReplacedEntries : public testing::TestWithParam<std::tuple<size_t, size_t>> {};

// Root writes neither to what is planted nor through it. The rest of the machine is as after the
// merge, or as before it if it is refused.
TEST_P(ReplacedEntries, ReachNothingAtAnyStepOfMerge) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const auto [merges, kind] = GetParam();
    const Merging& merging = mergings[merges];
    const PlantedEntry& planted = PlantedEntries()[kind];
    const std::vector<std::string> paths = PathsInTree();
    ASSERT_GT(paths.size(), 10u);
    const Undisturbed& undisturbed = WithoutReplacement(merging);
    const size_t begin = undisturbed.calls.callsBeforeMerge + 1;
    const size_t end = undisturbed.calls.calls[0] + 1;
    ASSERT_GT(end, begin + 20);
    // The kinds share the calls of a setup. An undo and a removal make the same calls.
    const size_t most = static_cast<size_t>(RaceRounds()) / 5 + 1;
    const bool isShared = TriesEveryFault() && merges == 0;
    const size_t step = isShared ? 4 : (end - begin) / most + 1;
    size_t points = 0;
    size_t refused = 0;
    for (size_t call = begin + kind % step; call < end; call += step) {
        const std::string& path = paths[(kind + points++) % paths.size()];
        SCOPED_TRACE(path + " before call " + std::to_string(call));
        const auto machine = OutsideOfTreeAfter(merging, [&, &planted = planted] {
            PlaceVictims();
            const std::string before = StateOfVictims(!planted.changesTimeOfFile);
            const auto result = RunTraced(CommandOf(merging), {SetupProcess::Parent, call, 0,
                                                               [&] { Replace(path, planted); }});
            EXPECT_EQ(StateOfVictims(!planted.changesTimeOfFile), before) << result.output;
            EXPECT_EQ(OtherProcesses(), std::vector<std::string>{});
            EXPECT_TRUE(result.status == 0 || result.status == 8) << result.output;
        });
        EXPECT_TRUE(machine == undisturbed.before || machine == undisturbed.after)
            << JoinLines({machine.begin(), machine.end()});
        refused += machine == undisturbed.before ? 1U : 0U;
    }
    std::printf("%s, %s: %zu steps, %zu refused\n", merging.name, planted.name, points, refused);
}

using Kinds = testing::TestParamInfo<std::tuple<size_t, size_t>>;

std::string NameOfKinds(const Kinds& test) {
    const auto [merges, kind] = test.param;
    return std::string(mergings[merges].name) + PlantedEntries()[kind].name;
}

INSTANTIATE_TEST_SUITE_P(Merges, ReplacedEntries,
                         testing::Combine(testing::Values(size_t{0}, size_t{1}),
                                          testing::ValuesIn(TriedRows(NumbersOfPlantedEntries()))),
                         NameOfKinds);
INSTANTIATE_TEST_SUITE_P(Removal, ReplacedEntries,
                         testing::Combine(testing::Values(size_t{2}),
                                          testing::ValuesIn(RowsOfSoak(NumbersOfPlantedEntries()))),
                         NameOfKinds);

}  // namespace
