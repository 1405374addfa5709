// cv_install as a regular user, with a product directory and a /tmp of the test's own.
#pragma once

#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/Process.h"
#include "harness/TempDir.h"

// The messages of a failed setup, without the line that names its log.
std::string WithoutLogPath(const std::string& messages);

class UserSetup {
public:
    // `product` is the name of the product directory below /tmp.
    explicit UserSetup(const std::string& product = "product");

    // Runs cv_install with answers on stdin.
    hx_test::ProcessResult Run(const std::vector<std::string>& arguments,
                               const std::string& input = {}) const;

    // Runs another program as the same user, such as the new run script.
    hx_test::ProcessResult RunProgram(const std::vector<std::string>& command) const;

    // Replaces a process that is already forked with this program.
    [[noreturn]] void Become(const std::vector<std::string>& command) const;

    // The command that runs cv_install with these arguments.
    std::vector<std::string> Command(const std::vector<std::string>& arguments) const;

    // The same with environment variables and the preloaded interposer, which fails calls.
    std::vector<std::string> Command(const std::vector<std::string>& variables,
                                     const std::vector<std::string>& arguments) const;

    // A path in the product directory for the test, and for cv_install.
    std::string Outside(const std::string& name) const { return m_root / (m_product + "/" + name); }
    std::string Inside(const std::string& name) const { return "/tmp/" + m_product + "/" + name; }

    std::string File(const std::string& name) const { return hx_test::ReadFile(Outside(name)); }
    bool Has(const std::string& name) const;

    // The commit scripts in the test's /tmp.
    std::vector<std::string> CommitScripts() const;

    // Adds a mount to the following runs.
    void Bind(const std::string& what, const std::string& over) {
        m_world.binds.emplace(m_world.binds.begin(), what, over);
    }

    // The directory that cv_install sees as /tmp.
    std::string Root() const { return m_root.path().string(); }

private:
    hx_test::TempDir m_root;
    hx_test::TempDir m_nothing;
    std::string m_product;
    hx_test::World m_world;
};
