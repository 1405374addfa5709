// Line input: as fgets, but the buffer always ends up holding a string.
#include "support/HXfgets.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "harness/TempDir.h"

namespace {

class HXfgetsOn : public testing::Test {
protected:
    ~HXfgetsOn() override {
        if (m_stream != nullptr)
            std::fclose(m_stream);
    }

    void Open(const std::string& text) {
        hx_test::WriteFile(m_dir / "input", text);
        m_stream = std::fopen((m_dir / "input").c_str(), "r");
        ASSERT_NE(m_stream, nullptr);
    }

    // Reads with a buffer of `size` that is full of another text before.
    char* Read(int size) {
        m_buffer.fill('x');
        m_buffer.back() = '\0';
        return HXfgets(m_buffer.data(), size, m_stream);
    }

    hx_test::TempDir m_dir;
    FILE* m_stream = nullptr;
    std::array<char, 1024> m_buffer = {};
};

TEST_F(HXfgetsOn, ReadsALineWithItsNewline) {
    Open("8\nnext\n");
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "8\n");
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "next\n");
}

TEST_F(HXfgetsOn, ReadsALastLineWithoutNewline) {
    Open("last");
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "last");
}

TEST_F(HXfgetsOn, LeavesAnEmptyStringAtEndOfFile) {
    Open("only\n");
    Read(1024);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Read(1024), nullptr);
        EXPECT_STREQ(m_buffer.data(), "");
    }
}

TEST_F(HXfgetsOn, LeavesAnEmptyStringOnAnEmptyStream) {
    Open("");
    EXPECT_EQ(Read(1024), nullptr);
    EXPECT_STREQ(m_buffer.data(), "");
}

TEST_F(HXfgetsOn, LeavesAnEmptyStringOnAReadError) {
    m_stream = std::fopen(m_dir.path().c_str(), "r");
    ASSERT_NE(m_stream, nullptr);
    EXPECT_EQ(Read(1024), nullptr);
    EXPECT_STREQ(m_buffer.data(), "");
    EXPECT_NE(std::ferror(m_stream), 0);
}

TEST_F(HXfgetsOn, LeavesTheRestOfALongLineForTheNextRead) {
    Open(std::string(1500, 'a') + "\nb\n");
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_EQ(std::string(m_buffer.data()), std::string(1023, 'a'));
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_EQ(std::string(m_buffer.data()), std::string(477, 'a') + "\n");
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "b\n");
}

TEST_F(HXfgetsOn, ALineThatJustFitsLeavesNothingBehind) {
    Open("abc\nd\n");
    EXPECT_EQ(Read(5), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "abc\n");
    EXPECT_EQ(Read(5), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "d\n");
}

TEST_F(HXfgetsOn, ANewlineThatDoesNotFitIsTheNextRead) {
    Open("abc\nd\n");
    EXPECT_EQ(Read(4), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "abc");
    EXPECT_EQ(Read(4), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "\n");
}

TEST_F(HXfgetsOn, WritesNothingBehindTheGivenSize) {
    Open("abcdef\n");
    Read(4);
    EXPECT_EQ(m_buffer[3], '\0');
    EXPECT_EQ(m_buffer[4], 'x');
}

TEST_F(HXfgetsOn, ASizeBelowOneTouchesNothing) {
    Open("abc\n");
    EXPECT_EQ(Read(0), nullptr);
    EXPECT_EQ(m_buffer[0], 'x');
    EXPECT_EQ(Read(1024), m_buffer.data());
    EXPECT_STREQ(m_buffer.data(), "abc\n");
}

}  // namespace
