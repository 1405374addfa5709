// The behavior that all file writers share: the file, its mode, the report, and the failures.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

const std::string oldText(50000, 'x');

// The entry at the path of the file before the writer runs.
enum class Entry { None, File, LinkToFile, DanglingLink, Directory };

struct stat StatusOf(const std::string& path) {
    struct stat entry = {};
    EXPECT_EQ(lstat(path.c_str(), &entry), 0) << path;
    return entry;
}

// A directory with an install tree for one writer.
class Tree {
public:
    explicit Tree(const EveryWriter& writer) : m_writer(writer) {
        MakeDirectory(home / "install", 0755);
        MakeDirectory(home / "install/qchemrc", 0755);
    }

    std::string File() const { return home / m_writer.Path(); }
    std::string Directory() const { return fs::path(File()).parent_path().string(); }
    std::string Target() const { return home / "target"; }

    void Make(Entry entry, mode_t mode) const {
        if (entry == Entry::Directory)
            MakeDirectory(File(), mode);
        if (entry == Entry::File || entry == Entry::LinkToFile) {
            const std::string file = entry == Entry::File ? File() : Target();
            MakeFile(file, oldText, mode);
            fs::create_hard_link(file, home / "other");
        }
        if (entry == Entry::LinkToFile)
            fs::create_symlink(Target(), File());
        if (entry == Entry::DanglingLink)
            fs::create_symlink(home / "missing/target", File());
    }

    ProcessResult Write(const World& world = {}, const RunBody& settings = {}) const {
        ProcessResult result = WithWriter(home.path(), m_writer.writer, world, settings);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(result.err, "");
        return result;
    }

    const TempDir home;

private:
    const EveryWriter& m_writer;
};

// Returns the text that the writer writes to a new file.
std::string ContentOf(const EveryWriter& writer) {
    const Tree tree(writer);
    tree.Write();
    return ReadFile(tree.File());
}

// Returns the output for these reports.
std::string Reported(const std::vector<std::string>& reports, bool shown = true,
                     bool pause = false) {
    std::string out;
    for (const std::string& report : reports)
        out += Separator + (shown ? report : "") + (pause ? Pause : "");
    return out;
}

class FileWriter : public testing::TestWithParam<EveryWriter> {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    const EveryWriter& writer = GetParam();
    const Tree tree{writer};
};

TEST_P(FileWriter, SetsModeRegardlessOfUmask) {
    for (const mode_t mask : {0U, 077U, 0777U}) {
        fs::remove(tree.File());
        tree.Write({}, [mask](CInstallBase&) { umask(mask); });
        EXPECT_EQ(ModeOf(tree.File()), writer.mode) << mask;
    }
}

TEST_P(FileWriter, SetsModeOfExistingFile) {
    for (const mode_t mode : {0600U, 0777U, 04755U}) {
        MakeFile(tree.File(), "", mode);
        tree.Write();
        EXPECT_EQ(ModeOf(tree.File()), writer.mode);
    }
}

TEST_P(FileWriter, CreatesTargetOfDanglingLink) {
    fs::create_symlink(tree.Target(), tree.File());
    EXPECT_EQ(tree.Write().out, Reported(writer.created));
    EXPECT_TRUE(fs::is_symlink(tree.File()));
    EXPECT_EQ(ReadFile(tree.Target()), ContentOf(writer));
    EXPECT_EQ(ModeOf(tree.Target()), writer.mode);
}

TEST_P(FileWriter, IgnoresFullDisk) {
    const std::string install = tree.home / "install";
    for (const auto identity : {Identity::User, Identity::Root}) {
        // The file system vanishes with the child, so the child checks the file.
        const auto checked = RunInChild(As(Identity::Root), [&] {
            ASSERT_EQ(mount("tmpfs", install.c_str(), "tmpfs", 0, "size=32k"), 0);
            fs::create_directory(install + "/qchemrc");
            WriteFile(install + "/filler", std::string(1 << 20, 'x'));
            ASSERT_LT(fs::file_size(install + "/filler"), 1U << 20);
            EXPECT_EQ(tree.Write(As(identity)).out, Reported(writer.created));
            EXPECT_EQ(tree.Write(As(identity)).out, Reported(writer.updated));
            EXPECT_EQ(ReadFile(tree.File()), "");
            EXPECT_EQ(ModeOf(tree.File()), writer.mode);
        });
        EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
    }
}

TEST_P(FileWriter, PausesAfterEachReport) {
    for (const bool shown : {true, false}) {
        const Tree other(writer);
        World world;
        world.input = "1\n2\n3\n";
        const auto result = WithRun(
            other.home.path(),
            [&](CInstallBase& run) {
                run.m_allowNonRoot = shown;
                run.m_interactive = true;
                EXPECT_EQ((run.*writer.writer)(), 1);
                std::printf("next %c", std::getchar());
            },
            world);
        EXPECT_EQ(result.out, Reported(writer.created, shown, true) + "next " +
                                  std::to_string(writer.created.size() + 1));
    }
}

TEST_P(FileWriter, ReportsPathWithPercentSigns) {
    fs::rename(tree.home / "install", tree.home / "100% %s ü");
    const auto result =
        tree.Write({}, [](CInstallBase& run) { run.m_installDir = QStringLiteral("100% %s ü"); });
    EXPECT_EQ(result.out.find("    \"100% %s ü/corvane26") != std::string::npos,
              writer.family == Family::Script);
}

INSTANTIATE_TEST_SUITE_P(Of, FileWriter, testing::ValuesIn(EveryWriters()),
                         [](const auto& test) { return test.param.name; });

// An existing file, which a writer truncates in place or replaces by a new one.
struct Existing {
    const char* name;
    Entry entry;
    mode_t mode;
    Identity identity;
    bool foreign;  // owned by another user
    bool inPlace;
};

constexpr Existing existing[] = {
    {"WritableFile", Entry::File, 0600, Identity::Unchanged, false, true},
    {"UnwritableFile", Entry::File, 0444, Identity::User, false, false},
    {"UnwritableFileAsRoot", Entry::File, 0444, Identity::Root, false, true},
    {"ForeignFile", Entry::File, 0644, Identity::User, true, false},
    {"ForeignFileAsRoot", Entry::File, 0644, Identity::Unchanged, true, true},
    {"LinkToWritableFile", Entry::LinkToFile, 0600, Identity::Unchanged, false, true},
    {"LinkToUnwritableFile", Entry::LinkToFile, 0444, Identity::User, false, false}};

void PrintTo(const Existing& file, std::ostream* out) {
    *out << file.name;
}

template <typename Case>
std::string CaseName(const testing::TestParamInfo<std::tuple<EveryWriter, Case>>& info) {
    return std::string(std::get<0>(info.param).name) + std::get<1>(info.param).name;
}

class ExistingFile : public testing::TestWithParam<std::tuple<EveryWriter, Existing>> {};

TEST_P(ExistingFile, IsTruncatedOrReplaced) {
    HX_REQUIRE_NAMESPACES();
    const auto& [writer, file] = GetParam();
    const Tree tree(writer);
    tree.Make(file.entry, file.mode);
    const bool isLink = file.entry == Entry::LinkToFile;
    if (file.foreign && !GiveAway(tree.File()))
        GTEST_SKIP() << "only root can give a file to another user";
    const struct stat before = StatusOf(tree.home / "other");
    EXPECT_EQ(tree.Write(As(file.identity)).out, Reported(writer.updated));
    const std::string content = ContentOf(writer);
    EXPECT_EQ(ReadFile(tree.File()), content);
    EXPECT_EQ(ReadFile(tree.home / "other"), file.inPlace ? content : oldText);
    EXPECT_EQ(fs::is_symlink(tree.File()), isLink && file.inPlace);
    const struct stat after = StatusOf(isLink && file.inPlace ? tree.Target() : tree.File());
    EXPECT_EQ(after.st_mode & 07777U, writer.mode);
    EXPECT_EQ(after.st_ino == before.st_ino, file.inPlace);
    EXPECT_EQ(after.st_uid, file.inPlace ? before.st_uid : geteuid());
}

INSTANTIATE_TEST_SUITE_P(Of, ExistingFile,
                         testing::Combine(testing::ValuesIn(EveryWriters()),
                                          testing::ValuesIn(existing)),
                         CaseName<Existing>);

enum class Step { Unlink, Open, Chmod };
enum class Left { Same, Nothing, NewText };

// A step that fails, and the state after that.
struct Failure {
    const char* name;
    Step step;
    int error;
    Entry entry;
    mode_t mode;  // of the entry
    Left left;
    std::vector<Identity> identities;
    const char* calls = "";  // made to fail in the writer
    bool unwritableDirectory = false;
    bool readOnlyMount = false;
    bool foreign = false;
};

const std::vector<Identity> user = {Identity::User};
const std::vector<Identity> userAndRoot = {Identity::User, Identity::Root};
const std::vector<Identity> all = {Identity::Unchanged, Identity::User, Identity::Root};

const Failure failures[] = {
    {"UnlinkInUnwritableDirectory", Step::Unlink, EACCES, Entry::File, 0444, Left::Same, user, "",
     true},
    {"UnlinkOfDirectory", Step::Unlink, EISDIR, Entry::Directory, 0555, Left::Same, user},
    {"UnlinkOnReadOnlyMount", Step::Unlink, EROFS, Entry::File, 0644, Left::Same, userAndRoot, "",
     false, true},
    {"UnlinkOfBusyFile", Step::Unlink, EBUSY, Entry::File, 0444, Left::Same, user, "unlink=16"},
    {"OpenInUnwritableDirectory", Step::Open, EACCES, Entry::None, 0, Left::Same, user, "", true},
    {"OpenOfDirectory", Step::Open, EISDIR, Entry::Directory, 0755, Left::Same, userAndRoot},
    {"OpenOnReadOnlyMount", Step::Open, EROFS, Entry::None, 0, Left::Same, userAndRoot, "", false,
     true},
    {"OpenOfLinkToMissingDirectory", Step::Open, ENOENT, Entry::DanglingLink, 0, Left::Same,
     userAndRoot},
    {"OpenWithoutDescriptor", Step::Open, EMFILE, Entry::File, 0600, Left::Same, all, "fopen=24"},
    // The unwritable file was removed first and is not restored.
    {"OpenOnFullDisk", Step::Open, ENOSPC, Entry::File, 0444, Left::Nothing, user, "fopen=28"},
    // In its namespace, root has no power over an account outside it.
    {"ChmodOfForeignFile", Step::Chmod, EPERM, Entry::File, 0666, Left::NewText, userAndRoot, "",
     false, false, true},
    {"ChmodError", Step::Chmod, EIO, Entry::File, 0600, Left::NewText, all, "chmod=5"}};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.name;
}

int ExpectedStatus(const EveryWriter& writer, const Failure& failure) {
    return failure.step == Step::Open && writer.family == Family::Script ? failure.error : 2;
}

std::string ExpectedError(const EveryWriter& writer, const Failure& failure) {
    const std::string path = "\"" + writer.Path() + "\"";
    const std::string reason = std::strerror(failure.error);
    const bool isScript = writer.family == Family::Script;
    if (failure.step == Step::Chmod)
        return ErrorText("Unable to chmod " + path, reason);
    if (failure.step == Step::Unlink) {
        return ErrorText(
            isScript ? "Unable to update " + path + ", unlink failed" : "Unable to delete " + path,
            reason);
    }
    if (isScript)
        return ErrorText("Unable to open " + path + " for write");
    return ErrorText(writer.family == Family::QChem ? "Unable to open file " + path + " for write"
                                                    : "Unable to create " + path,
                     reason);
}

class FileWriterFailure : public testing::TestWithParam<std::tuple<EveryWriter, Failure>> {
protected:
    void ExpectFailure(const Tree& tree, Identity identity) const {
        const auto& [writer, failure] = GetParam();
        const auto result =
            WithWriter(tree.home.path(), writer.writer, As(identity), {}, failure.calls);
        EXPECT_EQ(result.status, ExpectedStatus(writer, failure)) << result.out;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, ExpectedError(writer, failure));
    }

    void ExpectLeft(const Tree& tree) const {
        const Failure& failure = std::get<1>(GetParam());
        const bool present = failure.entry != Entry::None && failure.left != Left::Nothing;
        ASSERT_EQ(fs::exists(fs::symlink_status(tree.File())), present);
        EXPECT_EQ(fs::is_symlink(tree.File()), failure.entry == Entry::DanglingLink);
        EXPECT_EQ(fs::is_directory(tree.File()), failure.entry == Entry::Directory);
        if (!present || failure.entry != Entry::File)
            return;
        EXPECT_EQ(ReadFile(tree.File()) == oldText, failure.left == Left::Same);
        EXPECT_EQ(ModeOf(tree.File()), failure.mode);
    }
};

TEST_P(FileWriterFailure, EndsProcess) {
    HX_REQUIRE_NAMESPACES();
    const auto& [writer, failure] = GetParam();
    for (const Identity identity : failure.identities) {
        const Tree tree(writer);
        tree.Make(failure.entry, failure.mode);
        if (failure.foreign && !GiveAway(tree.File()))
            GTEST_SKIP() << "only root can give a file to another user";
        if (failure.unwritableDirectory)
            fs::permissions(tree.Directory(), fs::perms(0555));
        if (failure.readOnlyMount)
            WithReadOnly(tree.home / "install", [&] { ExpectFailure(tree, identity); });
        else
            ExpectFailure(tree, identity);
        fs::permissions(tree.Directory(), fs::perms(0755));
        ExpectLeft(tree);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FileWriterFailure,
                         testing::Combine(testing::ValuesIn(EveryWriters()),
                                          testing::ValuesIn(failures)),
                         CaseName<Failure>);

// The Q-Chem writers create their directory first, which fails.
TEST(FileWriters, EndProcessWithoutInstallDirectory) {
    for (const EveryWriter& writer : EveryWriters()) {
        const TempDir home;
        const auto result = WithWriter(home.path(), writer.writer);
        const Failure failure = {"", Step::Open, ENOENT, Entry::None, 0, Left::Same, {}};
        EXPECT_EQ(result.err,
                  writer.family == Family::QChem
                      ? ErrorText("Unable to create \"install/qchemrc\"", std::strerror(ENOENT))
                      : ExpectedError(writer, failure));
        EXPECT_EQ(result.status, 2) << writer.name;
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(fs::is_empty(home.path()));
    }
}

}  // namespace
}  // namespace hx_test
