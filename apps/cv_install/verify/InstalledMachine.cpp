#include "verify/InstalledMachine.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "installation/RootPath.h"
#include "installation/ServiceState.h"
#include "installation/Tool.h"
#include "record/InstalledEntries.h"

namespace {

constexpr std::chrono::seconds longestReply(10);
constexpr const char* programName = "cv_install";

// Compares the attributes of one account.
class AccountComparison {
public:
    AccountComparison(const char* kind, const std::string& name, VerifyResult& result)
        : m_kind(kind), m_name(QString::fromStdString(name)), m_result(result) {}

    void Add(const char* attribute, const QString& expected, const QString& found) {
        if (expected != found)
            m_result.differences.push_back({{}, m_name, m_kind, attribute, expected, found});
    }
    void AddText(const char* attribute, const std::string& expected, const char* found) {
        Add(attribute, QString::fromStdString(expected), QString::fromUtf8(found));
    }
    void AddNumber(const char* attribute, id_t expected, id_t found) {
        Add(attribute, QString::number(expected), QString::number(found));
    }
    void AddMissing() { Add("kind", QLatin1String(m_kind), QStringLiteral("missing")); }

private:
    const char* m_kind;
    QString m_name;
    VerifyResult& m_result;
};

void CompareMembers(const AccountFacts& expected, const group& live, VerifyResult& result) {
    const QString group = QString::fromStdString(expected.group);
    std::vector<std::string> found;
    for (char** member = live.gr_mem; *member != nullptr; ++member)
        found.emplace_back(*member);
    const auto add = [&](const std::string& name, bool wasMember) {
        const QString member = QStringLiteral("in ") + group;
        const QString other = QStringLiteral("not in ") + group;
        result.differences.push_back({{},
                                      QString::fromStdString(name),
                                      VerifyResult::member,
                                      "group",
                                      wasMember ? member : other,
                                      wasMember ? other : member});
    };
    for (const std::string& name : expected.members) {
        if (std::ranges::find(found, name) == found.end())
            add(name, true);
    }
    for (const std::string& name : found) {
        if (std::ranges::find(expected.members, name) == expected.members.end())
            add(name, false);
    }
}

bool IsTrusted(const std::string& program) {
    RootPath place;
    return getuid() != 0 || !ResolveRootPath(program, true, place);
}

// True for the directory of this program.
bool IsOwnProduct(const std::string& productDir) {
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
    return !error && own.parent_path() == productDir;
}

}  // namespace

void CompareAccount(const AccountFacts& expected, VerifyResult& result) {
    AccountComparison user(VerifyResult::user, expected.user, result);
    if (const passwd* found = getpwnam(expected.user.c_str())) {
        user.AddNumber("uid", expected.uid, found->pw_uid);
        user.AddNumber("gid", expected.primaryGid, found->pw_gid);
        user.AddText("home", expected.home, found->pw_dir);
        user.AddText("shell", expected.shell, found->pw_shell);
    } else {
        user.AddMissing();
    }
    AccountComparison group(VerifyResult::group, expected.group, result);
    if (const struct group* found = getgrnam(expected.group.c_str())) {
        group.AddNumber("gid", expected.gid, found->gr_gid);
        CompareMembers(expected, *found, result);
    } else {
        group.AddMissing();
    }
}

void CompareService(const QStringList& lines, VerifyResult& result) {
    const QString state = PropertyOf(lines, "ActiveState");
    if (state.isEmpty()) {
        result.unchecked.push_back({QLatin1String(serviceUnit),
                                    QStringLiteral("the service manager is not running"), true});
        return;
    }
    const bool isStopped = !StateOfIdleService(lines).isEmpty();
    const bool isRestarting = PropertyOf(lines, "SubState") == u"auto-restart";
    const bool isChanging = state == u"activating" || state == u"deactivating" ||
                            state == u"reloading" || state == u"refreshing";
    if (state == u"active" || isStopped || (isChanging && !isRestarting))
        return;
    result.differences.push_back(
        {{},
         QLatin1String(serviceUnit),
         VerifyResult::service,
         "state",
         QStringLiteral("active"),
         isRestarting ? QStringLiteral("restarting after a failure") : state});
}

void CompareCommands(const std::vector<std::string>& commands, VerifyResult& result) {
    for (const std::string& command : commands) {
        const QString path = QString::fromStdString(command);
        if (!IsExecutable(path)) {
            result.differences.push_back(
                {path, {}, "file", "executable", QStringLiteral("yes"), QStringLiteral("no")});
        }
    }
}

QString VersionOf(const std::string& productDir, QString& reason) {
    if (IsOwnProduct(productDir))
        return QStringLiteral(HX_VERSION);
    const std::string program = productDir + '/' + programName;
    if (!IsTrusted(program)) {
        reason = QStringLiteral("other users can replace it");
        return {};
    }
    const ToolOutput output = ReadTool({program, "--version"}, longestReply);
    const QString text = QString::fromUtf8(output.text.left(100));
    const QString start = QLatin1String(programName) + u' ';
    if (output.failure || !text.startsWith(start)) {
        reason = output.failure.value_or(QStringLiteral("it reports no version"));
        return {};
    }
    return text.mid(start.size()).section(u' ', 0, 0).trimmed();
}

void CompareProduct(const Manifest& manifest, VerifyResult& result) {
    const QString path = QString::fromStdString(manifest.productDir);
    std::error_code error;
    if (!std::filesystem::is_directory(manifest.productDir, error)) {
        result.differences.push_back({path,
                                      {},
                                      "directory",
                                      "kind",
                                      QStringLiteral("directory"),
                                      QStringLiteral("missing")});
        return;
    }
    QString reason;
    const QString version = VersionOf(manifest.productDir, reason);
    if (version.isEmpty()) {
        result.unchecked.push_back(
            {path + u'/' + QLatin1String(programName), reason, getuid() != 0});
    } else if (version != manifest.facts.version) {
        result.differences.push_back(
            {path, {}, "directory", "version", manifest.facts.version, version});
    }
}

bool HasService(const Manifest& manifest) {
    const std::string unit = std::string(Find(Item::Unit).path).substr(1);
    return std::ranges::any_of(
        manifest.entries, [&](const ManifestEntry& entry) { return entry.path.ends_with(unit); });
}
