#include "harness/Pattern.h"

#include <QRegularExpression>
#include <map>
#include <stdexcept>

namespace hx_test {
namespace {

// A character for each byte, because the texts need not be valid UTF-8.
QString Characters(const std::string& bytes) {
    return QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

// Compiling an expression takes longer than using it.
const QRegularExpression& Compiled(const std::string& pattern) {
    static std::map<std::string, QRegularExpression> expressions;
    auto found = expressions.find(pattern);
    if (found == expressions.end()) {
        found = expressions.emplace(pattern, Characters(pattern)).first;
        if (!found->second.isValid())
            throw std::invalid_argument("invalid pattern " + pattern);
    }
    return found->second;
}

Match GroupsOf(const QRegularExpressionMatch& found) {
    Match groups;
    for (int i = 0; i <= found.regularExpression().captureCount(); ++i)
        groups.push_back(found.captured(i).toLatin1().toStdString());
    return groups;
}

std::string Replacement(const std::string& text, const Match& groups) {
    std::string filled;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '$')
            filled += groups.at(static_cast<size_t>(text.at(++i) - '0'));
        else
            filled += text[i];
    }
    return filled;
}

}  // namespace

bool IsMatch(const std::string& text, const std::string& pattern) {
    return Compiled("\\A(?:" + pattern + ")\\z").match(Characters(text)).hasMatch();
}

Match FirstMatch(const std::string& text, const std::string& pattern) {
    const QRegularExpressionMatch found = Compiled(pattern).match(Characters(text));
    return found.hasMatch() ? GroupsOf(found) : Match();
}

std::vector<Match> AllMatches(const std::string& text, const std::string& pattern) {
    std::vector<Match> all;
    for (const QRegularExpressionMatch& found : Compiled(pattern).globalMatch(Characters(text)))
        all.push_back(GroupsOf(found));
    return all;
}

std::string ReplaceMatches(const std::string& text, const std::string& pattern,
                           const std::string& replacement) {
    std::string result;
    size_t end = 0;
    for (const QRegularExpressionMatch& found : Compiled(pattern).globalMatch(Characters(text))) {
        const size_t start = static_cast<size_t>(found.capturedStart());
        result += text.substr(end, start - end) + Replacement(replacement, GroupsOf(found));
        end = static_cast<size_t>(found.capturedEnd());
    }
    return result + text.substr(end);
}

}  // namespace hx_test
