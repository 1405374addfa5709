// Who enters and who leaves the service group.
#include <gtest/gtest.h>

#include <random>

#include "commit/ScriptText.h"

namespace {

struct Changes {
    std::string joining;
    std::string leaving;

    bool operator==(const Changes&) const = default;
};

void PrintTo(const Changes& changes, std::ostream* out) {
    *out << "joining <" << changes.joining << "> leaving <" << changes.leaving << ">";
}

Changes ChangesFor(const QStringList& wanted, const QStringList& present) {
    CInstallBase& run = hx_test::NewUserRun();
    run.m_serviceMembers = wanted;
    run.m_serviceCurrentMembers = present;
    const Changes changes = {run.AddServiceGroupUsers().toStdString(),
                             run.RemoveServiceGroupUsers().toStdString()};
    EXPECT_EQ(run.m_serviceMembers, wanted);
    EXPECT_EQ(run.m_serviceCurrentMembers, present);
    return changes;
}

// Names of one letter each.
QStringList Names(const char* letters) {
    QStringList names;
    for (const char* letter = letters; *letter != '\0'; ++letter)
        names.append(QChar::fromLatin1(*letter));
    return names;
}

Changes ChangesFor(const char* wanted, const char* present) {
    return ChangesFor(Names(wanted), Names(present));
}

TEST(GroupMembers, NobodyChangesWithoutNames) {
    EXPECT_EQ(ChangesFor("", ""), (Changes{"", ""}));
}

TEST(GroupMembers, AnEmptyGroupTakesEveryWantedNameInOrder) {
    EXPECT_EQ(ChangesFor("cab", ""), (Changes{"c a b", ""}));
}

TEST(GroupMembers, AnEmptyWantedListRemovesNobody) {
    EXPECT_EQ(ChangesFor("", "abc"), (Changes{"", ""}));
}

TEST(GroupMembers, TheSameNamesInAnyOrderChangeNothing) {
    EXPECT_EQ(ChangesFor("abc", "abc"), (Changes{"", ""}));
    EXPECT_EQ(ChangesFor("cab", "abc"), (Changes{"", ""}));
}

TEST(GroupMembers, FewerWantedThanPresentNamesRemoveNobody) {
    EXPECT_EQ(ChangesFor("a", "abc"), (Changes{"", ""}));
    EXPECT_EQ(ChangesFor("x", "ab"), (Changes{"x", ""}));
    EXPECT_EQ(ChangesFor("xy", "abc"), (Changes{"x y", ""}));
}

TEST(GroupMembers, WithAsManyWantedNamesThoseNotWantedLeave) {
    EXPECT_EQ(ChangesFor("x", "a"), (Changes{"x", "a"}));
    EXPECT_EQ(ChangesFor("xb", "ab"), (Changes{"x", "a"}));
    EXPECT_EQ(ChangesFor("xyz", "cba"), (Changes{"x y z", "c b a"}));
}

TEST(GroupMembers, AWantedNameWithinTheNumberOfPresentOnesStays) {
    EXPECT_EQ(ChangesFor("axyz", "a"), (Changes{"x y z", ""}));
    EXPECT_EQ(ChangesFor("xbyz", "ab"), (Changes{"x y z", "a"}));
}

TEST(GroupMembers, AWantedNameBehindTheNumberOfPresentOnesLeaves) {
    EXPECT_EQ(ChangesFor("xyzb", "ab"), (Changes{"x y z", "a b"}));
    EXPECT_EQ(ChangesFor("xa", "a"), (Changes{"x", "a"}));
    EXPECT_EQ(ChangesFor("xyab", "abc"), (Changes{"x y", "b c"}));
}

TEST(GroupMembers, ANameIsComparedAsAWholeAndByCase) {
    EXPECT_EQ(ChangesFor({QStringLiteral("ada"), QStringLiteral("Bob")},
                         {QStringLiteral("ad"), QStringLiteral("bob")}),
              (Changes{"ada Bob", "ad bob"}));
}

TEST(GroupMembers, NamesOutsideAsciiAreComparedAndKept) {
    EXPECT_EQ(ChangesFor({QStringLiteral("jörg"), QStringLiteral("zoë")},
                         {QStringLiteral("jörg"), QStringLiteral("rené")}),
              (Changes{"zoë", "rené"}));
}

TEST(GroupMembers, ANameThatStandsTwiceIsListedTwice) {
    EXPECT_EQ(ChangesFor("xx", "aa"), (Changes{"x x", "a a"}));
    EXPECT_EQ(ChangesFor("xxb", "abb"), (Changes{"x x", "a"}));
}

TEST(GroupMembers, TheFirstOfEqualWantedNamesCounts) {
    EXPECT_EQ(ChangesFor("bxxb", "ab"), (Changes{"x x", "a"}));
}

// An empty name adds its blank behind the first name that is not empty.
TEST(GroupMembers, EmptyNamesCountAsNames) {
    const QString empty;
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    EXPECT_EQ(ChangesFor({empty}, QStringList()), (Changes{"", ""}));
    EXPECT_EQ(ChangesFor({empty, a}, QStringList()), (Changes{"a", ""}));
    EXPECT_EQ(ChangesFor({a, empty}, QStringList()), (Changes{"a ", ""}));
    EXPECT_EQ(ChangesFor({a, empty, b}, QStringList()), (Changes{"a  b", ""}));
    EXPECT_EQ(ChangesFor({empty, b}, {QStringLiteral(""), a}), (Changes{"b", "a"}));
}

// The rule as it is written down, name by name.
QString JoiningByTheRule(const QStringList& wanted, const QStringList& present) {
    QString names;
    for (const QString& name : wanted) {
        bool found = false;
        for (const QString& other : present)
            found = found || other == name;
        if (!found)
            names += names.isEmpty() ? name : QStringLiteral(" ") + name;
    }
    return names;
}

QString LeavingByTheRule(const QStringList& wanted, const QStringList& present) {
    QString names;
    for (const QString& name : present) {
        qsizetype i = 0;
        while (i < wanted.size() && wanted[i] != name)
            ++i;
        if (i >= present.size())
            names += names.isEmpty() ? name : QStringLiteral(" ") + name;
    }
    return names;
}

// Short names from few letters, so that equal names, and empty ones, come often.
QStringList RandomNames(std::mt19937& random) {
    QStringList names(std::uniform_int_distribution<qsizetype>(0, 9)(random));
    for (QString& name : names) {
        for (unsigned length = random() % 8 == 0 ? 0 : 1 + random() % 2; length > 0; --length)
            name += QChar::fromLatin1("abcdE"[random() % 5]);
    }
    return names;
}

TEST(GroupMembers, RandomListsGiveWhatTheRuleGives) {
    CInstallBase& run = hx_test::NewUserRun();
    std::mt19937 random(26);
    int leaving = 0;
    for (int round = 0; round < 20000; ++round) {
        run.m_serviceMembers = RandomNames(random);
        run.m_serviceCurrentMembers = RandomNames(random);
        const QString expected =
            LeavingByTheRule(run.m_serviceMembers, run.m_serviceCurrentMembers);
        leaving += !expected.isEmpty();
        ASSERT_EQ(run.AddServiceGroupUsers(),
                  JoiningByTheRule(run.m_serviceMembers, run.m_serviceCurrentMembers));
        ASSERT_EQ(run.RemoveServiceGroupUsers(), expected)
            << run.m_serviceMembers.join(u',').toStdString() << " wanted, "
            << run.m_serviceCurrentMembers.join(u',').toStdString() << " present";
    }
    // Both outcomes came up often enough to mean something.
    EXPECT_GT(leaving, 2000);
    EXPECT_LT(leaving, 18000);
}

}  // namespace
