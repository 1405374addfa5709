#include "Machine.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <utility>

namespace fs = std::filesystem;

Arguments::Arguments(std::vector<std::string> words) : m_words(std::move(words)) {
    for (std::string& word : m_words)
        m_pointers.push_back(word.data());
    m_pointers.push_back(nullptr);
}

void Construct(const std::vector<std::string>& words,
               const std::function<void(CInstallBase&)>& body, bool allowNonRoot) {
    Arguments arguments(words);
    CInstallBase run(allowNonRoot, arguments.argc(), arguments.argv());
    body(run);
}

Machine::Machine() {
    MakeDirectory("/var");
    MakeDirectory("/usr/bin");
    MakeDirectory("/opt");
    Write("/etc/passwd", "");
    Write("/etc/group", "");
    Write("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
    Write("/etc/os-release", "NAME=\"Made up Linux\"\nID=madeup\n");
    for (const std::string path : {"/var", "/usr/bin", "/opt", "/etc"})
        m_binds.emplace_back(Real(path), path);
}

std::string Machine::Real(const std::string& path) const {
    return m_dir.path().string() + path;
}

void Machine::Write(const std::string& path, const std::string& text, mode_t mode) {
    fs::create_directories(fs::path(Real(path)).parent_path());
    hx_test::WriteFile(Real(path), text);
    chmod(Real(path).c_str(), mode);
}

void Machine::MakeDirectory(const std::string& path, mode_t mode) {
    fs::create_directories(Real(path));
    chmod(Real(path).c_str(), mode);
}

void Machine::MakeLink(const std::string& path, const std::string& target) {
    fs::create_directories(fs::path(Real(path)).parent_path());
    fs::create_symlink(target, Real(path));
}

std::string Machine::Read(const std::string& path) const {
    return hx_test::ReadFile(Real(path));
}

void Machine::Remove(const std::string& path) {
    fs::remove_all(Real(path));
}

void Machine::Replace(const std::string& path, const std::string& text, mode_t mode) {
    const std::string copy = "/replaced" + path;
    Write(copy, text, mode);
    m_binds.emplace_back(Real(copy), path);
}

hx_test::ProcessResult Machine::Run(hx_test::World::Identity identity,
                                    const std::function<void()>& body) const {
    hx_test::World world{.identity = identity};
    world.binds = m_binds;
    return hx_test::RunInChild(world, [&body] {
        body();
        EndWithoutLeakCheck();
    });
}

void Machine::Expect(hx_test::World::Identity identity, const std::function<void()>& body) const {
    const auto result = Run(identity, body);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

void EndWithoutLeakCheck() {
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 99 : 0);
}

void ExpectInChild(const std::function<void()>& body, const std::string& input) {
    hx_test::World world;
    world.input = input;
    const auto result = hx_test::RunInChild(world, body);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}
