// A df of the test's own, found before the system's.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "harness/TempDir.h"

namespace hx_test {

class DfTool : public testing::Test {
protected:
    ~DfTool() override { UsePath(m_path); }

    void UsePath(const std::string& path) { setenv("PATH", path.c_str(), 1); }

    // Makes a df of this shell script, the first in PATH.
    void MakeDf(const std::string& script) {
        WriteFile(m_dir / "df", "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(m_dir / "df", std::filesystem::perms(0755));
        UsePath(m_dir.path().string() + ":" + m_path);
    }

    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

    TempDir m_dir;

private:
    const std::string m_path = std::getenv("PATH");
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

}  // namespace hx_test
