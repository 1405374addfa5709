// What is read from a report of the df tool.
#include "probes/CDfProcess.h"
#include "probes/DfTool.h"

namespace hx_test {
namespace {

const std::string Heading = "Filesystem 1024-blocks Used Available Capacity Mounted on\n";

class DfReport : public DfTool {
protected:
    // What the object makes of these bytes.
    int Report(const std::string& text) {
        WriteFile(m_dir / "report", text);
        MakeDf("exec cat '" + m_dir / "report" + "'");
        return Measure();
    }

    int Measure() {
        CDfProcess df;
        df.Run("/tmp");
        return df.TotalAvailable();
    }

    int Available(const std::string& blocks) {
        return Report(Heading + "/dev/sda1 976762584 10485760 " + blocks + " 2% /var\n");
    }
};

TEST_F(DfReport, GivesTheColumnAvailableInGigabytes) {
    EXPECT_EQ(Available("524288000"), 500);
}

TEST_F(DfReport, IsTruncated) {
    EXPECT_EQ(Available("0"), 0);
    EXPECT_EQ(Available("1048575"), 0);
    EXPECT_EQ(Available("1048576"), 1);
    EXPECT_EQ(Available("1992294"), 1);
    EXPECT_EQ(Available("2097151"), 1);
    EXPECT_EQ(Available("2097152"), 2);
}

TEST_F(DfReport, ABlockCountThatDoesNotFitGivesNothing) {
    EXPECT_EQ(Available("2147483647"), 2047);
    EXPECT_EQ(Available("2147483648"), 0);
    EXPECT_EQ(Available("4294967296"), 0);
    EXPECT_EQ(Available("4299161600"), 0);
    EXPECT_EQ(Available("99999999999999999999"), 0);
}

TEST_F(DfReport, ANegativeCountGivesANegativeResultTruncatedTowardsZero) {
    EXPECT_EQ(Available("-1048575"), 0);
    EXPECT_EQ(Available("-1048576"), -1);
    EXPECT_EQ(Available("-2097151"), -1);
    EXPECT_EQ(Available("-2147483648"), -2048);
    EXPECT_EQ(Available("-2147483649"), 0);
}

TEST_F(DfReport, AFieldThatIsNoIntegerGivesNothing) {
    for (const std::string field :
         {"-", "many", "5242880K", "5G", "5242880.0", "0x500000", "5,242,880", "52428800%"}) {
        SCOPED_TRACE(field);
        EXPECT_EQ(Available(field), 0);
    }
    EXPECT_EQ(Available("+5242880"), 5);
    EXPECT_EQ(Available("0005242880"), 5);
}

TEST_F(DfReport, RunsOfBlanksSeparateFields) {
    EXPECT_EQ(Report(Heading + "  /dev/sda1   976762584  10485760    5242880   2%   /var  \n"), 5);
    EXPECT_EQ(Report(Heading + "/dev/sda1 976762584 10485760 5242880"), 5);
}

TEST_F(DfReport, TabsSeparateNothing) {
    EXPECT_EQ(Report(Heading + "/dev/sda1\t976762584\t10485760\t5242880\t2%\t/var\n"), 0);
    EXPECT_EQ(Report(Heading + "/dev/sda1\t1 976762584 10485760 5242880 2% /var\n"), 5);
}

TEST_F(DfReport, ABlankInTheNameMovesTheColumns) {
    EXPECT_EQ(Report(Heading + "/dev/my disc 976762584 10485760 524288000 2% /var\n"), 10);
}

TEST_F(DfReport, ANameOfOtherLettersIsOneField) {
    EXPECT_EQ(Report(Heading + "größe:/données 976762584 10485760 5242880 2% /var\n"), 5);
}

TEST_F(DfReport, TheSecondLineCountsWhateverStandsAroundIt) {
    const std::string line = "/dev/sda1 976762584 10485760 5242880 2% /var\n";
    EXPECT_EQ(Report("Dateisystem\n" + line), 5);
    EXPECT_EQ(Report("\n" + line), 5);
    EXPECT_EQ(Report(Heading + line + "/dev/sdb1 976762584 10485760 524288000 2% /srv\n"), 5);
    EXPECT_EQ(Report(Heading + "\n" + line), 0);
    EXPECT_EQ(Report(Heading + line + std::string(300000, 'x')), 5);
}

TEST_F(DfReport, FewerThanFourFieldsGiveNothing) {
    EXPECT_EQ(Report(Heading + "/dev/sda1 976762584 10485760\n"), 0);
    EXPECT_EQ(Report(Heading + "5242880\n"), 0);
    EXPECT_EQ(Report(Heading + "    \n"), 0);
}

TEST_F(DfReport, AHeadingAloneGivesNothing) {
    EXPECT_EQ(Report(Heading), 0);
    EXPECT_EQ(Report("1 2 3 5242880 5"), 0);
    EXPECT_EQ(Report("1 2 3 5242880 5\n"), 0);
}

TEST_F(DfReport, AnEmptyReportGivesNothing) {
    EXPECT_EQ(Report(""), 0);
    EXPECT_EQ(Report("\n"), 0);
    EXPECT_EQ(Report("\n\n\n"), 0);
}

TEST_F(DfReport, CountsWhateverTheToolEndsWith) {
    const std::string report = "printf 'x\\n/dev/sda1 9 9 5242880 2%% /var\\n'; ";
    MakeDf(report + "exit 1");
    EXPECT_EQ(Measure(), 5);
    MakeDf(report + "kill -KILL $$");
    EXPECT_EQ(Measure(), 5);
}

TEST_F(DfReport, IsNotLookedForOnStderr) {
    MakeDf("printf 'x\\n/dev/sda1 9 9 5242880 2%% /var\\n' >&2");
    EXPECT_EQ(Measure(), 0);
    MakeDf("echo 'df: /tmp: odd' >&2; printf 'x\\n/dev/sda1 9 9 5242880 2%% /var\\n'");
    EXPECT_EQ(Measure(), 5);
}

}  // namespace
}  // namespace hx_test
