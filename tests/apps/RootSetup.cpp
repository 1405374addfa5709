#include "apps/RootSetup.h"

#include <filesystem>

#include "apps/Leaks.h"

namespace fs = std::filesystem;

void LayOutRootSetup() {
    for (const char* path :
         {"/var/corvane", "/opt/corvane26", "/usr/bin/corvane26", "/usr/bin/corvane26_snapshot",
          "/usr/bin/corvane26_service_script", "/etc/systemd/system/corvane26_service.service"})
        fs::remove_all(path);
    Shell(
        "rm -rf /tmp/corvane26_commit_* /etc/corvane26 /var/lib/corvane26; ! id -u corvsrvc || "
        "userdel corvsrvc;"
        "! getent group corvsrvc || groupdel corvsrvc");
    fs::create_directories("/opt");
    fs::copy(HX_PRODUCT_DIR, "/opt/corvane26",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

hx_test::ProcessResult RunRootSetup(const std::vector<std::string>& arguments,
                                    const std::string& input, RootMode mode) {
    std::vector<std::string> command = {"/opt/corvane26/cv_install", "--setup"};
    if (mode == RootMode::InPlace)
        command = {"/bin/sh", "-c", withoutMounts + "\"$0\" \"$@\"", command[0], command[1]};
    command.insert(command.end(), arguments.begin(), arguments.end());
    hx_test::ProcessOptions options;
    options.input = input;
    options.workingDirectory = "/";
    options.env["LSAN_OPTIONS"] = LeakOptions(HX_LEAK_SUPPRESSIONS);
    return hx_test::Run(command, options);
}

std::string Shell(const std::string& command) {
    std::string out = hx_test::Run({"/bin/sh", "-c", command}).out;
    if (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}
