#include "faults/FaultyRun.h"

#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

const std::vector<std::string> createdNames = {
    "corvane26", "corvane26_snapshot", "corvane26_samba", "corvane26_ssh", "corvanerc",
    "qchemrc",   "QueueEntries",       "QueueLimits"};

void ClearSetup(const UserSetup& setup) {
    for (const auto& name : createdNames)
        fs::remove_all(setup.Outside(name));
    fs::remove_all(setup.Root() + "/state");
    for (const auto& entry : fs::directory_iterator(setup.Root())) {
        if (entry.path().filename().string().starts_with("corvane26_"))
            fs::remove(entry.path());
    }
}

FaultyRun::FaultyRun(std::vector<std::string> options) : m_options(std::move(options)) {
    // Other modules of the name service would add hundreds of calls.
    hx_test::WriteFile(m_files / "nsswitch.conf", "passwd: files\ngroup: files\n");
    m_setup.Bind(m_files / "nsswitch.conf", "/etc/nsswitch.conf");
}

std::string FaultyRun::NotAvailable() {
#ifdef HX_TEST_KEEP_MALLOC
    return "a sanitizer makes system calls and does not handle their failure";
#endif
    if (!hx_test::NamespacesAvailable())
        return "requires user and mount namespaces";
    const auto probe = hx_test::Run({"strace", "-o", "/dev/null", "true"});
    return probe.status == 0 ? "" : "strace cannot trace here: " + probe.err;
}

FaultyResult FaultyRun::RunTraced(const std::vector<std::string>& options) {
    ClearSetup(m_setup);
    // Does not trace children. The exit status is 137 if the setup hangs.
    std::vector<std::string> command = {"/usr/bin/timeout", "--signal=KILL",   "30", "/usr/bin/env",
                                        "PATH=/usr/bin",    "/usr/bin/strace", "-y", "-o",
                                        "/tmp/trace"};
    command.insert(command.end(), options.begin(), options.end());
    std::vector<std::string> arguments = {"--setup", "--user-mode", "--yes"};
    arguments.insert(arguments.end(), m_options.begin(), m_options.end());
    const std::vector<std::string> setup = m_setup.Command(arguments);
    command.insert(command.end(), setup.begin(), setup.end());
    const auto result = m_setup.RunProgram(command);
    return {result.status, result.err, "", hx_test::SnapshotOf(m_setup.Outside(""), createdNames)};
}

FaultyResult FaultyRun::RunWhole() {
    return RunTraced({});
}

FaultyResult FaultyRun::RunWhen(const std::string& name, const std::string& when,
                                const std::string& error) {
    FaultyResult result =
        RunTraced({"--trace=" + name, "--inject=" + name + ":error=" + error + ":when=" + when});
    std::istringstream trace(hx_test::ReadFile(m_setup.Root() + "/trace"));
    for (std::string line; std::getline(trace, line);) {
        if (line.ends_with("(INJECTED)"))
            result.call = line;
    }
    return result;
}

std::vector<FaultyRun::Call> FaultyRun::CallsOfSetup() {
    RunWhole();
    std::istringstream trace(hx_test::ReadFile(m_setup.Root() + "/trace"));
    std::map<std::string, int> numbers;
    std::vector<Call> calls;
    for (std::string line; std::getline(trace, line);) {
        const size_t parenthesis = line.find('(');
        if (parenthesis == std::string::npos)
            continue;
        const std::string name = line.substr(0, parenthesis);
        const int number = ++numbers[name];
        if (!calls.empty() || name == "getcwd")
            calls.push_back({name, number, line});
    }
    return calls;
}
