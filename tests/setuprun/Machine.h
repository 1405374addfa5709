// A machine with its own files, on which setup runs are constructed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CInstallBase.h"

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

// Constructs a run from these words, the first of which is argv[0], and calls `body` with it.
void Construct(
    const std::vector<std::string>& words,
    const std::function<void(CInstallBase&)>& body = [](CInstallBase&) {},
    bool allowNonRoot = true);

inline constexpr const char* program = "/opt/corvane26/cv_install";

inline constexpr const char* refusal =
    "Corvane Install: Error\n    Installation must be run as root user.  Aborting\n";

// /var, /usr/bin, /opt, the account databases, and the os-release file are its own. Only the last
// has content at first.
class Machine {
public:
    Machine();

    // Writes a file in /var, /usr/bin, /opt, or /etc of the machine, and creates its directories.
    void Write(const std::string& path, const std::string& text, mode_t mode = 0644);
    void MakeDirectory(const std::string& path, mode_t mode = 0755);
    void MakeLink(const std::string& path, const std::string& target);
    std::string Read(const std::string& path) const;

    // Returns the path on the real machine.
    std::string Real(const std::string& path) const;

    // Removes an entry and everything below it.
    void Remove(const std::string& path);

    // Binds a file with this content over any other existing path.
    void Replace(const std::string& path, const std::string& text, mode_t mode = 0644);

    // Runs `body` on the machine, without a leak check: a leak checker needs programs of the real
    // machine.
    hx_test::ProcessResult Run(hx_test::World::Identity identity,
                               const std::function<void()>& body) const;

    // Expects that all expectations in `body` hold.
    void Expect(hx_test::World::Identity identity, const std::function<void()>& body) const;

private:
    hx_test::TempDir m_dir;
    std::vector<std::pair<std::string, std::string>> m_binds;
};

constexpr auto AsRoot = hx_test::World::Identity::Root;
constexpr auto AsUser = hx_test::World::Identity::User;

// Ends a child as RunInChild does, but without a leak check.
[[noreturn]] void EndWithoutLeakCheck();

// Runs `body` in a child on the real machine and expects that its expectations hold.
void ExpectInChild(const std::function<void()>& body, const std::string& input = {});
