// What an attacker puts in place of an entry of the install directory.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace hx_test {

// What others must not get at, on one file system with the install directory.
struct Victims {
    std::string file;
    std::string directory;
};

struct PlantedEntry {
    const char* name;
    void (*put)(const std::string& path, const Victims& victims);
    bool changesTimeOfFile = false;  // that of the inode, as a hard link does
};

// A link, a hard link, a FIFO, a socket, the victims' directory, and a device.
std::span<const PlantedEntry> PlantedEntries();

// Their indices, as parameters of tests.
std::vector<size_t> NumbersOfPlantedEntries();

}  // namespace hx_test
