// Line input.
#include "support/HXfgets.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "harness/TempDir.h"

namespace {

class HXfgetsTest : public testing::Test {
protected:
    ~HXfgetsTest() override {
        if (m_stream != nullptr)
            std::fclose(m_stream);
    }

    void Open(const std::string& text) {
        hx_test::WriteFile(m_dir / "input", text);
        m_stream = std::fopen((m_dir / "input").c_str(), "r");
        ASSERT_NE(m_stream, nullptr);
    }

    // Reads into the first `size` bytes of a buffer that is full of other text.
    char* Read(int size = 1024) {
        m_buffer.fill('x');
        m_buffer.back() = '\0';
        return HXfgets(m_buffer.data(), size, m_stream);
    }

    // Expects that reads of this size return these lines, and then nothing.
    void ExpectLines(const std::string& text, int size, const std::vector<std::string>& lines) {
        Open(text);
        for (const std::string& line : lines) {
            EXPECT_EQ(Read(size), m_buffer.data());
            EXPECT_EQ(std::string(m_buffer.data()), line);
        }
        ExpectNothing();
        std::fclose(m_stream);
        m_stream = nullptr;
    }

    void ExpectNothing() {
        EXPECT_EQ(Read(), nullptr);
        EXPECT_STREQ(m_buffer.data(), "");
    }

    hx_test::TempDir m_dir;
    FILE* m_stream = nullptr;
    std::array<char, 1024> m_buffer = {};
};

TEST_F(HXfgetsTest, ReadsLines) {
    ExpectLines("8\nnext\n", 1024, {"8\n", "next\n"});
    ExpectLines("last", 1024, {"last"});
    ExpectLines("", 1024, {});
}

TEST_F(HXfgetsTest, ReadsRestOfLongLineNext) {
    const std::string rest = std::string(477, 'a') + "\n";
    ExpectLines(std::string(1500, 'a') + "\nb\n", 1024, {std::string(1023, 'a'), rest, "b\n"});
    ExpectLines("abc\nd\n", 5, {"abc\n", "d\n"});
    ExpectLines("abc\nd\n", 4, {"abc", "\n", "d\n"});
}

TEST_F(HXfgetsTest, EmptiesBufferAtEveryEndOfFile) {
    Open("");
    ExpectNothing();
    ExpectNothing();
}

TEST_F(HXfgetsTest, EmptiesBufferOnReadError) {
    m_stream = std::fopen(m_dir.path().c_str(), "r");
    ASSERT_NE(m_stream, nullptr);
    ExpectNothing();
    EXPECT_NE(std::ferror(m_stream), 0);
}

TEST_F(HXfgetsTest, WritesNothingAfterSize) {
    Open("abcdef\n");
    Read(4);
    EXPECT_EQ(m_buffer[3], '\0');
    EXPECT_EQ(m_buffer[4], 'x');
}

TEST_F(HXfgetsTest, DoesNothingForSizeBelowOne) {
    Open("abc\n");
    EXPECT_EQ(Read(0), nullptr);
    EXPECT_EQ(m_buffer[0], 'x');
    EXPECT_EQ(Read(), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "abc\n");
}

}  // namespace
