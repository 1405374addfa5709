#include "machine/Accounts.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "harness/Process.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

bool Exists(const char* database, const std::string& name) {
    return Run({"getent", database, name}).status == 0;
}

std::string Tool(const std::string& name) {
    return "/usr/sbin/" + name;
}

std::string WithoutNewline(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

void Succeed(const std::vector<std::string>& command) {
    const auto result = Run(command);
    ASSERT_EQ(result.status, 0) << command[0] << ": " << result.err;
}

void RemoveServiceAccount() {
    if (Exists("passwd", ServiceAccount))
        Succeed({Tool("userdel"), ServiceAccount});
    if (Exists("group", ServiceAccount))
        Succeed({Tool("groupdel"), ServiceAccount});
}

void AddGroup(const std::string& name) {
    if (!Exists("group", name))
        Succeed({Tool("groupadd"), name});
}

void AddPerson(const std::string& name, const std::string& group,
               const std::vector<std::string>& others) {
    AddGroup(group);
    Succeed({Tool("useradd"), "-M", "-g", group, name});
    for (const auto& other : others) {
        AddGroup(other);
        Succeed({Tool("usermod"), "--append", "-G", other, name});
    }
}

void MakeServiceGroup(const std::vector<std::string>& members) {
    Succeed({Tool("groupadd"), "--system", ServiceAccount});
    std::string listed;
    for (const auto& member : members) {
        AddPerson(member, "people", {ServiceAccount});
        listed += (listed.empty() ? "" : ",") + member;
    }
    ASSERT_EQ(Members(), listed);
}

std::string Members() {
    const std::string record = WithoutNewline(Run({"getent", "group", ServiceAccount}).out);
    return record.substr(record.rfind(':') + 1);
}

std::string GroupsOf(const std::string& name) {
    return WithoutNewline(Run({"id", "-Gn", name}).out);
}

std::string AccountFiles() {
    std::string text;
    for (const char* name : {"/etc/passwd", "/etc/group", "/etc/shadow", "/etc/gshadow"})
        text += ReadFile(name);
    return text;
}

void ReplaceAccountTool(const std::string& name, const std::string& text) {
    fs::rename(Tool(name), Tool(name) + ".real");
    WriteFile(Tool(name), text);
    fs::permissions(Tool(name), fs::perms(0755));
}

void RestoreAccountTool(const std::string& name) {
    fs::rename(Tool(name) + ".real", Tool(name));
}

}  // namespace hx_test
