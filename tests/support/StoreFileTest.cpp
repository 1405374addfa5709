// A stream as a list of lines.
#include "support/storeFile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "harness/TempDir.h"

namespace {

using Lines = std::vector<std::string>;

// Returns the lines of the file, or nothing if storeFile returned null.
std::optional<Lines> Stored(const std::string& path, int initialLines = 40) {
    FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        ADD_FAILURE() << path << " does not open";
        return {};
    }
    char** stored = storeFile(file, initialLines, 40, 80);
    std::fclose(file);
    if (stored == nullptr)
        return {};
    Lines lines;
    for (char** line = stored; *line != nullptr; ++line)
        lines.emplace_back(*line);
    freeStoredFile(stored);
    return lines;
}

std::optional<Lines> StoredText(const std::string& text, int initialLines = 40) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "file", text);
    return Stored(dir / "file", initialLines);
}

TEST(StoreFile, ReturnsLinesWithNewlines) {
    EXPECT_EQ(StoredText("one\n\n  two \n"), (Lines{"one\n", "\n", "  two \n"}));
    EXPECT_EQ(StoredText("one\ntwo"), (Lines{"one\n", "two"}));
    EXPECT_EQ(StoredText(""), Lines{});
}

TEST(StoreFile, ReturnsLinesOfAnyLength) {
    Lines lines;
    std::string text;
    for (const size_t length : {1u, 78u, 79u, 80u, 81u, 119u, 120u, 4096u, 100000u, 2000000u}) {
        lines.push_back(std::string(length, 'l') + "\n");
        text += lines.back();
    }
    lines.emplace_back(300000, 'z');
    EXPECT_EQ(StoredText(text + lines.back()), lines);
}

TEST(StoreFile, ReturnsAnyNumberOfLines) {
    for (const int count : {39, 40, 41, 79, 80, 81, 10000}) {
        Lines lines;
        std::string text;
        for (int i = 0; i < count; ++i) {
            lines.push_back("line " + std::to_string(i) + "\n");
            text += lines.back();
        }
        EXPECT_EQ(StoredText(text), lines) << count;
    }
}

TEST(StoreFile, AcceptsAnyInitialNumber) {
    for (const int hint : {-1, 0, 1, 2, 1000})
        EXPECT_EQ(StoredText("a\nb\nc\n", hint), (Lines{"a\n", "b\n", "c\n"})) << hint;
}

TEST(StoreFile, StartsAtPositionAndKeepsStream) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "file", "one\ntwo\nthree\n");
    FILE* file = std::fopen((dir / "file").c_str(), "r");
    ASSERT_NE(file, nullptr);
    char first[16];
    ASSERT_NE(std::fgets(first, sizeof first, file), nullptr);
    char** lines = storeFile(file, 40, 40, 80);
    ASSERT_NE(lines, nullptr);
    // The caller may modify the lines.
    std::memset(lines[0], '-', std::strlen(lines[0]));
    EXPECT_STREQ(lines[0], "----");
    EXPECT_STREQ(lines[1], "three\n");
    EXPECT_EQ(lines[2], nullptr);
    EXPECT_NE(std::feof(file), 0);
    freeStoredFile(lines);
    std::fclose(file);
}

TEST(StoreFile, ReturnsNullOnReadError) {
    const hx_test::TempDir dir;
    EXPECT_EQ(Stored(dir.path()), std::nullopt);
}

TEST(FreeStoredFile, AcceptsNull) {
    freeStoredFile(nullptr);
}

}  // namespace
