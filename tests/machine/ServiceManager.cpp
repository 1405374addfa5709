#include "machine/ServiceManager.h"

#include <filesystem>
#include <fstream>

#include "harness/TempDir.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

const std::string units = "/etc/systemd/system/";

// Reads a unit when it is first needed and at a reload, and keeps it while it is enabled or active.
// Exit statuses are those of systemctl.
const char* const systemctlText = R"sh(#!/bin/sh
cd /service_manager || exit 1
echo "systemctl $*"
echo "systemctl $*" >> calls
[ ! -e "failing/$1" ] || exit 1
if [ "$2" = --no-pager ]
then
    unit=$3
else
    unit=$2
fi
file=/etc/systemd/system/$unit

load ()
{
    [ -e "loaded/$unit" ] || cp "$file" "loaded/$unit" 2> /dev/null
}

case $1 in
daemon-reload)
    for loaded in loaded/*
    do
        [ -e "$loaded" ] || continue
        cp "/etc/systemd/system/${loaded#loaded/}" "$loaded" 2> /dev/null || rm "$loaded"
    done
    exit 0;;
enable)
    load || exit 1
    : > "enabled/$unit";;
disable)
    [ -e "$file" ] || exit 1
    rm -f "enabled/$unit";;
start|restart)
    load || exit 5
    cp "loaded/$unit" "active/$unit";;
stop)
    load || [ -e "active/$unit" ] || exit 5
    rm -f "active/$unit";;
status)
    [ ! -e "active/$unit" ] || exit 0
    load || exit 4
    status=3;;
*)
    exit 2;;
esac
[ -e "enabled/$unit" ] || [ -e "active/$unit" ] || rm -f "loaded/$unit"
exit "${status:-0}"
)sh";

const char* const serviceText = R"sh(#!/bin/sh
cd /service_manager || exit 1
echo "service $*"
echo "service $*" >> calls
case $2 in
status) [ -e "active/$1" ] || exit 3;;
stop) rm "active/$1";;
*) exit 2;;
esac
)sh";

const char* const chkconfigText = R"sh(#!/bin/sh
cd /service_manager || exit 1
echo "chkconfig $*"
echo "chkconfig $*" >> calls
[ "$1" != --del ] || rm -f "enabled/$2"
)sh";

// Replaces a link instead of following it.
void AddStandIn(const std::string& path, const std::string& text) {
    fs::remove(path);
    WriteFile(path, text);
    fs::permissions(path, fs::perms(0755));
}

void Set(const std::string& kind, const std::string& name, const std::string& text, bool set) {
    if (set)
        WriteFile(managerState + "/" + kind + "/" + name, text);
}

}  // namespace

void InstallServiceManager() {
    fs::remove_all(managerState);
    for (const std::string kind : {"enabled", "active", "loaded", "failing"})
        fs::create_directories(managerState + "/" + kind);
    fs::create_directories("/etc/init.d");
    fs::create_directories(units);
    for (const std::string version : {"20", "24", "26"})
        fs::remove(units + "corvane" + version + "_service.service");
    fs::remove("/etc/init.d/corvane_service");
    fs::remove(serviceProgram);
    for (const char* path : {"/usr/bin/systemctl", "/bin/systemctl"})
        AddStandIn(path, systemctlText);
    for (const char* path : {"/usr/sbin/service", "/sbin/service"})
        AddStandIn(path, serviceText);
    fs::remove("/sbin/chkconfig");
}

void InstallChkconfig() {
    AddStandIn("/sbin/chkconfig", chkconfigText);
}

void RemoveSystemctl() {
    fs::remove("/usr/bin/systemctl");
    fs::remove("/bin/systemctl");
}

void LetSystemctlFail(const std::string& verb) {
    WriteFile(managerState + "/failing/" + verb, "");
}

void AddUnit(const std::string& unit, const std::string& text, bool enabled, bool active) {
    WriteFile(units + unit, text);
    Set("enabled", unit, "", enabled);
    Set("active", unit, text, active);
    Set("loaded", unit, text, enabled || active);
}

void AddInitService(bool active) {
    const std::string name = "corvane_service";
    WriteFile("/etc/init.d/" + name, "#!/bin/sh\nexit 0\n");
    Set("enabled", name, "", true);
    Set("active", name, "", active);
}

bool IsEnabled(const std::string& unit) {
    return fs::exists(managerState + "/enabled/" + unit);
}

bool IsActive(const std::string& unit) {
    return fs::exists(managerState + "/active/" + unit);
}

std::string ActiveText(const std::string& unit) {
    return ReadFile(managerState + "/active/" + unit);
}

std::vector<std::string> ServiceCalls() {
    std::vector<std::string> calls;
    std::ifstream file(managerState + "/calls");
    for (std::string line; std::getline(file, line);)
        calls.push_back(line);
    fs::remove(managerState + "/calls");
    return calls;
}

}  // namespace hx_test
