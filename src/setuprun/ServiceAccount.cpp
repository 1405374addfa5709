// Reads what the system knows about the compute service's user and group.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "setuprun/CInstallBase.h"

namespace {

constexpr long MinimumBufferSize = 1024;
constexpr int MaximumCalls = 10;

// Calls `lookUp(buffer)` with a buffer that doubles while the record does not fit. The error
// number is the call's result, not errno; 0 says that the call was made in full.
template <typename LookUp>
int WithGrowingBuffer(int sizeName, std::vector<char>& buffer, LookUp lookUp) {
    buffer.resize(static_cast<size_t>(std::max(sysconf(sizeName), MinimumBufferSize)));
    for (int call = 1;; ++call) {
        const int error = lookUp(buffer);
        if (error != ERANGE || call == MaximumCalls)
            return error;
        buffer.resize(2 * buffer.size());
    }
}

}  // namespace

void CInstallBase::DiscoverServiceUserGroup(const char* user, const char* group) {
    std::vector<char> buffer;

    m_serviceUid = -1;
    passwd userEntry = {};
    passwd* foundUser = nullptr;
    const int userError =
        WithGrowingBuffer(_SC_GETPW_R_SIZE_MAX, buffer, [&](std::vector<char>& space) {
            return getpwnam_r(user, &userEntry, space.data(), space.size(), &foundUser);
        });
    if (userError == 0 && foundUser != nullptr)
        m_serviceUid = static_cast<int>(foundUser->pw_uid);

    m_serviceGid = -1;
    struct group groupEntry = {};
    struct group* foundGroup = nullptr;
    const int groupError =
        WithGrowingBuffer(_SC_GETGR_R_SIZE_MAX, buffer, [&](std::vector<char>& space) {
            return getgrnam_r(group, &groupEntry, space.data(), space.size(), &foundGroup);
        });
    if (groupError != 0 || foundGroup == nullptr)
        return;
    m_serviceGid = static_cast<int>(foundGroup->gr_gid);
    for (char** member = foundGroup->gr_mem; *member != nullptr; ++member)
        m_serviceCurrentMembers.append(QString::fromUtf8(*member));
}
