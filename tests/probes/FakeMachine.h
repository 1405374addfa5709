// A child process that sees the processors and the memory chosen by a test.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "harness/Child.h"
#include "harness/TempDir.h"

class FakeMachine {
public:
    // Replaces the content and the mode of a file of the system.
    FakeMachine& File(const std::string& path, const std::string& text, mode_t mode = 0644);
    FakeMachine& CpuInfo(const std::string& text, mode_t mode = 0644) {
        return File("/proc/cpuinfo", text, mode);
    }
    FakeMachine& MemInfo(const std::string& text) { return File("/proc/meminfo", text); }

    // Replaces `path` with a file that can be opened but not read.
    FakeMachine& ReadErrorIn(const std::string& path);

    // Sets the number of configured processors, in the file of the system that lists them.
    FakeMachine& Processors(int count);

    // Sets the result of sysconf(name).
    FakeMachine& Sysconf(int name, long long result);

    // Makes a call fail, such as "fopen=13".
    FakeMachine& Fail(const std::string& call);

    // Runs `body` in the child, as a user without capabilities, so that file modes apply.
    hx_test::ProcessResult Run(const std::function<void()>& body) const;

private:
    hx_test::TempDir m_dir;
    hx_test::World m_world{.identity = hx_test::World::Identity::User};
    std::string m_sysconf;
    std::string m_fail;
};

// Returns false if the C library does not read the file that Processors() replaces.
bool ProcessorListIsRead();

// Skips a test that needs Processors().
#define HX_REQUIRE_FAKE_MACHINE()                                                    \
    do {                                                                             \
        HX_REQUIRE_NAMESPACES();                                                     \
        if (!ProcessorListIsRead())                                                  \
            GTEST_SKIP() << "this C library does not count processors by that file"; \
    } while (false)
