// Reports of df. The value is in range and the same as from a simple parser.
#include <sstream>
#include <string>

#include "fuzz/Expect.h"
#include "probes/DfReport.h"

namespace {

constexpr long long BlocksOfAGigabyte = 1048576;

// Returns the fourth field of the second line; empty without one.
std::string AvailableField(const std::string& report) {
    std::istringstream lines(report);
    std::string line;
    if (!std::getline(lines, line) || !std::getline(lines, line))
        return {};
    std::istringstream fields(line);
    std::string field;
    for (int found = 0; found < 4; found += field.empty() ? 0 : 1) {
        if (!std::getline(fields, field, ' '))
            return {};
    }
    return field;
}

// Returns whether the field is a number that fits.
bool IsNumber(const std::string& field) {
    const size_t sign = field.starts_with('+') || field.starts_with('-') ? 1 : 0;
    const size_t digits = field.size() - sign;
    return digits >= 1 && digits <= 18 &&
           field.find_first_not_of("0123456789", sign) == std::string::npos;
}

void ExpectValue(const std::string& field, int available) {
    if (field.empty())
        HX_EXPECT(available == 0);
    if (!IsNumber(field))
        return;
    const long long blocks = std::stoll(field);
    HX_EXPECT(available == (blocks == static_cast<int>(blocks) ? blocks / BlocksOfAGigabyte : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const std::string report(data, data + size);
    const int available = hx::AvailableGigabytes(QByteArray::fromStdString(report));
    HX_EXPECT(available >= -2048 && available <= 2047);
    ExpectValue(AvailableField(report), available);
    return 0;
}
