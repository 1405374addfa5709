// A limit for system calls that another user could make wait.
#pragma once

#include <string>

#include "Problem.h"

// While the object exists and once its time is over, system calls that wait, for a file server for
// example, fail with EINTR. One object exists at a time.
class TimeLimit {
public:
    TimeLimit();
    ~TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
};

// Reports that a path of the machine cannot be read. With EINTR, the time was over.
Problem UnreadablePath(const std::string& path, int error);
