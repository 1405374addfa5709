// The directory of the executable, as text, from argv[0] and the working directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

namespace fs = std::filesystem;

constexpr int Size = 2048;

// The answer for `argv0`, and "failed" in place of one for a result other than 0.
std::string DirectoryOf(const char* argv0, int size = Size) {
    std::array<char, Size + 1> buffer = {};
    buffer.fill('#');
    if (CInstallBase::CurrentDirectory(argv0, buffer.data(), size) != 0)
        return "failed";
    EXPECT_EQ(buffer[static_cast<size_t>(size)], '#') << "written behind the buffer";
    return buffer.data();
}

// Runs `body` with a working directory of the test's own, which it is told.
void InDirectory(const std::function<void(const std::string&)>& body) {
    const hx_test::TempDir dir;
    const std::string path = fs::canonical(dir.path()).string();
    ExpectInChild([&] {
        ASSERT_EQ(chdir(path.c_str()), 0);
        body(path);
    });
}

// Makes and enters a directory below `base` whose path has `length` bytes.
bool EnterDeepDirectory(const std::string& base, size_t length) {
    std::string path = base;
    while (path.size() + 202 < length)
        path += "/" + std::string(200, 'd');
    path += "/" + std::string(length - path.size() - 1, 'e');
    fs::create_directories(path);
    return path.size() == length && chdir(path.c_str()) == 0;
}

TEST(CurrentDirectory, WithoutASlashIsTheWorkingDirectory) {
    InDirectory([](const std::string& cwd) {
        EXPECT_EQ(DirectoryOf("cv_install"), cwd);
        EXPECT_EQ(DirectoryOf(""), cwd);
        EXPECT_EQ(DirectoryOf("."), cwd);
    });
}

TEST(CurrentDirectory, OfNoArgumentIsTheWorkingDirectory) {
    InDirectory([](const std::string& cwd) { EXPECT_EQ(DirectoryOf(nullptr), cwd); });
}

TEST(CurrentDirectory, OfAProgramAtTheRootIsTheRoot) {
    InDirectory([](const std::string&) {
        EXPECT_EQ(DirectoryOf("/cv_install"), "/");
        EXPECT_EQ(DirectoryOf("/"), "/");
    });
}

TEST(CurrentDirectory, OfAnAbsolutePathIsItsDirectory) {
    InDirectory([](const std::string&) {
        EXPECT_EQ(DirectoryOf("/opt/corvane26/cv_install"), "/opt/corvane26");
        EXPECT_EQ(DirectoryOf("/nowhere/to/be/found/x"), "/nowhere/to/be/found");
    });
}

TEST(CurrentDirectory, OfADotIsTheWorkingDirectory) {
    InDirectory([](const std::string& cwd) {
        EXPECT_EQ(DirectoryOf("./cv_install"), cwd);
        EXPECT_EQ(DirectoryOf("./"), cwd);
    });
}

TEST(CurrentDirectory, OfARelativePathIsAppended) {
    InDirectory([](const std::string& cwd) {
        EXPECT_EQ(DirectoryOf("bin/cv_install"), cwd + "/bin");
        EXPECT_EQ(DirectoryOf("a/b/cv_install"), cwd + "/a/b");
    });
}

TEST(CurrentDirectory, IsNotNormalised) {
    InDirectory([](const std::string& cwd) {
        EXPECT_EQ(DirectoryOf("../bin/cv_install"), cwd + "/../bin");
        EXPECT_EQ(DirectoryOf("../cv_install"), cwd + "/..");
        EXPECT_EQ(DirectoryOf("./bin/cv_install"), cwd + "/./bin");
        EXPECT_EQ(DirectoryOf("/opt/../usr//./bin/cv_install"), "/opt/../usr//./bin");
        EXPECT_EQ(DirectoryOf(".//cv_install"), cwd + "/./");
        EXPECT_EQ(DirectoryOf("//cv_install"), "/");
        EXPECT_EQ(DirectoryOf("bin/"), cwd + "/bin");
    });
}

TEST(CurrentDirectory, BelowTheRootHasTwoSlashes) {
    ExpectInChild([] {
        ASSERT_EQ(chdir("/"), 0);
        EXPECT_EQ(DirectoryOf("bin/cv_install"), "//bin");
        EXPECT_EQ(DirectoryOf("cv_install"), "/");
    });
}

TEST(CurrentDirectory, DoesNotResolveLinks) {
    InDirectory([](const std::string& cwd) {
        fs::create_directory("real");
        fs::create_directory_symlink("real", "link");
        EXPECT_EQ(DirectoryOf("link/cv_install"), cwd + "/link");
    });
}

TEST(CurrentDirectory, DoesNotSearchThePath) {
    InDirectory([](const std::string& cwd) {
        fs::create_directory("bin");
        hx_test::WriteFile("bin/cv_install", "#!/bin/sh\n");
        fs::permissions("bin/cv_install", fs::perms::owner_all);
        setenv("PATH", (cwd + "/bin").c_str(), 1);
        EXPECT_EQ(DirectoryOf("cv_install"), cwd);
    });
}

TEST(CurrentDirectory, IsCutToTheBuffer) {
    ExpectInChild([] {
        ASSERT_EQ(chdir("/"), 0);
        EXPECT_EQ(DirectoryOf("/opt/corvane26/cv_install", 8), "/opt/co");
        EXPECT_EQ(DirectoryOf("/opt/cv_install", 5), "/opt");
        EXPECT_EQ(DirectoryOf("bin/cv_install", 4), "//b");
        EXPECT_EQ(DirectoryOf("bin/cv_install", 6), "//bin");
    });
}

TEST(CurrentDirectory, FailsWhenTheWorkingDirectoryDoesNotFit) {
    InDirectory([](const std::string& cwd) {
        const int length = static_cast<int>(cwd.size());
        EXPECT_EQ(DirectoryOf("cv_install", length + 1), cwd);
        errno = 0;
        EXPECT_EQ(DirectoryOf("cv_install", length), "failed");
        EXPECT_EQ(errno, ERANGE);
        // The working directory is asked first, also where it is not needed.
        EXPECT_EQ(DirectoryOf("/x/cv_install", length), "failed");
    });
}

TEST(CurrentDirectory, FailsWithMinusOne) {
    ExpectInChild([] {
        setenv("HX_TEST_FAIL", "getcwd=2", 1);
        char buffer[64];
        EXPECT_EQ(CInstallBase::CurrentDirectory("/opt/cv_install", buffer, 64), -1);
        EXPECT_EQ(errno, ENOENT);
    });
}

TEST(CurrentDirectory, FailsWithoutRoomForAnEnd) {
    for (const int size : {0, -1}) {
        char buffer[2] = "#";
        errno = 0;
        EXPECT_EQ(CInstallBase::CurrentDirectory("/x/cv_install", buffer, size), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_STREQ(buffer, "#");
    }
}

TEST(CurrentDirectory, TakesAPathOfAnyLength) {
    ExpectInChild([] {
        ASSERT_EQ(chdir("/"), 0);
        for (const size_t length : {1000u, 1023u, 1024u, 1025u, 2047u, 2048u, 5000u, 1000000u}) {
            const std::string directory = "/" + std::string(length - 1, 'a');
            EXPECT_EQ(DirectoryOf((directory + "/cv_install").c_str()),
                      directory.substr(0, Size - 1));
            const std::string relative = "b" + directory;
            EXPECT_EQ(DirectoryOf((relative + "/cv_install").c_str()),
                      ("//" + relative).substr(0, Size - 1));
        }
    });
}

TEST(CurrentDirectory, AProgramNameOfAnyLengthIsCutOff) {
    InDirectory([](const std::string& cwd) {
        const std::string name(100000, 'p');
        EXPECT_EQ(DirectoryOf(name.c_str()), cwd);
        EXPECT_EQ(DirectoryOf(("/opt/" + name).c_str()), "/opt");
    });
}

TEST(BinariesDirectory, MayHave2047Bytes) {
    InDirectory([](const std::string& cwd) {
        ASSERT_TRUE(EnterDeepDirectory(cwd, 2047));
        Arguments arguments({"cv_install"});
        const CInstallBase run(true, arguments.argc(), arguments.argv());
        EXPECT_EQ(run.m_binariesDir.toUtf8().toStdString(), fs::current_path().string());
        EXPECT_EQ(run.m_binariesDir.size(), 2047);
    });
}

TEST(BinariesDirectory, OfMoreThan2047BytesEndsTheRun) {
    const hx_test::TempDir dir;
    const auto result = hx_test::RunInChild({}, [&] {
        ASSERT_TRUE(EnterDeepDirectory(fs::canonical(dir.path()).string(), 2048));
        Arguments arguments({"/opt/cv_install"});
        const CInstallBase run(true, arguments.argc(), arguments.argv());
    });
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n"
              "    Unable to determine current working directory.  Aborting\n"
              "    Numerical result out of range\n");
}

TEST(BinariesDirectory, WithoutAProgramNameIsTheWorkingDirectory) {
    InDirectory([](const std::string& cwd) {
        char* argv[] = {nullptr};
        const CInstallBase run(true, 0, argv);
        EXPECT_EQ(run.m_binariesDir.toStdString(), cwd);
    });
}

}  // namespace
