// A child process that sees the processors and the memory that a test makes up.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "harness/Child.h"
#include "harness/TempDir.h"

class FakeMachine {
public:
    // The content of /proc/cpuinfo and /proc/meminfo, as files with this mode.
    FakeMachine& CpuInfo(const std::string& text, mode_t mode = 0644);
    FakeMachine& MemInfo(const std::string& text, mode_t mode = 0644);

    // Puts a file that opens, and then fails to be read, over `path`.
    FakeMachine& ReadErrorIn(const std::string& path);

    // Makes `count` processors configured, by the system's own list of them.
    FakeMachine& Processors(int count);

    // Makes sysconf(name) answer this, and the named call fail ("fopen=13").
    FakeMachine& Sysconf(int name, long long answer);
    FakeMachine& Fail(const std::string& call);

    // Runs `body` there, as a user without capabilities, so that file modes count.
    hx_test::ProcessResult Run(const std::function<void()>& body) const;

private:
    FakeMachine& Bind(const std::string& path, const std::string& text, mode_t mode);

    hx_test::TempDir m_dir;
    hx_test::World m_world{.identity = hx_test::World::Identity::User};
    std::string m_sysconf;
    std::string m_fail;
};

// False where the C library does not count processors by the list that Processors() replaces.
bool ProcessorListIsRead();

// "cpu_record" stanzas as /proc/cpuinfo has them; a negative number leaves the line out.
std::string Stanza(int processor, int physicalId, int coreId, int cpuCores);

// What hx_cpu_count(&count, verbose) did: stdout holds "result count", the count as signed.
hx_test::ProcessResult CountCores(const FakeMachine& machine, int verbose = 0);

// Stands at the start of tests that need the fakes.
#define HX_REQUIRE_FAKE_MACHINE()                                                             \
    do {                                                                                      \
        HX_REQUIRE_NAMESPACES();                                                              \
        if (!ProcessorListIsRead())                                                           \
            GTEST_SKIP() << "this C library counts processors by something else than a list"; \
    } while (false)
