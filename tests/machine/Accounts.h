// Users and groups of a throwaway root.
#pragma once

#include <string>
#include <vector>

namespace hx_test {

constexpr const char* serviceAccount = "corvsrvc";

// Runs a command that must succeed.
void Succeed(const std::vector<std::string>& command);

// Removes the service user and service group if they exist.
void RemoveServiceAccount();

void AddGroup(const std::string& name);

// Adds a user with the primary group `group` who is also a member of the others.
void AddUser(const std::string& name, const std::string& group = "people",
             const std::vector<std::string>& others = {});

// Creates the service group with these members, in this order. Their primary group is "people".
void MakeServiceGroup(const std::vector<std::string>& members);

// The members in the service group's record: "ada,bob".
std::string Members();

// The groups of a user, space-separated, as the program id prints them.
std::string GroupsOf(const std::string& name);

// All records of users and groups.
std::string AccountFiles();

}  // namespace hx_test
