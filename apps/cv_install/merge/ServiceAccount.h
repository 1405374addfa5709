// The service account as the previous setup recorded it in a file that only root can write to. The
// owner of a file in the install tree proves nothing, because others can exchange files there.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Problem.h"

struct ServiceAccount {
    std::string user, group;
    uid_t uid = 0;
    gid_t gid = 0;

    bool operator==(const ServiceAccount&) const = default;
};

// The record; without one, the account of the default name if it exists. Empty without either.
// Fails when users other than root can write to the record or it is unreadable.
Failure ReadServiceAccount(std::optional<ServiceAccount>& account);

// Replaces the record, and its directory if necessary, unless it is as it would be written.
Failure WriteServiceAccount(const ServiceAccount& account);

// Records an account by its names, with the numbers that it has now.
Failure RecordServiceAccount(const QString& user, const QString& group);
