#include "probes/FakeMachine.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

namespace {

void AppendEntry(std::string& list, const std::string& entry) {
    list += (list.empty() ? "" : ",") + entry;
}

}  // namespace

FakeMachine& FakeMachine::File(const std::string& path, const std::string& text, mode_t mode) {
    const std::string file = m_dir / std::to_string(m_world.binds.size());
    hx_test::WriteFile(file, text);
    chmod(file.c_str(), mode);
    m_world.binds.emplace_back(file, path);
    return *this;
}

FakeMachine& FakeMachine::ReadErrorIn(const std::string& path) {
    // Reading this file starts at address 0, where no memory is mapped.
    m_world.binds.emplace_back("/proc/self/mem", path);
    return *this;
}

FakeMachine& FakeMachine::Processors(int count) {
    return File("/sys/devices/system/cpu/possible", "0-" + std::to_string(count - 1) + "\n");
}

FakeMachine& FakeMachine::Sysconf(int name, long long result) {
    AppendEntry(m_sysconf, std::to_string(name) + "=" + std::to_string(result));
    return *this;
}

FakeMachine& FakeMachine::Fail(const std::string& call) {
    AppendEntry(m_fail, call);
    return *this;
}

hx_test::ProcessResult FakeMachine::Run(const std::function<void()>& body) const {
    return hx_test::RunInChild(m_world, [&] {
        setenv("HX_TEST_SYSCONF", m_sysconf.c_str(), 1);
        setenv("HX_TEST_FAIL", m_fail.c_str(), 1);
        body();
        // A leak checker calls sysconf at the end of the child.
        unsetenv("HX_TEST_SYSCONF");
        unsetenv("HX_TEST_FAIL");
    });
}

bool ProcessorListIsRead() {
    FakeMachine machine;
    machine.Processors(77);
    return machine.Run([] { std::printf("%ld", sysconf(_SC_NPROCESSORS_CONF)); }).out == "77";
}
