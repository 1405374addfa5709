// Names for the numbers of owners.
#pragma once

#include <sys/types.h>

#include <QString>
#include <map>
#include <vector>

#include "installation/Difference.h"

class OwnerNames {
public:
    // `created` are accounts that do not exist yet.
    explicit OwnerNames(const std::vector<AccountDifference>& created = {});

    // The number itself when it has no name.
    QString User(uid_t uid) const;
    QString Group(gid_t gid) const;

    // "USER:GROUP".
    QString Both(uid_t uid, gid_t gid) const;

private:
    std::map<uid_t, QString> m_users;
    std::map<gid_t, QString> m_groups;
};
