#include "machine/Accounts.h"

#include <gtest/gtest.h>

#include "harness/Process.h"
#include "harness/TempDir.h"

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
    if (Exists("passwd", serviceAccount))
        Succeed({Tool("userdel"), serviceAccount});
    if (Exists("group", serviceAccount))
        Succeed({Tool("groupdel"), serviceAccount});
}

void AddGroup(const std::string& name) {
    if (!Exists("group", name))
        Succeed({Tool("groupadd"), name});
}

void AddUser(const std::string& name, const std::string& group,
             const std::vector<std::string>& others) {
    AddGroup(group);
    Succeed({Tool("useradd"), "-M", "-g", group, name});
    for (const auto& other : others) {
        AddGroup(other);
        Succeed({Tool("usermod"), "--append", "-G", other, name});
    }
}

void MakeServiceGroup(const std::vector<std::string>& members) {
    Succeed({Tool("groupadd"), "--system", serviceAccount});
    std::string listed;
    for (const auto& member : members) {
        AddUser(member, "people", {serviceAccount});
        listed += (listed.empty() ? "" : ",") + member;
    }
    ASSERT_EQ(Members(), listed);
}

std::string Members() {
    const std::string record = WithoutNewline(Run({"getent", "group", serviceAccount}).out);
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

}  // namespace hx_test
