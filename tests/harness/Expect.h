// Expectations that GoogleTest does not have.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace hx_test {

inline void ExpectHolds(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nis missing in\n" << text;
}

}  // namespace hx_test
