#include "apps/Damages.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "harness/TempDir.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t strange = 12345;

bool FitsAll(const Target& /*target*/) {
    return true;
}

bool HasMode(const Target& target) {
    return target.kind != Kind::Link;
}

void MoveAside(const std::string& path) {
    fs::rename(path, Aside(path));
}

void MoveBack(const std::string& path, const struct stat& /*before*/) {
    fs::remove(path);
    fs::rename(Aside(path), path);
}

void RestoreOwner(const std::string& path, const struct stat& before) {
    EXPECT_EQ(lchown(path.c_str(), before.st_uid, before.st_gid), 0);
}

// Keeps the inode.
void ReplaceText(const std::string& path, const std::string& text) {
    hx_test::WriteFile(path, text);
}

std::string textBefore;

void RestoreText(const std::string& path, const struct stat& /*before*/) {
    ReplaceText(path, textBefore);
}

const Damage allDamages[] = {
    {"Missing", "kind", FitsAll, MoveAside, MoveBack},
    {"Fifo", "kind", FitsAll,
     [](const std::string& path) {
         MoveAside(path);
         EXPECT_EQ(mkfifo(path.c_str(), 0666), 0);
     },
     MoveBack},
    {"LinkToTheSame", "kind", HasMode,
     [](const std::string& path) {
         MoveAside(path);
         fs::create_symlink(Aside(path), path);
     },
     MoveBack},
    {"Mode", "mode", HasMode,
     [](const std::string& path) { EXPECT_EQ(chmod(path.c_str(), 0711), 0); },
     [](const std::string& path, const struct stat& before) {
         EXPECT_EQ(chmod(path.c_str(), before.st_mode & 07777), 0);
     }},
    {"Owner", "owner", FitsAll,
     [](const std::string& path) {
         EXPECT_EQ(lchown(path.c_str(), strange, static_cast<gid_t>(-1)), 0);
     },
     RestoreOwner},
    {"Group", "group", FitsAll,
     [](const std::string& path) {
         EXPECT_EQ(lchown(path.c_str(), static_cast<uid_t>(-1), strange), 0);
     },
     RestoreOwner},
    {"LinkTarget", "target", [](const Target& target) { return target.kind == Kind::Link; },
     [](const std::string& path) {
         MoveAside(path);
         fs::create_symlink("/nowhere", path);
     },
     MoveBack},
    {"OneByte", "content", [](const Target& target) { return target.hasContent; },
     [](const std::string& path) {
         textBefore = hx_test::ReadFile(path);
         std::string text = textBefore;
         text.back() = static_cast<char>(text.back() ^ 1);
         ReplaceText(path, text);
     },
     RestoreText},
    {"Appended", "content", [](const Target& target) { return target.hasContent; },
     [](const std::string& path) {
         textBefore = hx_test::ReadFile(path);
         ReplaceText(path, textBefore + '\n');
     },
     RestoreText},
};

// Logs, locks and temporary files come and go; accounts have no path. The manifest does not contain
// its own content.
std::vector<Target> TargetsOf(unsigned conditions, const std::string& installDir) {
    std::vector<Target> targets;
    for (const Entry& entry : Entries()) {
        const std::string row = entry.path;
        const bool isElsewhere =
            row.starts_with("/tmp/") || row.starts_with("/run/") || row.starts_with("/var/log/");
        const bool isAccount = entry.kind == Kind::Group || entry.kind == Kind::User;
        if (!Applies(entry, conditions) || isAccount || isElsewhere)
            continue;
        targets.push_back({PathOf(entry, installDir), entry.kind,
                           entry.kind == Kind::File && entry.content == Content::Setup &&
                               !row.ends_with("/manifest"),
                           entry.item});
    }
    targets.push_back({installDir + '/' + pagesParent + "/resources/index.html", Kind::File, true});
    return targets;
}

}  // namespace

std::vector<Target> DamagedTargets() {
    return TargetsOf(damagedConditions, sharedDirectory);
}

std::vector<Target> DamagedTargetsOfUser(const std::string& installDir, const std::string& records,
                                         const std::string& nameOfRecord) {
    std::vector<Target> targets =
        TargetsOf((damagedConditions & ~unsigned{AsRoot}) | AsUser, installDir);
    for (Target& target : targets) {
        if (!target.path.starts_with(userRecords))
            continue;
        target.path.replace(0, std::strlen(userRecords), records);
        const size_t at = target.path.find(escapedPart);
        if (at != std::string::npos)
            target.path.replace(at, escapedPart.size(), nameOfRecord);
    }
    return targets;
}

std::span<const Damage> Damages() {
    return allDamages;
}

std::string Aside(const std::string& path) {
    return path + ".aside";
}
