#include "merge/Acl.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

constexpr const char* aclAttributes[] = {"system.posix_acl_access", "system.posix_acl_default"};

// A list is a version, then entries, all little-endian.
struct AclEntry {
    uint16_t tag;
    uint16_t permissions;
    uint32_t id;
};

constexpr size_t aclVersionSize = 4;
constexpr uint16_t aclUser = 0x02;  // a named one
constexpr uint16_t aclGroup = 0x08;
constexpr uint16_t aclWrite = 0x02;

std::string AclPath(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

bool IsAbsent(int error) {
    return error == ENODATA || error == EOPNOTSUPP;
}

// A list that cannot be read, or is too long for the buffer, is not limited.
bool IsLimited(const std::string& path, const char* attribute, uid_t owner) {
    std::array<char, 4096> list = {};
    const ssize_t length = getxattr(path.c_str(), attribute, list.data(), list.size());
    if (length < 0)
        return IsAbsent(errno);
    if (owner == 0)
        return false;
    if (owner == getuid())
        return true;
    for (size_t at = aclVersionSize; at + sizeof(AclEntry) <= static_cast<size_t>(length);
         at += sizeof(AclEntry)) {
        AclEntry entry = {};
        std::memcpy(&entry, list.data() + at, sizeof entry);
        if ((entry.tag == aclUser || entry.tag == aclGroup) && (entry.permissions & aclWrite) != 0)
            return false;
    }
    return true;
}

}  // namespace

bool LimitAcl(int descriptor, uid_t owner) {
    const std::string path = AclPath(descriptor);
    return std::ranges::all_of(aclAttributes, [&](const char* attribute) {
        return IsLimited(path, attribute, owner) || removexattr(path.c_str(), attribute) == 0 ||
               IsAbsent(errno);
    });
}

bool HasLimitedAcl(int descriptor, uid_t owner) {
    const std::string path = AclPath(descriptor);
    return IsLimited(path, aclAttributes[0], owner) && IsLimited(path, aclAttributes[1], owner);
}

bool CopyDefaultAcl(int descriptor, const std::string& copy) {
    const char* attribute = aclAttributes[1];
    std::array<char, 65536> list = {};
    const ssize_t length =
        getxattr(AclPath(descriptor).c_str(), attribute, list.data(), list.size());
    if (length < 0)
        return IsAbsent(errno);
    std::string kept(list.data(), std::min(aclVersionSize, static_cast<size_t>(length)));
    for (size_t at = aclVersionSize; at + sizeof(AclEntry) <= static_cast<size_t>(length);
         at += sizeof(AclEntry)) {
        AclEntry entry = {};
        std::memcpy(&entry, list.data() + at, sizeof entry);
        if (entry.tag != aclUser && entry.tag != aclGroup)
            kept.append(list.data() + at, sizeof entry);
    }
    return setxattr(copy.c_str(), attribute, kept.data(), kept.size(), 0) == 0;
}
