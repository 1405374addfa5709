// The lookups in the user and group databases, and their buffers. This file replaces the two calls.
// They return an error and, independently of it, leave a value in errno.
#include <dlfcn.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "Machine.h"

namespace {

struct Replacement {
    bool active = false;
    std::vector<int> results;  // of the calls; the last one is repeated
    int leftInErrno = 0;
    std::vector<size_t> sizes;  // of the buffers

    int Answer(size_t size) {
        const size_t call = sizes.size();
        sizes.push_back(size);
        errno = leftInErrno;
        return call < results.size() ? results[call] : results.back();
    }
};

Replacement g_user;
Replacement g_group;

char g_name[] = "corvsrvc";
char g_member[] = "anna";
char* g_members[] = {g_member, nullptr};

}  // namespace

extern "C" __attribute__((visibility("default"))) int getpwnam_r(const char* name, passwd* entry,
                                                                 char* buffer, size_t size,
                                                                 passwd** result) {
    if (!g_user.active) {
        const auto next = reinterpret_cast<decltype(&getpwnam_r)>(dlsym(RTLD_NEXT, "getpwnam_r"));
        return next(name, entry, buffer, size, result);
    }
    const int answer = g_user.Answer(size);
    *entry = {};
    entry->pw_name = g_name;
    entry->pw_uid = 611;
    *result = answer == 0 ? entry : nullptr;
    return answer;
}

extern "C" __attribute__((visibility("default"))) int getgrnam_r(const char* name, group* entry,
                                                                 char* buffer, size_t size,
                                                                 group** result) {
    if (!g_group.active) {
        const auto next = reinterpret_cast<decltype(&getgrnam_r)>(dlsym(RTLD_NEXT, "getgrnam_r"));
        return next(name, entry, buffer, size, result);
    }
    const int answer = g_group.Answer(size);
    *entry = {};
    entry->gr_name = g_name;
    entry->gr_gid = 612;
    entry->gr_mem = g_members;
    *result = answer == 0 ? entry : nullptr;
    return answer;
}

namespace {

// Constructs a run while both calls return these results and leave this value in errno. Expects
// that the last result decides, and returns the sizes of the buffers.
std::vector<size_t> Discover(const std::vector<int>& results, int leftInErrno,
                             const std::string& sysconf = {}) {
    setenv("HX_TEST_SYSCONF", sysconf.c_str(), 1);
    g_user = {true, results, leftInErrno, {}};
    g_group = {true, results, leftInErrno, {}};
    const bool found = results.back() == 0;
    Construct({"cv_install"}, [&](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, found ? 611 : -1);
        EXPECT_EQ(run.m_serviceGid, found ? 612 : -1);
        EXPECT_EQ(run.m_serviceCurrentMembers, found ? QStringList{"anna"} : QStringList());
    });
    unsetenv("HX_TEST_SYSCONF");
    EXPECT_EQ(g_user.sizes.size(), g_group.sizes.size());
    return g_group.sizes;
}

TEST(ServiceAccountCalls, DoubleBufferUpToTenCalls) {
    ExpectInChild([] {
        for (const int tenth : {0, ERANGE}) {
            std::vector<int> results(9, ERANGE);
            results.push_back(tenth);
            Discover(results, tenth);
            for (const Replacement* call : {&g_user, &g_group}) {
                ASSERT_EQ(call->sizes.size(), 10u);
                for (size_t i = 1; i < call->sizes.size(); ++i)
                    EXPECT_EQ(call->sizes[i], 2 * call->sizes[i - 1]);
            }
        }
    });
}

TEST(ServiceAccountCalls, StartWithSystemSizeOfAtLeast1024) {
    ExpectInChild([] {
        const std::pair<int, size_t> cases[] = {{-1, 1024},   {0, 1024},    {512, 1024},
                                                {1023, 1024}, {1024, 1024}, {1025, 1025},
                                                {4096, 4096}};
        for (const auto& [system, start] : cases) {
            const std::string size = "=" + std::to_string(system);
            const std::string users = std::to_string(_SC_GETPW_R_SIZE_MAX) + size;
            const std::string groups = std::to_string(_SC_GETGR_R_SIZE_MAX) + size;
            Discover({0}, 0, users);
            EXPECT_EQ(g_user.sizes, std::vector{start}) << system;
            Discover({0}, 0, groups);
            EXPECT_EQ(g_group.sizes, std::vector{start}) << system;
        }
    });
}

TEST(ServiceAccountCalls, ReportErrorInResultOnly) {
    ExpectInChild([] {
        EXPECT_EQ(Discover({0}, 0).size(), 1u);
        EXPECT_EQ(Discover({0}, ERANGE).size(), 1u);
        EXPECT_EQ(Discover({EIO}, ERANGE).size(), 1u);
        EXPECT_EQ(Discover({ERANGE, 0}, 0).size(), 2u);
        EXPECT_EQ(Discover({ERANGE, EIO}, 0).size(), 2u);
    });
}

}  // namespace
