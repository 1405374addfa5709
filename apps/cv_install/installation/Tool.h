// Runs the tools that a setup as root needs.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

enum class Messages { Shown, Discarded };

// Runs the program with the name command[0] from the directories of rootPath, for at most 90
// seconds. Returns empty if it ends with status 0, and the reason otherwise, with what it printed
// on stderr if messages are shown.
std::optional<QString> RunTool(const std::vector<std::string>& command, Messages messages);

inline constexpr qsizetype longestToolOutput = 1 << 20;

struct ToolOutput {
    std::optional<QString> failure;  // as of RunTool
    QByteArray text;                 // from stdout; at most longestToolOutput
};

// Runs a program for at most `longest` and returns what it printed. Any status up to `lastSuccess`
// is a success.
ToolOutput ReadTool(const std::vector<std::string>& command, std::chrono::seconds longest,
                    int lastSuccess = 0);
