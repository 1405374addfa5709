// Setups as root on a throwaway machine that all tests of the program share.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "harness/TempDir.h"
#include "machine/ThrowawayMachine.h"

class MachineSetup : public testing::Test {
protected:
    // Booted by the first call, and ended with the program.
    static hx_test::ThrowawayMachine& Machine() {
        static hx_test::ThrowawayMachine machine;
        if (!s_tried) {
            s_tried = true;
            s_booted = machine.Boot();
            if (s_booted)
                machine.CopyIn(HX_PRODUCT_DIR, "/opt/corvane26");
        }
        return machine;
    }

    static bool HasMachine() {
        return hx_test::ThrowawayMachine::Hindrance().empty() && (Machine(), s_booted);
    }

    static void RemoveInstallation() {
        Shell(
            "systemctl disable --now corvane26_service; "
            "rm -rf /var/corvane /etc/corvane26 /var/lib/corvane26 /usr/bin/corvane26* "
            "/etc/systemd/system/corvane2* "
            "/var/log/corvane26_setup.log /tmp/corvane26_*; "
            "systemctl daemon-reload; systemctl reset-failed");
    }

    void SetUp() override {
        const std::string hindrance = hx_test::ThrowawayMachine::Hindrance();
        if (!hindrance.empty())
            GTEST_SKIP() << hindrance;
        ASSERT_TRUE(HasMachine()) << Machine().Log();
        RemoveInstallation();
    }

    static void Write(const std::string& path, const std::string& text) {
        hx_test::WriteFile(Machine().Path(path), text);
    }

    static void WriteProgram(const std::string& path, const std::string& text) {
        Write(path, text);
        Shell("chmod 755 " + path);
    }

    static std::string Shell(const std::string& text) { return Machine().Output(text); }

private:
    static inline bool s_tried = false;
    static inline bool s_booted = false;
};
