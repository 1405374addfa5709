// What still uses an account that an undo would delete.
#pragma once

#include <QStringList>
#include <chrono>
#include <string>
#include <vector>

#include "installation/Difference.h"

// A user's crontab has the name of the user there.
inline constexpr const char* crontabDirectories[] = {"/var/spool/cron/crontabs/",
                                                     "/var/spool/cron/tabs/", "/var/spool/cron/"};

struct AccountUse {
    QString use;              // such as "process 4711"; empty if nothing was found
    QStringList searched;     // directories
    QStringList notSearched;  // directories, with the reason
    QString missed;           // one that was searched only in part, or the install directory
};

// Searches processes, crontabs and `directories` for the user or group. Directories are read on
// local file systems only, and not beyond mount points or `limit`. Links to them are followed,
// those in them are not.
AccountUse FindAccountUse(const AccountDifference& account,
                          const std::vector<std::string>& directories, std::chrono::seconds limit);
