// Setups in which one system call fails.
#pragma once

#include <string>
#include <vector>

#include "apps/UserSetup.h"
#include "machine/Snapshot.h"

// What a setup can create in its install directory.
extern const std::vector<std::string> createdNames;

// Removes the files of earlier setups, with their commit scripts and logs.
void ClearSetup(const UserSetup& setup);

struct FaultyResult {
    int status = -1;
    std::string err;
    // The failed call, as strace prints it with the paths of its descriptors; empty if the setup
    // did not reach it.
    std::string call;
    // What the setup created in its install directory.
    hx_test::Snapshot created;
};

class FaultyRun {
public:
    // Each setup has these options besides --setup --user-mode --yes.
    explicit FaultyRun(std::vector<std::string> options);

    // A setup without a failure.
    FaultyResult RunWhole();

    // The `number`-th call of this name fails, counted from the program's start.
    FaultyResult Run(const std::string& name, int number, const std::string& error) {
        return RunWhen(name, std::to_string(number), error);
    }

    // With `when` in the syntax of strace; "2+" is each call from the second on.
    FaultyResult RunWhen(const std::string& name, const std::string& when,
                         const std::string& error);

    // The calls of a setup in order, from the first getcwd: earlier calls load the program.
    struct Call {
        std::string name;
        int number;
        std::string text;
    };
    std::vector<Call> CallsOfSetup();

    // Returns why calls cannot fail on this system; empty if they can.
    static std::string NotAvailable();

private:
    FaultyResult RunTraced(const std::vector<std::string>& options);

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
