// Compares a download of 200 MB from a local nginx into memory with curl: time and peak memory.
// curl writes to /dev/null and keeps nothing, so the peak is also compared with the size of the
// body.
#include <sys/resource.h>

#include <filesystem>

#include "Timing.h"
#include "harness/TempDir.h"
#include "net/WebServer.h"

namespace {

constexpr int Rounds = 21;
constexpr size_t Megabytes = 200;

void WriteBody(const std::string& path) {
    std::ofstream file(path, std::ios::binary);
    const std::string megabyte(1'000'000, 'x');
    for (size_t i = 0; i < Megabytes; ++i)
        file << megabyte;
}

}  // namespace

int main(int /*argc*/, char** argv) {
    hx_test::WebServer server;
    if (!server.Start()) {
        std::fprintf(stderr, "%s\n", server.Problem().c_str());
        return 1;
    }
    WriteBody(server.Root() + "/large");
    const std::string url = server.Url("/large");
    const std::filesystem::path directory = std::filesystem::path(argv[0]).parent_path();
    const std::vector<std::string> ours = {(directory / "bench_download_client").string(), url};
    const std::vector<std::string> curl = {"/usr/bin/curl", "--silent",  "--fail",
                                           "--output",      "/dev/null", url};
    double ourPeak = 0;
    double curlPeak = 0;
    const hx_bench::Comparison times = hx_bench::Compare(
        Rounds, [&] { return hx_bench::TimeOf(ours, &ourPeak); },
        [&] { return hx_bench::TimeOf(curl, &curlPeak); });
    std::printf("download of %zu MB / curl, time: %.2f (%.0f ms / %.0f ms, medians of %d)\n",
                Megabytes, times.ratio, times.subject, times.reference, Rounds);
    std::printf("download of %zu MB / curl, peak memory: %.1f (%.0f MB / %.0f MB)\n", Megabytes,
                ourPeak / curlPeak, ourPeak, curlPeak);
    std::printf("download of %zu MB / its body, peak memory: %.2f\n", Megabytes,
                ourPeak / static_cast<double>(Megabytes));
}
