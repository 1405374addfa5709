// The free space in a report of df.
#include <utility>
#include <vector>

#include "probes/DfTool.h"

namespace hx_test {
namespace {

const std::string heading = "Filesystem 1024-blocks Used Available Capacity Mounted on\n";
const std::string fiveGigabyteLine = "/dev/sda1 976762584 10485760 5242880 2% /var\n";

class DfReport : public DfTool {
protected:
    using Cases = std::vector<std::pair<std::string, int>>;

    void ExpectGigabytes(const Cases& reports) {
        CreateDf("exec cat '" + m_dir / "report" + "'");
        for (const auto& [report, expected] : reports) {
            WriteFile(m_dir / "report", report);
            EXPECT_EQ(Measure(), expected) << report.substr(0, 500);
        }
    }

    // Expects gigabytes for values in the column Available.
    void ExpectGigabytesOf(const Cases& values) {
        Cases reports;
        for (const auto& [blocks, expected] : values) {
            reports.emplace_back(heading + "/dev/sda1 976762584 10485760 " + blocks + " 2% /var\n",
                                 expected);
        }
        ExpectGigabytes(reports);
    }
};

TEST_F(DfReport, TruncatesBlocksToGigabytes) {
    ExpectGigabytesOf({{"524288000", 500},
                       {"0", 0},
                       {"1048575", 0},
                       {"1048576", 1},
                       {"1992294", 1},
                       {"2097151", 1},
                       {"2097152", 2},
                       {"+5242880", 5},
                       {"0005242880", 5},
                       {"-1048575", 0},
                       {"-1048576", -1},
                       {"-2097151", -1},
                       {"-2147483648", -2048}});
}

TEST_F(DfReport, ReturnsZeroForBlocksBeyondInt) {
    ExpectGigabytesOf({{"2147483647", 2047},
                       {"2147483648", 0},
                       {"4294967296", 0},
                       {"4299161600", 0},
                       {"99999999999999999999", 0},
                       {"-2147483649", 0}});
}

TEST_F(DfReport, ReturnsZeroForOtherText) {
    for (const char* field :
         {"-", "many", "5242880K", "5G", "5242880.0", "0x500000", "5,242,880", "52428800%"})
        ExpectGigabytesOf({{field, 0}});
}

TEST_F(DfReport, SplitsFieldsAtSpacesOnly) {
    ExpectGigabytes({{heading + "  /dev/sda1   9  10485760    5242880   2%   /var  \n", 5},
                     {heading + "/dev/sda1 976762584 10485760 5242880", 5},
                     {heading + "/dev/sda1\t976762584\t10485760\t5242880\t2%\t/var\n", 0},
                     {heading + "/dev/sda1\t1 976762584 10485760 5242880 2% /var\n", 5},
                     {heading + "/dev/my disk 976762584 10485760 524288000 2% /var\n", 10},
                     {heading + "größe:/données 976762584 10485760 5242880 2% /var\n", 5}});
}

TEST_F(DfReport, ReadsSecondLineOnly) {
    ExpectGigabytes({{"Dateisystem\n" + fiveGigabyteLine, 5},
                     {"\n" + fiveGigabyteLine, 5},
                     {heading + fiveGigabyteLine + "/dev/sdb1 9 9 524288000 2% /srv\n", 5},
                     {heading + fiveGigabyteLine + std::string(300000, 'x'), 5},
                     {heading + "\n" + fiveGigabyteLine, 0}});
}

TEST_F(DfReport, ReturnsZeroForShortReport) {
    ExpectGigabytes({{heading + "/dev/sda1 976762584 10485760\n", 0},
                     {heading + "5242880\n", 0},
                     {heading + "    \n", 0},
                     {heading, 0},
                     {"1 2 3 5242880 5", 0},
                     {"1 2 3 5242880 5\n", 0},
                     {"", 0},
                     {"\n", 0},
                     {"\n\n\n", 0}});
}

}  // namespace
}  // namespace hx_test
