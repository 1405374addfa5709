// Runs of cv_install in which one system call fails.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "apps/UserSetup.h"

struct FaultyResult {
    int status = -1;
    std::string err;
    // The call that failed, as strace tells it with the paths of its descriptors; empty when the
    // run had ended before.
    std::string call;
    // What the setup has made in its install directory: mode and text by path.
    std::map<std::string, std::string> made;
};

class FaultyRun {
public:
    // Options for each run on top of --setup --user-mode --yes.
    explicit FaultyRun(std::vector<std::string> options);

    // A run in which nothing fails.
    FaultyResult RunWhole();

    // A run whose `number`-th call of this name, counted from the program's start, fails.
    FaultyResult Run(const std::string& name, int number, const std::string& error) {
        return RunWhen(name, std::to_string(number), error);
    }

    // The same with `when` as strace takes it; "2+" is each call from the second on.
    FaultyResult RunWhen(const std::string& name, const std::string& when,
                         const std::string& error);

    // The calls of a run by name, in order; those of the program's loading stand before the one of
    // getcwd that the setup begins with.
    struct Call {
        std::string name;
        int number;
        std::string text;
    };
    std::vector<Call> CallsOfSetup();

    // Why there are no such runs here; empty when there are.
    static std::string NotAvailable();

private:
    FaultyResult RunTraced(const std::vector<std::string>& options);
    void Clear();

    UserSetup m_setup;
    hx_test::TempDir m_files;
    std::vector<std::string> m_options;
};

#define HX_REQUIRE_FAULTY_RUNS()                                \
    do {                                                        \
        const std::string hxReason = FaultyRun::NotAvailable(); \
        if (!hxReason.empty())                                  \
            GTEST_SKIP() << hxReason;                           \
    } while (false)
