#include "generated/Submission.h"

#include <unistd.h>

#include <cstdlib>

#include "product/Installation.h"

namespace hx_test {
namespace fs = std::filesystem;
namespace {

const char* const runScript = R"sh(#!/bin/sh
printf '<%s>' "$@" >> /tmp/recorded
echo >> /tmp/recorded
echo "output of the submission"
exit "${SUBMISSION_STATUS:-0}"
)sh";

}  // namespace

std::vector<SubmissionScript> SambaScripts() {
    constexpr Writer writer = &CInstallBase::WriteCorvaneSamba;
    return {{"corvane26_samba", "corvane_samba.log", "dash", writer},
            {"corvane26_samba", "corvane_samba.log", "bash", writer}};
}

std::vector<SubmissionScript> SshScripts() {
    constexpr Writer writer = &CInstallBase::WriteCorvaneSsh;
    return {{"corvane26_ssh", "corvane_ssh.log", "dash", writer},
            {"corvane26_ssh", "corvane_ssh.log", "bash", writer}};
}

SubmissionTest::SubmissionTest() {
    for (const char* directory : {"install", "tools", "jobs"})
        MakeDirectory(Outside(directory), 0755);
    MakeFile(Outside("tools/corvane26"), runScript, 0755);
    MakeFile(Outside("tools/date"), "#!/bin/sh\necho today\n", 0755);
    const auto result = WithWriter(m_root.path(), GetParam().writer);
    EXPECT_EQ(result.status, 0) << result.err;
}

void SubmissionTest::SetUp() {
    HX_REQUIRE_NAMESPACES();
    if (!Installed(GetParam().shell))
        GTEST_SKIP() << GetParam().shell << " is not installed";
}

ProcessResult SubmissionTest::Submit(const std::vector<std::string>& arguments,
                                     const std::map<std::string, std::string>& env) const {
    const char* path = std::getenv("PATH");
    std::map<std::string, std::string> variables = {
        {"PATH", std::string("/tmp/tools:") + (path != nullptr ? path : "")}, {"USER", "alice"}};
    for (const auto& [name, value] : env)
        variables[name] = value;
    std::vector<std::string> command = {"/usr/bin/env", "-i"};
    for (const auto& [name, value] : variables) {
        if (!value.empty())
            command.push_back(name + "=" + value);
    }
    command.insert(command.end(),
                   {GetParam().shell, std::string("/tmp/install/") + GetParam().name});
    command.insert(command.end(), arguments.begin(), arguments.end());
    const World world = {.identity = Identity::User, .binds = {{m_root.path().string(), "/tmp"}}};
    ProcessResult result = RunInChild(world, [&] {
        fs::current_path("/tmp");
        std::vector<char*> argv;
        for (std::string& word : command)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(126);
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    return result;
}

ProcessResult SubmissionTest::SubmitJob(const std::string& job,
                                        const std::map<std::string, std::string>& env) const {
    if (!IsSamba())
        return Submit({job}, env);
    WriteFile(Outside("my request"), job);
    return Submit({"/tmp/my request"}, env);
}

void SubmissionTest::Set(const std::string& line, const std::string& newLine) const {
    std::string text = ReadFile(Script());
    const size_t found = text.find("\n" + line + "\n");
    ASSERT_NE(found, std::string::npos) << line;
    text.replace(found + 1, line.size(), newLine);
    WriteFile(Script(), text);
}

std::string SubmissionTest::TakeRecorded() const {
    std::string recorded = File("recorded");
    fs::remove(Outside("recorded"));
    return recorded;
}

std::string Call(const std::vector<std::string>& words) {
    std::string line;
    for (const auto& word : words)
        line += "<" + word + ">";
    return line + "\n";
}

std::string Submitted(std::vector<std::string> words, const std::string& job) {
    words.insert(words.begin(), "--submit");
    words.insert(words.end(), {"--threads", "1", "--verbose", "0", job});
    return Call(words);
}

}  // namespace hx_test
