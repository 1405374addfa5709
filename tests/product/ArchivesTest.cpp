// The archives of the web pages, which a setup unpacks.
#include <chrono>
#include <iterator>
#include <sstream>
#include <thread>

#include "product/Installation.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

constexpr const char* archiveNames[] = {"resources", "icons"};

std::string BuiltArchive(const std::string& name) {
    return HX_PRODUCT_DIR "/docroot/" + name + ".tar";
}

// Builds a copy of the product files.
class ProductBuild {
public:
    ProductBuild() {
        fs::copy(HX_PRODUCT_SOURCE_DIR, Source(), fs::copy_options::recursive);
        WriteFile(m_temp / "CMakeLists.txt",
                  "cmake_minimum_required(VERSION 3.25)\n"
                  "project(product LANGUAGES NONE)\n"
                  "set(HX_PRODUCT_DIR ${CMAKE_BINARY_DIR}/product)\n"
                  "set(HX_INSTALL_PRODUCT_DIR lib/corvane26)\n"
                  "add_executable(hx_fill_template IMPORTED)\n"
                  "set_property(TARGET hx_fill_template PROPERTY IMPORTED_LOCATION /bin/cp)\n"
                  "add_subdirectory(product data)\n");
    }

    std::string Source(const std::string& name = "") const { return m_temp / "product/" + name; }

    void Build() const {
        if (!fs::exists(m_temp / "build"))
            Expect({HX_CMAKE, "-G", HX_GENERATOR, "-S", m_temp.path().string(), "-B",
                    m_temp / "build"});
        Expect({HX_CMAKE, "--build", m_temp / "build", "--target", "hx_product"});
        // File times have a resolution of some milliseconds.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    std::string Archive(const std::string& name) const {
        return m_temp / ("build/product/docroot/" + name + ".tar");
    }

    std::string Listing(const std::string& name) const {
        return hx_test::Run({"tar", "-tf", Archive(name)}).out;
    }

private:
    static void Expect(const Words& command) {
        const ProcessResult result = hx_test::Run(command);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
    }

    TempDir m_temp;
};

TEST(Archives, UnpackToDirectoryOfSameName) {
    for (const std::string name : archiveNames) {
        const TempDir target;
        const ProcessResult unpack =
            hx_test::Run({"tar", "-xv", "-C", target.path().string(), "-f", BuiltArchive(name)});
        EXPECT_EQ(unpack.status, 0) << unpack.err;
        const auto count = std::distance(fs::directory_iterator(target.path()), {});
        EXPECT_EQ(count, 1) << unpack.out;
        const std::string source = HX_PRODUCT_SOURCE_DIR "/docroot/" + name;
        const ProcessResult diff = hx_test::Run({"diff", "-r", source, target / name});
        EXPECT_EQ(diff.status, 0) << diff.out << diff.err;
    }
}

TEST(Archives, ContainReadableFilesWithoutOwner) {
    for (const std::string name : archiveNames) {
        std::istringstream lines(
            hx_test::Run({"tar", "-tv", "--numeric-owner", "-f", BuiltArchive(name)}).out);
        int count = 0;
        for (std::string line; std::getline(lines, line); ++count)
            EXPECT_TRUE(line.starts_with("-rw-r--r-- 0/0 ") || line.starts_with("drwxr-xr-x 0/0 "))
                << line;
        EXPECT_GT(count, 1) << name;
    }
}

TEST(Archives, AreIdenticalForSameContents) {
    const ProductBuild build;
    for (const auto& entry : fs::recursive_directory_iterator(build.Source("docroot"))) {
        fs::permissions(entry, fs::perms::owner_all);
        fs::last_write_time(entry, fs::file_time_type::clock::now() - std::chrono::hours(1000));
    }
    build.Build();
    for (const std::string name : archiveNames) {
        const std::string bytes = ReadFile(BuiltArchive(name));
        EXPECT_FALSE(bytes.empty());
        EXPECT_TRUE(bytes == ReadFile(build.Archive(name))) << name;
    }
}

TEST(Archives, AreRepackedAfterChange) {
    const ProductBuild build;
    build.Build();
    WriteFile(build.Source("docroot/icons/favicon.svg"), "another picture");
    WriteFile(build.Source("docroot/icons/new.svg"), "new");
    build.Build();
    EXPECT_EQ(hx_test::Run({"tar", "-xO", "-f", build.Archive("icons"), "icons/favicon.svg"}).out,
              "another picture");
    EXPECT_NE(build.Listing("icons").find("icons/new.svg\n"), std::string::npos);
    fs::remove(build.Source("docroot/icons/new.svg"));
    build.Build();
    EXPECT_EQ(build.Listing("icons").find("icons/new.svg\n"), std::string::npos);
    EXPECT_NE(build.Listing("icons").find("icons/favicon.svg\n"), std::string::npos);
}

}  // namespace
}  // namespace hx_test
