// A machine of the test's own, in which setup runs are constructed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"

// An argv that ends with a null pointer.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> words);
    int argc() const { return static_cast<int>(m_words.size()); }
    char** argv() { return m_pointers.data(); }

private:
    std::vector<std::string> m_words;
    std::vector<char*> m_pointers;
};

inline constexpr const char* Refusal =
    "Corvane Install: Error\n    Installation must be run as root user.  Aborting\n";

// Its /var, /usr/bin, /opt, user and group database and release file are empty at first.
class Machine {
public:
    Machine();

    // Writes a file below /var, /usr/bin, /opt or /etc of the machine, with its directories.
    void Write(const std::string& path, const std::string& text, mode_t mode = 0644);
    void MakeDirectory(const std::string& path, mode_t mode = 0755);
    void MakeLink(const std::string& path, const std::string& target);
    std::string Read(const std::string& path) const;

    // Where a path of the machine stands on the real one.
    std::string Real(const std::string& path) const;

    // Binds a file of this content over any other existing path.
    void Replace(const std::string& path, const std::string& text, mode_t mode = 0644);

    // Runs `body` there. The programs of the real machine are hidden from it, also from a leak
    // checker, which therefore is left out.
    hx_test::ProcessResult Run(hx_test::World::Identity identity,
                               const std::function<void()>& body) const;

    // The same, and the test fails with what the body said unless all its expectations held.
    void Expect(hx_test::World::Identity identity, const std::function<void()>& body) const;

private:
    hx_test::TempDir m_dir;
    std::vector<std::pair<std::string, std::string>> m_binds;
};

constexpr auto AsRoot = hx_test::World::Identity::Root;
constexpr auto AsUser = hx_test::World::Identity::User;

// Ends a child as RunInChild does, but past the leak checker: for children whose stderr is compared
// or in which the checker lacks the files that it needs.
[[noreturn]] void EndWithoutLeakCheck();

// Runs `body` in a child on the real machine; the test fails as above.
void ExpectInChild(const std::function<void()>& body, const std::string& input = {});
