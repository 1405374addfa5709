// Damages to an installation: every attribute of every row that is the setup's.
#pragma once

#include <sys/stat.h>

#include <span>
#include <string>
#include <vector>

#include "installation/Installation.h"

// What is damaged: a row of the installation table, or a web page.
struct Target {
    std::string path;
    Kind kind = Kind::File;
    bool hasContent = false;  // that is the setup's
    Item item = Item::Unnamed;
};

struct Damage {
    const char* name;
    const char* attribute;  // as a verification reports it
    bool (*fits)(const Target& target);
    void (*put)(const std::string& path);
    void (*restore)(const std::string& path, const struct stat& before);
};

// The conditions of a setup that creates all targets.
inline constexpr unsigned damagedConditions = AsRoot | WithoutClusterNode | WithSubmissionScripts;

std::vector<Target> DamagedTargets();

// Those after a user's setup, in an install directory and in the record of that name below the
// user's directory of records.
std::vector<Target> DamagedTargetsOfUser(const std::string& installDir, const std::string& records,
                                         const std::string& nameOfRecord);

std::span<const Damage> Damages();

// Where a damage moves what was at a path.
std::string Aside(const std::string& path);
