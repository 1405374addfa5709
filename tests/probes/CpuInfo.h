// Calls the probes on a /proc file of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace hx_test {

// Runs `body` in a child that sees `text` as `path`, and expects it to print nothing.
inline void WithProcFile(const std::string& path, const std::string& text,
                         const std::function<void()>& body) {
    const TempDir directory;
    WriteFile(directory / "file", text);
    const ProcessResult child = RunInChild(
        {.identity = World::Identity::Root, .binds = {{directory / "file", path}}}, body);
    EXPECT_EQ(child.status, 0) << child.out;
    EXPECT_EQ(child.out, "");
    EXPECT_EQ(child.err, "");
}

inline void WithCpuInfo(const std::string& text, const std::function<void()>& body) {
    WithProcFile("/proc/cpuinfo", text, body);
}

}  // namespace hx_test
