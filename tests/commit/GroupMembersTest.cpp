// The users to add to and to remove from the service group.
#include <gtest/gtest.h>

#include <random>

#include "commit/ScriptText.h"

namespace {

struct MembersCase {
    QStringList wanted;
    QStringList current;
    const char* joining;
    const char* leaving;
};

void ExpectChanges(const std::vector<MembersCase>& cases) {
    CInstallBase& run = hx_test::NewUserRun();
    for (const MembersCase& test : cases) {
        SCOPED_TRACE("wanted <" + test.wanted.join(u',').toStdString() + "> current <" +
                     test.current.join(u',').toStdString() + ">");
        run.m_serviceMembers = test.wanted;
        run.m_serviceCurrentMembers = test.current;
        EXPECT_EQ(run.AddServiceGroupUsers().toStdString(), test.joining);
        EXPECT_EQ(run.RemoveServiceGroupUsers().toStdString(), test.leaving);
        EXPECT_EQ(run.m_serviceMembers, test.wanted);
        EXPECT_EQ(run.m_serviceCurrentMembers, test.current);
    }
}

TEST(GroupMembers, AddsWantedNamesThatAreNotCurrent) {
    ExpectChanges({{{}, {}, "", ""},
                   {{"c", "a", "b"}, {}, "c a b", ""},
                   {{"a", "b", "c"}, {"a", "b", "c"}, "", ""},
                   {{"c", "a", "b"}, {"a", "b", "c"}, "", ""}});
}

TEST(GroupMembers, RemovesNoneWithFewerWantedThanCurrent) {
    ExpectChanges({{{}, {"a", "b", "c"}, "", ""},
                   {{"a"}, {"a", "b", "c"}, "", ""},
                   {{"x"}, {"a", "b"}, "x", ""},
                   {{"x", "y"}, {"a", "b", "c"}, "x y", ""}});
}

TEST(GroupMembers, RemovesUnwantedWithAsManyWantedAsCurrent) {
    ExpectChanges({{{"x"}, {"a"}, "x", "a"},
                   {{"x", "b"}, {"a", "b"}, "x", "a"},
                   {{"x", "y", "z"}, {"c", "b", "a"}, "x y z", "c b a"},
                   {{"a", "x", "y", "z"}, {"a"}, "x y z", ""},
                   {{"x", "b", "y", "z"}, {"a", "b"}, "x y z", "a"}});
}

TEST(GroupMembers, RemovesWantedWithHighIndex) {
    ExpectChanges({{{"x", "y", "z", "b"}, {"a", "b"}, "x y z", "a b"},
                   {{"x", "a"}, {"a"}, "x", "a"},
                   {{"x", "y", "a", "b"}, {"a", "b", "c"}, "x y", "b c"}});
}

TEST(GroupMembers, ComparesWholeNames) {
    ExpectChanges({{{"ada", "Bob"}, {"ad", "bob"}, "ada Bob", "ad bob"},
                   {{"jörg", "zoë"}, {"jörg", "rené"}, "zoë", "rené"}});
}

TEST(GroupMembers, ListsRepeatedNamesAndUsesFirstIndex) {
    ExpectChanges({{{"x", "x"}, {"a", "a"}, "x x", "a a"},
                   {{"x", "x", "b"}, {"a", "b", "b"}, "x x", "a"},
                   {{"b", "x", "x", "b"}, {"a", "b"}, "x x", "a"}});
}

// An empty name adds a space after the first name that is not empty.
TEST(GroupMembers, CountsEmptyNames) {
    ExpectChanges({{{""}, {}, "", ""},
                   {{"", "a"}, {}, "a", ""},
                   {{"a", ""}, {}, "a ", ""},
                   {{"a", "", "b"}, {}, "a  b", ""},
                   {{QString(), "b"}, {"", "a"}, "b", "a"}});
}

// The rule, name by name.
QString JoiningByTheRule(const QStringList& wanted, const QStringList& current) {
    QString names;
    for (const QString& name : wanted) {
        bool found = false;
        for (const QString& other : current)
            found = found || other == name;
        if (!found)
            names += names.isEmpty() ? name : QStringLiteral(" ") + name;
    }
    return names;
}

QString LeavingByTheRule(const QStringList& wanted, const QStringList& current) {
    QString names;
    for (const QString& name : current) {
        qsizetype i = 0;
        while (i < wanted.size() && wanted[i] != name)
            ++i;
        if (i >= current.size())
            names += names.isEmpty() ? name : QStringLiteral(" ") + name;
    }
    return names;
}

// Returns short names of few letters, so that equal and empty names are frequent.
QStringList RandomNames(std::mt19937& random) {
    QStringList names(std::uniform_int_distribution<qsizetype>(0, 9)(random));
    for (QString& name : names) {
        for (unsigned length = random() % 8 == 0 ? 0 : 1 + random() % 2; length > 0; --length)
            name += QChar::fromLatin1("abcdE"[random() % 5]);
    }
    return names;
}

TEST(GroupMembers, FollowsRuleForRandomNames) {
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
            << run.m_serviceCurrentMembers.join(u',').toStdString() << " current";
    }
    // Both outcomes must be frequent.
    EXPECT_GT(leaving, 2000);
    EXPECT_LT(leaving, 18000);
}

}  // namespace
