// A product folder and a /tmp of the test's own, in which cv_install runs as an ordinary user.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/Process.h"
#include "harness/TempDir.h"

class UserSetup {
public:
    // `product` is the folder's name below /tmp.
    explicit UserSetup(const std::string& product = "product");

    // Runs the product's cv_install with these arguments.
    hx_test::ProcessResult Run(const std::vector<std::string>& arguments,
                               const std::string& input = {}) const;

    // Runs another program of the product, such as its new run script.
    hx_test::ProcessResult RunProgram(const std::vector<std::string>& command) const;

    // For a child that is already forked: becomes this program, and never returns.
    [[noreturn]] void Become(const std::vector<std::string>& command) const;

    // The command that runs the product's cv_install with these arguments.
    std::vector<std::string> Command(const std::vector<std::string>& arguments) const;

    // The same with these variables, and with the library that fails calls preloaded.
    std::vector<std::string> Command(const std::vector<std::string>& variables,
                                     const std::vector<std::string>& arguments) const;

    // A path of the product folder as the test sees it, and as cv_install does.
    std::string Outside(const std::string& name) const { return m_root / (m_product + "/" + name); }
    std::string Inside(const std::string& name) const { return "/tmp/" + m_product + "/" + name; }

    std::string File(const std::string& name) const { return hx_test::ReadFile(Outside(name)); }
    bool Has(const std::string& name) const;

    // The commit scripts that were written so far.
    std::vector<std::string> CommitScripts() const;

    // Further mounts, for the runs that follow.
    void Bind(const std::string& what, const std::string& over) {
        m_world.binds.emplace(m_world.binds.begin(), what, over);
    }

    // What stands below the test's /tmp.
    std::string Root() const { return m_root.path().string(); }

private:
    hx_test::TempDir m_root;
    hx_test::TempDir m_nothing;
    std::string m_product;
    hx_test::World m_world;
};

// The permission bits of what lies there, a link itself included.
mode_t ModeOf(const std::string& path);
