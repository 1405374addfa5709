// How often and with which buffers the user and group databases are asked. The two calls are taken
// over here, before every library, and tell by their result or, to mislead, by errno.
#include <dlfcn.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

struct TakenOver {
    bool active = false;
    std::vector<int> results;  // one a call; the last one is repeated
    int leftInErrno = 0;
    std::vector<size_t> sizes;  // of the buffers that were offered

    int Answer(size_t size) {
        const size_t call = sizes.size();
        sizes.push_back(size);
        errno = leftInErrno;
        return call < results.size() ? results[call] : results.back();
    }
};

TakenOver g_user;
TakenOver g_group;

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

// Discovers once, with both calls giving these results and leaving this in errno.
void Discover(const std::vector<int>& results, int leftInErrno,
              const std::function<void(const CInstallBase&)>& look) {
    ExpectInChild([&] {
        g_user = {true, results, leftInErrno, {}};
        g_group = {true, results, leftInErrno, {}};
        Arguments arguments({"cv_install"});
        const CInstallBase run(true, arguments.argc(), arguments.argv());
        look(run);
    });
}

void ExpectFound(const CInstallBase& run) {
    EXPECT_EQ(run.m_serviceUid, 611);
    EXPECT_EQ(run.m_serviceGid, 612);
    EXPECT_EQ(run.m_serviceCurrentMembers, QStringList{"anna"});
}

void ExpectUnknown(const CInstallBase& run) {
    EXPECT_EQ(run.m_serviceUid, -1);
    EXPECT_EQ(run.m_serviceGid, -1);
    EXPECT_TRUE(run.m_serviceCurrentMembers.isEmpty());
}

TEST(ServiceAccountCalls, DoubleTheBufferTenTimesAtTheMost) {
    Discover({ERANGE}, ERANGE, [](const CInstallBase& run) {
        ExpectUnknown(run);
        for (const TakenOver* call : {&g_user, &g_group}) {
            ASSERT_EQ(call->sizes.size(), 10u);
            EXPECT_GE(call->sizes.front(), 1024u);
            for (size_t i = 1; i < call->sizes.size(); ++i)
                EXPECT_EQ(call->sizes[i], 2 * call->sizes[i - 1]);
        }
    });
}

TEST(ServiceAccountCalls, TakeTheTenthAnswer) {
    const std::vector<int> tenthFits = {ERANGE, ERANGE, ERANGE, ERANGE, ERANGE,
                                        ERANGE, ERANGE, ERANGE, ERANGE, 0};
    Discover(tenthFits, 0, ExpectFound);
}

TEST(ServiceAccountCalls, AreMadeOnceWhenTheRecordFits) {
    Discover({0}, 0, [](const CInstallBase& run) {
        ExpectFound(run);
        EXPECT_EQ(g_user.sizes.size(), 1u);
        EXPECT_EQ(g_group.sizes.size(), 1u);
    });
}

TEST(ServiceAccountCalls, EndWithAnyOtherError) {
    Discover({ERANGE, EIO, 0}, 0, [](const CInstallBase& run) {
        ExpectUnknown(run);
        EXPECT_EQ(g_user.sizes.size(), 2u);
        EXPECT_EQ(g_group.sizes.size(), 2u);
    });
}

TEST(ServiceAccountCalls, TellByTheirResultAndNotByErrno) {
    Discover({ERANGE, 0}, 0, ExpectFound);
    Discover({0}, ERANGE, [](const CInstallBase& run) {
        ExpectFound(run);
        EXPECT_EQ(g_user.sizes.size(), 1u);
        EXPECT_EQ(g_group.sizes.size(), 1u);
    });
    Discover({EIO}, ERANGE, [](const CInstallBase& run) {
        ExpectUnknown(run);
        EXPECT_EQ(g_user.sizes.size(), 1u);
        EXPECT_EQ(g_group.sizes.size(), 1u);
    });
}

}  // namespace
