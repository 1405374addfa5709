#include "FakeMachine.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "probes/cpu_memory.h"

namespace {

constexpr const char* ProcessorList = "/sys/devices/system/cpu/possible";

void AppendEntry(std::string& list, const std::string& entry) {
    list += (list.empty() ? "" : ",") + entry;
}

}  // namespace

FakeMachine& FakeMachine::Bind(const std::string& path, const std::string& text, mode_t mode) {
    std::string file = m_dir / std::to_string(m_world.binds.size());
    hx_test::WriteFile(file, text);
    chmod(file.c_str(), mode);
    m_world.binds.emplace_back(file, path);
    return *this;
}

FakeMachine& FakeMachine::CpuInfo(const std::string& text, mode_t mode) {
    return Bind("/proc/cpuinfo", text, mode);
}

FakeMachine& FakeMachine::MemInfo(const std::string& text, mode_t mode) {
    return Bind("/proc/meminfo", text, mode);
}

FakeMachine& FakeMachine::ReadErrorIn(const std::string& path) {
    // Nothing is mapped at the address 0, where reading this file starts.
    m_world.binds.emplace_back("/proc/self/mem", path);
    return *this;
}

FakeMachine& FakeMachine::Processors(int count) {
    return Bind(ProcessorList, "0-" + std::to_string(count - 1) + "\n", 0644);
}

FakeMachine& FakeMachine::Sysconf(int name, long long answer) {
    AppendEntry(m_sysconf, std::to_string(name) + "=" + std::to_string(answer));
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
        // A leak checker at the end of the child asks the system too.
        unsetenv("HX_TEST_SYSCONF");
        unsetenv("HX_TEST_FAIL");
    });
}

bool ProcessorListIsRead() {
    FakeMachine machine;
    machine.Processors(77);
    return machine.Run([] { std::printf("%ld", sysconf(_SC_NPROCESSORS_CONF)); }).out == "77";
}

std::string Stanza(int processor, int physicalId, int coreId, int cpuCores) {
    std::string text = "processor\t: " + std::to_string(processor) + "\nmodel name\t: Made up\n";
    if (physicalId >= 0)
        text += "physical id\t: " + std::to_string(physicalId) + "\n";
    if (coreId >= 0)
        text += "core id\t\t: " + std::to_string(coreId) + "\n";
    if (cpuCores >= 0)
        text += "cpu cores\t: " + std::to_string(cpuCores) + "\n";
    return text + "\n";
}

hx_test::ProcessResult CountCores(const FakeMachine& machine, int verbose) {
    return machine.Run([verbose] {
        unsigned int count = 4711;
        const int result = hx_cpu_count(&count, verbose);
        std::printf("%d %d", result, static_cast<int>(count));
    });
}
