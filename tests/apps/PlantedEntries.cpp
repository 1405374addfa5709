#include "apps/PlantedEntries.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <numeric>

namespace hx_test {
namespace {

namespace fs = std::filesystem;

void BindSocket(const std::string& path, const Victims& /*victims*/) {
    const int socketFile = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socketFile, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(socketFile);
}

const PlantedEntry plantedEntries[] = {
    {"Link", [](const std::string& path,
                const Victims& victims) { fs::create_symlink(victims.file, path); }},
    {"HardLink",
     [](const std::string& path, const Victims& victims) {
         fs::create_hard_link(victims.file, path);
     },
     true},
    {"Fifo",
     [](const std::string& path, const Victims& /*victims*/) { mkfifo(path.c_str(), 0666); }},
    {"Socket", BindSocket},
    {"SecretDirectory",
     [](const std::string& path, const Victims& victims) { fs::rename(victims.directory, path); }},
    {"Device",
     [](const std::string& path, const Victims& /*victims*/) {
         mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 5));
     }},
};

}  // namespace

std::span<const PlantedEntry> PlantedEntries() {
    return plantedEntries;
}

std::vector<size_t> NumbersOfPlantedEntries() {
    std::vector<size_t> numbers(PlantedEntries().size());
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

}  // namespace hx_test
