// The documentation's programs: the pages show the compiled text, and the programs work.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "harness/Child.h"
#include "harness/Process.h"
#include "harness/TempDir.h"
#include "net/WebServer.h"

namespace {

namespace fs = std::filesystem;

std::string Program(const std::string& name) {
    return HX_EXAMPLES "/" + name;
}

TEST(Examples, AppearInTheirPagesAsCompiled) {
    for (const auto& [page, file, language] :
         {std::tuple("probes.md", "processor_identity.c", "c"),
          std::tuple("services.md", "service_start.cpp", "cpp"),
          std::tuple("download.md", "download.cpp", "cpp")}) {
        const std::string text = hx_test::ReadFile(std::string(HX_DOCS "/") + page);
        const std::string program = hx_test::ReadFile(std::string(HX_DOCS "/examples/") + file);
        ASSERT_FALSE(program.empty()) << file;
        EXPECT_NE(text.find("`examples/" + std::string(file) + "`:\n\n```" + language + "\n" +
                            program + "```\n"),
                  std::string::npos)
            << page << " differs from " << file;
    }
}

TEST(Examples, PrintProcessor) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir directory;
    hx_test::WriteFile(directory / "cpuinfo",
                       "vendor_id\t: GenuineIntel\nmodel name\t: Pentium III (Coppermine)\n"
                       "cpu MHz\t\t: 866.704\ncache size\t: 256 KB\n");
    hx_test::WriteFile(directory / "version", "Linux version 5.14 (gcc (SUSE Linux) 7.5.0)\n");
    const auto child =
        hx_test::RunInChild({.identity = hx_test::World::Identity::Root,
                             .binds = {{directory / "cpuinfo", "/proc/cpuinfo"},
                                       {directory / "version", "/proc/version"}}},
                            [] {
                                const auto run = hx_test::Run({Program("processor_identity")});
                                EXPECT_EQ(run.status, 0) << run.err;
                                EXPECT_EQ(run.out,
                                          "vendor 1, model 4\ncache 256 KB\nclock 866 MHz\n"
                                          "distribution 2\n");
                            });
    EXPECT_EQ(child.status, 0) << child.out;
}

// A systemctl with one service that runs.
const char* const systemctl = R"sh(#!/bin/sh
[ "$2" = good ] || exit 3
)sh";

TEST(Examples, StartServiceAndPrintState) {
    HX_REQUIRE_NAMESPACES();
    if (!fs::exists("/bin/systemctl"))
        GTEST_SKIP() << "/bin/systemctl does not exist";
    const hx_test::TempDir directory;
    hx_test::WriteFile(directory / "systemctl", systemctl);
    fs::permissions(directory / "systemctl", fs::perms::owner_all);
    const auto child =
        hx_test::RunInChild({.identity = hx_test::World::Identity::Root,
                             .binds = {{directory / "systemctl", "/bin/systemctl"}}},
                            [] {
                                const auto good = hx_test::Run({Program("service_start"), "good"});
                                EXPECT_EQ(good.status, 0) << good.err;
                                EXPECT_EQ(good.out, "good runs\n");
                                const auto bad = hx_test::Run({Program("service_start"), "bad"});
                                EXPECT_EQ(bad.status, 1) << bad.err;
                                EXPECT_EQ(bad.out, "bad does not run\n");
                            });
    EXPECT_EQ(child.status, 0) << child.out;
}

TEST(Examples, DownloadPageOrTimeOut) {
    hx_test::WebServer server;
    if (!server.Start())
        GTEST_SKIP() << server.Problem();
    hx_test::WriteFile(server.Root() + "/page.txt", "a page\n");
    hx_test::WriteFile(server.Root() + "/long.txt", std::string(100'000, 'x'));

    const auto page = hx_test::Run({Program("download"), server.Url("/page.txt"), "20"});
    EXPECT_EQ(page.status, 0) << page.err;
    EXPECT_EQ(page.out, "a page\n");

    const auto missing = hx_test::Run({Program("download"), server.Url("/nowhere"), "20"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, hx_test::WebServer::NotFound());
    EXPECT_EQ(missing.err, "The download failed.\n");

    const auto slow = hx_test::Run({Program("download"), server.Url("/slow/long.txt"), "1"});
    EXPECT_EQ(slow.status, 1);
    EXPECT_EQ(slow.out, "");
    EXPECT_EQ(slow.err, "No answer within 1 seconds.\n");
}

TEST(Examples, DownloadPageThroughProxy) {
    hx_test::WebServer server;
    if (!server.Start())
        GTEST_SKIP() << server.Problem();
    hx_test::ProxyServer proxy;
    if (!proxy.Start(hx_test::ProxyServer::Clients::Loopback))
        GTEST_SKIP() << "tinyproxy is not installed";
    hx_test::WriteFile(server.Root() + "/page.txt", "a page\n");
    const auto page = hx_test::Run({Program("download"), server.Url("/page.txt"), "20", "127.0.0.1",
                                    std::to_string(proxy.Port())});
    EXPECT_EQ(page.status, 0) << page.err;
    EXPECT_EQ(page.out, "a page\n");
    EXPECT_FALSE(server.LastRequest().ends_with("|-")) << "the proxy added no Via header";
}

}  // namespace
