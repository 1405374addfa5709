// Python's integers: runs reference.py and asks it line by line through pipes.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>

namespace hx_test {

class Reference {
public:
    Reference();
    ~Reference();
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    // Returns whether Python is installed.
    bool Available();
    std::string Ask(const std::string& question);

private:
    pid_t m_child = -1;
    FILE* m_to = nullptr;
    FILE* m_from = nullptr;
};

}  // namespace hx_test
