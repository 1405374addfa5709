// A small installation of Corvane whose programs only record how they were started.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "harness/Process.h"
#include "harness/TempDir.h"

namespace hx_test {

using Words = std::vector<std::string>;
using Variables = std::map<std::string, std::string>;

inline constexpr const char* mainTemplate = HX_PRODUCT_DIR "/corvane26.template";
inline constexpr const char* snapshotTemplate = HX_PRODUCT_DIR "/corvane26_snapshot.template";

// Prints its path and its arguments, one per line, and exits with $STANDIN_STATUS. With
// $STANDIN_GATE set, first waits until that file exists.
extern const char* const recorder;

inline constexpr const char* plainDirectory = "plain";
inline constexpr const char* directoryWithSpaces = "Corvane 26  für Zürich";

bool Installed(const std::string& program);

class Installation {
public:
    // Creates both of its directories in `directory` below a temporary directory.
    explicit Installation(const std::string& directory);

    std::string Root() const { return (m_home / "bin").string(); }
    std::string Settings() const { return (m_home / "var").string(); }
    std::string Home() const { return m_home.string(); }
    std::string Program(const std::string& name) const { return Root() + "/" + name; }

    // Returns the values of the placeholders in the templates.
    Variables Placeholders() const;

    // Replaces placeholders with sed, as the setup does, and returns the path of the script.
    std::string Instantiate(const std::string& templatePath, const Variables& values) const;

    static void AddProgram(const std::string& path, const std::string& text = recorder);

private:
    TempDir m_temp;
    std::filesystem::path m_home;
};

// Returns the words, one per line, as the recorder prints them.
std::string Lines(const Words& words);

}  // namespace hx_test
