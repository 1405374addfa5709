// Users and groups of a throwaway root.
#pragma once

#include <string>
#include <vector>

namespace hx_test {

constexpr const char* ServiceAccount = "corvsrvc";

// Runs a command that must succeed.
void Succeed(const std::vector<std::string>& command);

// Takes the service's user and group away where this machine has them.
void RemoveServiceAccount();

void AddGroup(const std::string& name);

// A user whose own group is `group`, and who is in the others, too.
void AddPerson(const std::string& name, const std::string& group,
               const std::vector<std::string>& others = {});

// Makes the service group with people as its members, in this order. Their own group is "people".
void MakeServiceGroup(const std::vector<std::string>& members);

// The members that the service group's record lists: "ada,bob".
std::string Members();

// The groups of a user, blank-separated, as the program id tells them.
std::string GroupsOf(const std::string& name);

// All records of users and groups.
std::string AccountFiles();

// Puts a program in the place of /usr/sbin/`name`, which it finds as /usr/sbin/`name`.real.
void ReplaceAccountTool(const std::string& name, const std::string& text);

// Puts the system's own program back.
void RestoreAccountTool(const std::string& name);

}  // namespace hx_test
