// Looks up the service account.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "setuprun/CInstallBase.h"

namespace {

constexpr long minimumBufferSize = 1024;
constexpr int maximumCalls = 10;

// Calls `lookUp(buffer)` and doubles the buffer while the record does not fit. Returns the error
// number that the call returned, which is not in errno; 0 on success.
template <typename LookUp>
int WithGrowingBuffer(int sizeName, std::vector<char>& buffer, LookUp lookUp) {
    buffer.resize(static_cast<size_t>(std::max(sysconf(sizeName), minimumBufferSize)));
    for (int call = 1;; ++call) {
        const int error = lookUp(buffer);
        if (error != ERANGE || call == maximumCalls)
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
