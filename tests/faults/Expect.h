// What tests of failures have in common.
#pragma once

#include <gtest/gtest.h>

#include <string>

inline constexpr const char* kNoScript =
    "cv_install: the commit script could not be written, nothing has been changed\n"
    "    See that /tmp exists, may be written to and has space, and run the setup again.\n";

inline void ExpectHolds(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
}
