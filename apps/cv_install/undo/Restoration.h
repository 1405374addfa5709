// What an undo and a removal have in common.
#pragma once

#include <functional>
#include <vector>

#include "answers/Arguments.h"
#include "installation/TreeOwners.h"
#include "merge/TreeMerge.h"
#include "report/Agreement.h"
#include "staging/Recorder.h"
#include "undo/UndoPlan.h"

// Restores the state before setups: finds what changes, shows it, asks, and carries it out.
class Restoration {
public:
    // Paths that the caller deletes itself, so that they are shown.
    using OtherReader = std::function<std::vector<PathDifference>(const UndoPlan& plan)>;

    // `saved` must remain. `content` has the content of files as it was.
    Restoration(const Arguments& arguments, UndoPurpose purpose, const SavedSetup& saved,
                StagedMachine content, OtherReader readOthers);

    // A removal does not ask if it changes nothing. For a further setup, shows and asks nothing.
    Failure Plan();

    // A failure is undone.
    Failure Apply();

    const Differences& Shown() const { return m_differences; }
    const UndoPlan& Found() const { return m_plan; }

private:
    Failure OpenTree(Descriptor& tree) const;
    Failure Read(LiveMachine& live);
    void ShowKept() const;
    void ShowContents(const Differences& differences) const;
    void OpenUnpackedDirectories(Undo& undo) const;
    Failure ApplyPaths(TreeMerge& tree, Undo& undo) const;
    std::vector<PathDifference> WithoutOthers() const;
    void DeleteAccounts() const;
    bool DeleteUnused(const AccountDifference& account, bool keepsGroup) const;

    const Arguments& m_arguments;
    const UndoPurpose m_purpose;
    const SavedSetup& m_saved;
    StagedMachine m_content;
    const OtherReader m_readOthers;
    ServiceStates m_services;
    TreeOwners m_owners = {};
    UndoPlan m_plan;
    std::vector<PathDifference> m_others;  // that the caller deletes
    Differences m_differences;             // that were shown
};

// What an action has instead of "setup canceled", "during the setup" and "run the setup again".
// `again` lacks its first letter, which is a capital at the beginning of a remedy.
struct ActionTexts {
    const char* canceled;
    const char* during;
    const char* again;
};

// Replaces the words of a setup in a problem by those of another action.
Failure AboutAction(Failure failure, const ActionTexts& texts);
