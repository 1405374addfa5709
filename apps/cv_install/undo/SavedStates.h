// The states before the last setups as root, in the private directory of the record.
#pragma once

#include <optional>
#include <string>

#include "Problem.h"
#include "installation/StagedMachine.h"
#include "record/RecordDirectory.h"
#include "record/RecordText.h"
#include "undo/SavedSetup.h"

// A numbered directory for each of the last three setups that changed something: what the setup
// changes, the content of the files that it replaces or removes, and the record of that time. One
// without its file "state" was not completed and is ignored.
class SavedStates {
public:
    SavedStates();

    // Called before the setup changes anything. Saves on the disk what it is about to change. After
    // an interrupted setup, it adds to the state before that one. `liveTree` is the live install
    // directory, or -1.
    Failure Begin(const SetupFacts& facts, const Differences& differences, int liveTree);

    // The setup is complete. Reports what fails, after which the next setup adds to this state.
    void Complete();

    // The setup failed, and its changes were undone.
    void Discard();

    // Opens the state before the last setup. Fails without one.
    Failure LoadLast();

    const SavedSetup& Saved() const { return m_saved; }
    const SetupFacts& Facts() const { return m_facts; }  // of the setup that is undone

    // What was at the paths that the setup changed. `content` has descriptors of its own.
    Failure OpenContent(StagedMachine& content) const;

    // Notes whether the state is about a complete setup.
    Failure NoteComplete(bool isComplete);

    // Puts the record of that time back and removes the state.
    Failure RestoreRecord();

    // Removes what a setup or undo left that was killed when it saved or removed a state.
    void RemoveLeftovers();

    // After a setup that saved no state. Fails if a state remains that would be wrong then.
    static Failure RemoveAll();

private:
    Failure Open(bool creates);
    Failure FindLast(bool& isFound);
    Failure Write();
    Failure SaveRecord();
    Failure SaveContents(const Differences& differences, int liveTree) const;
    void Prune() const;
    void RemoveState(const std::string& name) const;

    RecordDirectory m_record;
    Descriptor m_states;
    std::string m_name;      // of the state's directory
    Descriptor m_directory;  // the state's
    bool m_isNew = false;
    SetupFacts m_facts;
    SavedSetup m_saved;
};
