#include "generated/Submission.h"

#include <unistd.h>

#include <cstdlib>

namespace hx_test {
namespace fs = std::filesystem;
namespace {

const char* const kRunScriptStandIn = R"sh(#!/bin/sh
printf '<%s>' "$@" >> /tmp/recorded
echo >> /tmp/recorded
echo "output of the submission"
exit "${SUBMISSION_STATUS:-0}"
)sh";

}  // namespace

SubmissionTest::SubmissionTest(const std::string& name, Writer writer) : m_name(name) {
    MakeDirectory(Outside("install"), 0755);
    MakeDirectory(Outside("tools"), 0755);
    MakeDirectory(Outside("jobs"), 0755);
    MakeFile(Outside("tools/corvane26"), kRunScriptStandIn, 0755);
    MakeFile(Outside("tools/date"), "#!/bin/sh\necho today\n", 0755);
    const auto result = WithWriter(m_root.path(), writer);
    EXPECT_EQ(result.status, 0) << result.err;
}

void SubmissionTest::SetUp() {
    HX_REQUIRE_NAMESPACES();
    if (hx_test::Run({"sh", "-c", "command -v \"$1\" > /dev/null", "sh", GetParam()}).status != 0)
        GTEST_SKIP() << GetParam() << " is not installed";
}

ProcessResult SubmissionTest::Submit(const std::vector<std::string>& arguments,
                                     const std::map<std::string, std::string>& env) const {
    const char* path = std::getenv("PATH");
    std::map<std::string, std::string> all = {
        {"PATH", std::string("/tmp/tools:") + (path != nullptr ? path : "")}, {"USER", "alice"}};
    for (const auto& [name, value] : env)
        all[name] = value;
    std::vector<std::string> command = {"/usr/bin/env", "-i"};
    for (const auto& [name, value] : all) {
        if (!value.empty())
            command.push_back(name + "=" + value);
    }
    command.insert(command.end(), {GetParam(), "/tmp/install/" + m_name});
    command.insert(command.end(), arguments.begin(), arguments.end());
    const World world = {.identity = World::Identity::User,
                         .binds = {{m_root.path().string(), "/tmp"}}};
    return RunInChild(world, [&] {
        fs::current_path("/tmp");
        std::vector<char*> argv;
        for (std::string& word : command)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(126);
    });
}

void SubmissionTest::Set(const std::string& line, const std::string& newLine) {
    const std::string script = Outside("install/" + m_name);
    std::string text = ReadFile(script);
    const size_t found = text.find("\n" + line + "\n");
    ASSERT_NE(found, std::string::npos) << line;
    text.replace(found + 1, line.size(), newLine);
    WriteFile(script, text);
}

size_t SubmissionTest::Complaints(const ProcessResult& result) {
    size_t count = 0;
    for (size_t at = result.err.find("unexpected operator"); at != std::string::npos;
         at = result.err.find("unexpected operator", at + 1))
        ++count;
    return count;
}

std::string Call(const std::vector<std::string>& words) {
    std::string line;
    for (const auto& word : words)
        line += "<" + word + ">";
    return line + "\n";
}

}  // namespace hx_test
