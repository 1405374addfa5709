// The limit of open files during a merge.
#pragma once

#include <sys/resource.h>

// While the object exists, the process can open as many files as its hard limit allows. A merge
// keeps each entry open whose owner it changes, so that it can undo that.
class OpenFilesLimit {
public:
    OpenFilesLimit() {
        getrlimit(RLIMIT_NOFILE, &m_former);
        const rlimit raised = {m_former.rlim_max, m_former.rlim_max};
        setrlimit(RLIMIT_NOFILE, &raised);
    }
    ~OpenFilesLimit() { setrlimit(RLIMIT_NOFILE, &m_former); }
    OpenFilesLimit(const OpenFilesLimit&) = delete;
    OpenFilesLimit& operator=(const OpenFilesLimit&) = delete;

private:
    rlimit m_former = {};
};
