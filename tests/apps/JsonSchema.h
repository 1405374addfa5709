// The installed JSON Schema of cv_install's report, applied by another implementation.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "harness/Process.h"
#include "harness/TempDir.h"

// Expects that a report is valid and that its members, at any depth of objects, have the values of
// `expected`.
inline void ExpectReport(const std::string& text, const std::string& expected = "{}") {
    const hx_test::TempDir files;
    hx_test::WriteFile(files / "report", text);
    hx_test::WriteFile(files / "expected", expected);
    const auto result = hx_test::Run({"/usr/bin/python3", "-BIc", R"(
import json, jsonschema, platform, sys
schema, report, expected = (json.load(open(path)) for path in sys.argv[1:])
jsonschema.Draft202012Validator(schema).validate(report)
def named(found, names):
    if isinstance(found, dict) and isinstance(names, dict):
        return {name: named(found.get(name), names[name]) for name in names}
    return found
found = named(report, expected)
if found != expected or report["host"] != platform.node():
    sys.exit(json.dumps(found) + "\ninstead of\n" + json.dumps(expected))
)",
                                      HX_JSON_SCHEMA, files / "report", files / "expected"});
    EXPECT_EQ(result.status, 0) << result.err << text;
}
