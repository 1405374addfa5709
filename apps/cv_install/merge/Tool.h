// Runs the tools that a merge needs.
#pragma once

#include <QString>
#include <optional>
#include <string>
#include <vector>

enum class Messages { Shown, Discarded };

// Runs the program with the name command[0] from the directories of rootPath, for at most 90
// seconds. Returns empty if it ends with status 0, and the reason otherwise, with what it printed
// on stderr if messages are shown.
std::optional<QString> RunTool(const std::vector<std::string>& command, Messages messages);
