// The directory of the executable, from argv[0] and the working directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Machine.h"

namespace {

namespace fs = std::filesystem;

constexpr int bufferSize = 2048;

// Returns the directory for `argv0`, or "failed" for a result other than 0.
std::string DirectoryOf(const char* argv0, int size = bufferSize) {
    std::array<char, bufferSize + 1> buffer = {};
    buffer.fill('#');
    if (CInstallBase::CurrentDirectory(argv0, buffer.data(), size) != 0)
        return "failed";
    EXPECT_EQ(buffer[static_cast<size_t>(size)], '#') << "written after the end of the buffer";
    return buffer.data();
}

// Runs `body` in a new working directory and passes its path.
void InDirectory(const std::function<void(const std::string&)>& body) {
    const hx_test::TempDir dir;
    const std::string path = fs::canonical(dir.path()).string();
    ExpectInChild([&] {
        ASSERT_EQ(chdir(path.c_str()), 0);
        body(path);
    });
}

// Creates and enters a directory below `base` whose path has `length` bytes.
bool EnterDeepDirectory(const std::string& base, size_t length) {
    std::string path = base;
    while (path.size() + 202 < length)
        path += "/" + std::string(200, 'd');
    path += "/" + std::string(length - path.size() - 1, 'e');
    fs::create_directories(path);
    return path.size() == length && chdir(path.c_str()) == 0;
}

TEST(CurrentDirectory, IsDirectoryPartOfProgramName) {
    InDirectory([](const std::string& cwd) {
        const std::pair<const char*, std::string> cases[] = {
            {"cv_install", cwd},
            {"", cwd},
            {".", cwd},
            {nullptr, cwd},
            {"./cv_install", cwd},
            {"./", cwd},
            {"/cv_install", "/"},
            {"/", "/"},
            {"/opt/corvane26/cv_install", "/opt/corvane26"},
            {"/nowhere/to/be/found/x", "/nowhere/to/be/found"},
            {"bin/cv_install", cwd + "/bin"},
            {"a/b/cv_install", cwd + "/a/b"},
            // Not normalized.
            {"../bin/cv_install", cwd + "/../bin"},
            {"../cv_install", cwd + "/.."},
            {"./bin/cv_install", cwd + "/./bin"},
            {"/opt/../usr//./bin/cv_install", "/opt/../usr//./bin"},
            {".//cv_install", cwd + "/./"},
            {"//cv_install", "/"},
            {"bin/", cwd + "/bin"}};
        for (const auto& [argv0, expected] : cases)
            EXPECT_EQ(DirectoryOf(argv0), expected) << (argv0 == nullptr ? "null" : argv0);
    });
}

TEST(CurrentDirectory, ResolvesNoLinksAndSearchesNoPath) {
    InDirectory([](const std::string& cwd) {
        fs::create_directory("bin");
        fs::create_directory_symlink("bin", "link");
        hx_test::WriteFile("bin/cv_install", "#!/bin/sh\n");
        fs::permissions("bin/cv_install", fs::perms::owner_all);
        setenv("PATH", (cwd + "/bin").c_str(), 1);
        EXPECT_EQ(DirectoryOf("cv_install"), cwd);
        EXPECT_EQ(DirectoryOf("link/cv_install"), cwd + "/link");
    });
}

TEST(CurrentDirectory, IsTruncatedToBuffer) {
    ExpectInChild([] {
        ASSERT_EQ(chdir("/"), 0);
        EXPECT_EQ(DirectoryOf("/opt/corvane26/cv_install", 8), "/opt/co");
        EXPECT_EQ(DirectoryOf("/opt/cv_install", 5), "/opt");
        EXPECT_EQ(DirectoryOf("bin/cv_install", 4), "//b");
        EXPECT_EQ(DirectoryOf("bin/cv_install"), "//bin");
        EXPECT_EQ(DirectoryOf("cv_install"), "/");
        for (const size_t length : {1000u, 1023u, 1024u, 1025u, 2047u, 2048u, 5000u, 1000000u}) {
            const std::string directory = "/" + std::string(length - 1, 'a');
            EXPECT_EQ(DirectoryOf((directory + "/cv_install").c_str()),
                      directory.substr(0, bufferSize - 1));
            const std::string relative = "b" + directory;
            EXPECT_EQ(DirectoryOf((relative + "/cv_install").c_str()),
                      ("//" + relative).substr(0, bufferSize - 1));
        }
        EXPECT_EQ(DirectoryOf(("/opt/" + std::string(100000, 'p')).c_str()), "/opt");
    });
}

TEST(CurrentDirectory, FailsWhenWorkingDirectoryDoesNotFit) {
    InDirectory([](const std::string& cwd) {
        const int length = static_cast<int>(cwd.size());
        EXPECT_EQ(DirectoryOf("cv_install", length + 1), cwd);
        errno = 0;
        EXPECT_EQ(DirectoryOf("cv_install", length), "failed");
        EXPECT_EQ(errno, ERANGE);
        // The working directory is read even if it is not needed.
        EXPECT_EQ(DirectoryOf("/x/cv_install", length), "failed");
    });
}

TEST(CurrentDirectory, ReturnsMinusOneWithErrorNumber) {
    ExpectInChild([] {
        char buffer[64] = "#";
        for (const int size : {0, -1}) {
            errno = 0;
            EXPECT_EQ(CInstallBase::CurrentDirectory("/x/cv_install", buffer, size), -1);
            EXPECT_EQ(errno, EINVAL);
            EXPECT_STREQ(buffer, "#");
        }
        setenv("HX_TEST_FAIL", "getcwd=2", 1);
        EXPECT_EQ(CInstallBase::CurrentDirectory("/opt/cv_install", buffer, 64), -1);
        EXPECT_EQ(errno, ENOENT);
    });
}

TEST(ProductDirectory, HasUpTo2047Bytes) {
    InDirectory([](const std::string& cwd) {
        ASSERT_TRUE(EnterDeepDirectory(cwd, 2047));
        Construct({"cv_install"}, [](CInstallBase& run) {
            EXPECT_EQ(run.m_binariesDir.toUtf8().toStdString(), fs::current_path().string());
            EXPECT_EQ(run.m_binariesDir.size(), 2047);
        });
    });
    const hx_test::TempDir dir;
    const auto result = hx_test::RunInChild({}, [&] {
        ASSERT_TRUE(EnterDeepDirectory(fs::canonical(dir.path()).string(), 2048));
        Construct({"/opt/cv_install"});
    });
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n"
              "    Unable to determine current working directory.  Aborting\n"
              "    Numerical result out of range\n");
}

TEST(ProductDirectory, IsWorkingDirectoryWithoutProgramName) {
    InDirectory([](const std::string& cwd) {
        Construct({}, [&](CInstallBase& run) { EXPECT_EQ(run.m_binariesDir.toStdString(), cwd); });
    });
}

}  // namespace
