// Calls probes that read a /proc file with a content chosen by the test.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace hx_test {

// The content of a file and the expected result of a probe.
using Cases = std::vector<std::pair<std::string, int>>;

// Runs `body` in a child in which `path` has the content `text`. Expects no output.
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

// Compares the results of `probe` with those expected for each content of `path`.
inline void ExpectEach(const std::string& path, const Cases& cases,
                       const std::function<int()>& probe) {
    WithProcFile(path, "", [&] {
        for (const auto& [text, expected] : cases) {
            WriteFile(path, text);
            EXPECT_EQ(probe(), expected) << text;
        }
    });
}

}  // namespace hx_test
