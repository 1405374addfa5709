// What a verification finds.
#pragma once

#include <QString>
#include <vector>

// One attribute that is not as the setup left it. What is gone has the attribute "kind".
struct FoundDifference {
    QString path;  // absolute; empty for what has a name
    QString name;
    const char* kind;
    const char* attribute;
    QString expected;
    QString found;

    bool operator==(const FoundDifference&) const = default;
};

// What could not be checked.
struct Unchecked {
    QString what;
    QString reason;
    // This user cannot read it, or the service manager is not running.
    bool isExpected = false;

    bool operator==(const Unchecked&) const = default;
};

struct VerifyResult {
    std::vector<FoundDifference> differences;
    std::vector<Unchecked> unchecked;

    // Words of `kind`.
    static constexpr const char* user = "user";
    static constexpr const char* group = "group";
    static constexpr const char* member = "member";
    static constexpr const char* service = "service";
};
