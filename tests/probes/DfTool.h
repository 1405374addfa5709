// Runs CDfProcess with a df tool that a test provides.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "harness/TempDir.h"
#include "probes/CDfProcess.h"

namespace hx_test {

class DfTool : public testing::Test {
protected:
    ~DfTool() override { UsePath(m_path); }

    void UsePath(const std::string& path) { setenv("PATH", path.c_str(), 1); }

    // Creates a df from this shell script, or from a script with its own interpreter line. It
    // becomes the first df in PATH.
    void CreateDf(const std::string& script, const std::string& interpreter = "/bin/sh") {
        WriteFile(m_dir / "df", "#!" + interpreter + "\n" + script + "\n");
        std::filesystem::permissions(m_dir / "df", std::filesystem::perms(0755));
        UsePath(m_dir.path().string() + ":" + m_path);
    }

    static int Measure(const QString& path = QStringLiteral("/tmp")) {
        CDfProcess df;
        df.Run(path);
        return df.TotalAvailable();
    }

    TempDir m_dir;

private:
    const std::string m_path = std::getenv("PATH");
};

}  // namespace hx_test
