#include "merge/Merge.h"

#include <grp.h>
#include <pwd.h>

#include <optional>

#include "installation/TimeLimit.h"
#include "merge/Accounts.h"
#include "merge/Services.h"
#include "merge/TreeMerge.h"
#include "merge/Undo.h"

namespace {

Failure PlaceEverything(TreeMerge& tree, const Differences& differences, Undo& undo) {
    const TimeLimit limit;
    Failure failure = tree.PlaceInTree(differences.paths, undo);
    if (!failure)
        failure = tree.PlaceOutside(differences.paths, undo);
    if (!failure)
        failure = tree.Verify();
    return failure;
}

Failure FindIds(const StagedMachine& staged, uid_t& account, gid_t& groupId) {
    const passwd* user = getpwnam(staged.serviceUser.toUtf8().constData());
    const group* found = getgrnam(staged.serviceGroup.toUtf8().constData());
    if (user == nullptr || found == nullptr) {
        return Problem{ExitStatus::SystemCallFailed,
                       QStringLiteral("the service account %1:%2 is unknown")
                           .arg(staged.serviceUser, staged.serviceGroup),
                       QStringLiteral("Make sure that the user database can be read, then run the "
                                      "setup again.")};
    }
    account = user->pw_uid;
    groupId = found->gr_gid;
    return {};
}

}  // namespace

Failure Merge(const StagedMachine& staged, const Differences& differences) {
    std::optional<ServiceAccount> recorded;
    if (Failure failure = ReadServiceAccount(recorded))
        return failure;
    Undo undo;
    StopEarlierServices(differences, undo);
    Failure failure = ApplyAccounts(differences, undo);
    uid_t account = 0;
    gid_t groupId = 0;
    if (!failure)
        failure = FindIds(staged, account, groupId);
    TreeMerge tree(staged, account, groupId, recorded ? recorded->uid : static_cast<uid_t>(-1));
    if (!failure)
        failure = PlaceEverything(tree, differences, undo);
    if (failure)
        return TakeBackAfter(std::move(failure), undo);
    undo.Forget();
    tree.Finish();
    StartService(differences);
    return {};
}
