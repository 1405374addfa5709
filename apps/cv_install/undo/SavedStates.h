// The states before the last setups, in the private directory of the record.
#pragma once

#include <optional>
#include <string>

#include "Problem.h"
#include "installation/StagedMachine.h"
#include "record/RecordDirectory.h"
#include "record/RecordText.h"
#include "undo/SavedSetup.h"
#include "undo/Snapshot.h"

// Relative to the directory of states. The script of the Debian package reads the paths in it.
inline constexpr const char* stateBeforeFirstSetup = "first/state";

// The directory of a state, and what is in its file "state". One without that file was not
// completed and is ignored.
struct OpenState {
    std::string name;  // empty without a state
    Descriptor directory;
    bool isNew = false;
    bool wasComplete = false;  // before a setup added to it
    SetupFacts formerFacts;    // likewise
    SetupFacts facts;
    SavedSetup saved;
};

// A numbered directory for each of the last three setups that changed something: what the setup
// changes, the content of the files that it replaces or removes, and the record of that time. The
// directory "first" has the same for the state before the first setup, which all setups add to. It
// exists if all setups saved their states.
class SavedStates {
public:
    explicit SavedStates(const QString& installDir);

    // Called before the setup changes anything. Saves on the disk what it is about to change. After
    // an interrupted setup, it adds to the state before that one. Removes states of another
    // machine. `liveTree` is the live install directory, or -1.
    Failure Begin(const SetupFacts& facts, const Differences& differences, int liveTree);

    // The same for a setup in place. That of a user without a home directory saves nothing.
    Failure BeginInPlace(const SetupFacts& facts, const SetupInPlace& setup);

    // False if the directory of the record could not be opened or created.
    bool HasRecord() const { return m_record.Private() != -1; }

    // The setup is complete. Reports what fails, after which the next setup adds to this state.
    void Complete();

    // The setup in place failed, and its changes stay. What others change from now on is theirs.
    void NoteFailed();

    // The setup failed, and its changes were undone.
    void Discard();

    // Opens the state before the last setup. Fails without one.
    Failure LoadLast();

    // Opens the state before the last setup, unless that setup is complete; `isFound` is false
    // then. Without `includesStaged`, only a setup in place counts.
    Failure LoadUnfinished(bool includesStaged, bool& isFound);

    // Opens the state before the first setup; `isFound` is false if it was not saved.
    Failure LoadFirst(bool& isFound);

    // The directory of states in messages.
    QString Path() const { return m_record.PathOf(Item::SavedStates); }

    const SavedSetup& Saved() const { return m_state.saved; }
    const SetupFacts& Facts() const { return m_state.facts; }  // of the setup that is undone

    // What was at the paths that the setup changed. `content` has descriptors of its own.
    Failure OpenContent(StagedMachine& content) const;

    // Notes whether the state is about a complete setup. A removal that begins notes in the state
    // before the first setup that it is not.
    Failure NoteComplete(bool isComplete);

    // Puts the record of that time back and removes the state.
    Failure RestoreRecord();

    // Removes what a setup or undo left that was killed when it saved or removed a state.
    void RemoveLeftovers();

    // After setups were removed. The state before the first one is about `remaining` from now on,
    // no setup can be undone, and there is no manifest.
    Failure KeepFirst(const SetupFacts& facts, const SavedSetup& remaining);

    // Removes the whole record, the state before the first setup last.
    Failure RemoveRecord();

private:
    Failure Open(bool creates);
    Failure Load(const std::string& name, OpenState& state, bool& isFound) const;
    Failure FindLast(OpenState& last, bool& isFound) const;
    Failure FindInterruptedRemoval() const;
    Failure Create(const std::string& name, OpenState& state) const;
    Failure BeginAttempt(const SetupFacts& facts, const Differences& attempt, bool isResultKnown,
                         int liveTree);
    Failure AddAttempt(const SetupFacts& facts, const Differences& attempt, bool isResultKnown,
                       int liveTree, OpenState& state) const;
    Failure BeginFirst(const SetupFacts& facts, const Differences& attempt, bool isResultKnown,
                       int liveTree);
    Failure CompleteAttempt(SavedSetup& saved) const;
    std::string PathOfStates() const;
    Failure Write(const OpenState& state) const;
    Failure SaveRecord(OpenState& state) const;
    void RemoveForeign(const std::vector<unsigned>& numbers) const;
    void RemoveAttempt(OpenState& state) const;
    bool RestoreFirst();
    void RemoveNumbered() const;
    void Prune() const;
    void RemoveState(const std::string& name) const;
    void RemoveDirectory() const;

    const QString m_installDir;
    RecordDirectory m_record;
    Descriptor m_states;
    OpenState m_state;  // a numbered one, or the first
    OpenState m_first;  // while a setup adds to it
};
