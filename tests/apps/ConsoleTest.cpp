// What cv_install prints and reads, without the library's pauses.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "Console.h"
#include "harness/Child.h"
#include "support/HXfgets.h"

namespace {

std::string copied;

void Copy(const char* text, size_t length) {
    copied.append(text, length);
}

// As the library does: at most `size` - 1 bytes of the line.
std::string AnswerTo(const char* question, int size = 256) {
    std::printf("%s", question);
    std::fflush(stdout);
    std::array<char, 256> line = {};
    HXfgets(line.data(), size, stdin);
    return line.data();
}

constexpr const char* pause = "[Press \"Enter\" key to continue]";

TEST(Console, SkipsPauses) {
    hx_test::World world;
    world.input = "one\ntwo is too long\nthree\n";
    const auto result = hx_test::RunInChild(world, [] {
        Console::Start();
        EXPECT_EQ(AnswerTo("1? "), "one\n");
        std::printf("\ntext\n");
        EXPECT_EQ(AnswerTo(pause), "\n");
        EXPECT_EQ(AnswerTo("2? ", 5), "two ");
        EXPECT_EQ(AnswerTo(pause), "\n");
        EXPECT_EQ(AnswerTo("3? "), "three\n");
        EXPECT_EQ(AnswerTo("4? "), "");
        EXPECT_NE(std::feof(stdin), 0);
        EXPECT_EQ(AnswerTo(pause), "");
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out, "1? \ntext\n2? 3? 4? ");
}

TEST(Console, CopiesBothStreamsInOrder) {
    const auto result = hx_test::RunInChild({}, [] {
        Console::Start();
        std::printf("before ");
        Console::CopyTo(Copy);
        std::printf("one ");
        std::fprintf(stderr, "two ");
        std::printf("three");
        EXPECT_EQ(Console::OutputError(), 0);
        EXPECT_EQ(copied, "one two three");
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out, "before one three");
    EXPECT_EQ(result.err, "two ");
}

TEST(Console, ShowsWhatLevelAllows) {
    using Level = Console::Level;
    const struct {
        Level level;
        const char* shown;
    } cases[] = {{Level::Quiet, "needed "},
                 {Level::Normal, "usual needed usual "},
                 {Level::Verbose, "usual detail needed usual "}};
    for (const auto& [level, shown] : cases) {
        const auto result = hx_test::RunInChild({}, [level = level] {
            Console::CopyTo(Copy);
            Console::SetLevel(level);
            Console::SetDefaultLevel(Level::Quiet);
            EXPECT_EQ(Console::IsQuiet(), level == Level::Quiet);
            std::printf("usual ");
            {
                const Console::Printing detail(Console::Importance::Detail);
                std::printf("detail ");
                const Console::Printing needed(Console::Importance::Needed);
                std::printf("needed ");
            }
            std::printf("usual ");
            std::fprintf(stderr, "problem");
            EXPECT_EQ(copied, "usual detail needed usual problem");
            copied.clear();
        });
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(result.out, shown);
        EXPECT_EQ(result.err, "problem");
    }
}

}  // namespace
