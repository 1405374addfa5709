// The installation table: everything that a setup creates, changes or removes. Its paths, modes and
// owners are written here and nowhere else in the programs, the packages and the guide.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>
#include <string_view>

enum class Kind { Directory, File, Link, Group, User, EarlierService };

// The owner after a setup as root. After a user's setup the user owns everything.
enum class Owner {
    Root,
    ServiceAccount  // every setup as root sets it
};

// What a later setup does with an entry that exists.
enum class Later {
    Rewrites,      // writes the content again
    Appends,       // adds to the content
    Updates,       // replaces one that differs
    KeepsContent,  // sets mode and owner
    Keeps,         // changes nothing but the owner
    Removes        // an entry of an earlier version
};

// How a setup checks the content that it wrote.
enum class Check {
    None,
    ExpectedBytes,  // against bytes that the setup knows
    Ending,         // ends with the text in `reference`
    Archive         // everything below it, against the product's archive in `reference`
};

// Whose content it is.
enum class Content {
    Setup,
    Shared,  // of the setup, and of the service or users who edit it
    Users
};

enum class Removal {
    Remove,
    RemoveIfEmpty,
    Purge,  // only when settings are removed too
    Keep
};

// A condition on the setup; an entry exists when all of its conditions are met.
enum Condition : unsigned {
    AnySetup = 0,
    AsRoot = 1,
    AsUser = 2,
    WithoutClusterNode = 4,
    WithSubmissionScripts = 8,
    WithEarlierRepository = 16,  // a repository of the previous version, at the first setup
    WithEarlierServices = 32,    // services of earlier versions
    WithFileLocksOnly = 64,      // on a file system that cannot lock directories
    DuringMerge = 128,           // removed at the end of the setup
    InPlace = 256,               // not of a staged setup
    ByVerification = 512,        // not of a setup
    ForUndo = 1024               // not part of the installation
};

// Names an entry that code refers to on its own.
enum class Item {
    Unnamed,
    InstallDirectory,
    RunScript,
    SnapshotScript,
    QueueEntries,
    PrivateDirectory,
    QueueLimits,
    QChemLimits,
    QChemScratch,
    SambaScript,
    SshScript,
    RenderedUnit,
    ServiceScript,
    Unit,
    AccountRecord,
    CommitScript,
    Record,
    Manifest,
    RecordPrivate,
    RecordedAnswers,
    RecordedScript,
    Verification,
    SavedStates,
    UserRecord,
    RootLog,
    UserLog,
    RootLock,
    UserLock
};

inline constexpr std::string_view randomPart = "XXXXXX";

// In the path of a user's record: the directory of records, unless XDG_STATE_HOME names another
// one, and what the name of the install directory is as systemd-escape --path writes it.
inline constexpr const char* userRecords = "~/.local/state";
inline constexpr std::string_view escapedPart = "INSTALL-DIRECTORY";

// In a private directory of a merge: the directory of new entries, and how other names begin.
inline constexpr const char* newEntriesName = "corvane26_new";
inline constexpr std::string_view slotPrefix = "corvane26_slot.";

struct Entry {
    Item item = Item::Unnamed;
    // Relative to the install directory, or absolute, with `randomPart` for random characters, or
    // below the user's directory of records, which `userRecords` stands for. Empty for the install
    // directory itself and for accounts, whose names are settings.
    const char* path = "";
    const char* purpose = "";  // for the guide; may be empty
    Kind kind = Kind::File;
    mode_t rootMode = 0;  // permission bits after a setup as root; 0 for what has none
    mode_t userMode = 0;  // after a user's setup
    Owner owner = Owner::Root;
    unsigned conditions = AnySetup;
    Later later = Later::Rewrites;
    bool ownsAllBelow = false;  // the owner also receives everything below it
    Check check = Check::None;
    const char* reference = nullptr;  // see Check; for a link, its target, in the form of `path`
    const char* source = nullptr;     // the product's file that it is made from
    Content content = Content::Setup;
    Removal removal = Removal::Remove;
    bool removesAllBelow = false;  // removal includes everything below it
    bool allVersions = false;      // installations of other versions use the same entry
    bool serviceUses = false;      // the service must be restarted when it changes
};

// Every entry, parents before children.
std::span<const Entry> Entries();

// The entry of a name other than Unnamed.
const Entry& Find(Item item);

// True when the entry is below the install directory, or the install directory itself.
bool IsInTree(const Entry& entry);

// The absolute path of an entry of the file system. `installDir` has no trailing slash.
std::string PathOf(const Entry& entry, const std::string& installDir);

// True when a setup that meets exactly `conditions` creates or updates the entry.
bool Applies(const Entry& entry, unsigned conditions);

// The install directory of a setup as root.
inline constexpr const char* sharedDirectory = "/var/corvane";

// The directories outside the install directory in which a staged setup makes changes.
inline constexpr const char* etcDirectory = "/etc";
inline constexpr const char* binDirectory = "/usr/bin";

// True for an entry in these directories or in the install tree.
bool IsStaged(const Entry& entry);

// The repository whose link the commit script copies, relative to the install directory.
inline constexpr const char* earlierRepository =
    "corvanerc/corvane24server/CorvaneServerRepository";

// The directory below the install directory that contains the web pages.
inline constexpr const char* pagesParent = "corvanerc/corvane26server";

// The command that runs the run script after a setup as root.
inline constexpr const char* commandName = "corvane26";

inline constexpr const char* serviceUnit = "corvane26_service.service";

// The service account as a setup as root creates it.
inline constexpr const char* accountName = "corvsrvc";
inline constexpr const char* accountComment = "Corvane Compute Service";
inline constexpr const char* accountShellForExternalQueue = "/bin/bash";

// What the account tools change when they create an account or change its members.
std::span<const char* const> AccountFiles();
