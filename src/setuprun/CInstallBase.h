// The setup record, the entry point of the library.
#pragma once

#include <QString>
#include <QStringList>

#include "support/hx_export.h"

class COSRelease;

// Belongs to the executables that use the library, which itself ignores it.
extern "C" HX_EXPORT unsigned char g_hx_gui_installer;

// One setup, from the constructor to the end of the process. The executable constructs it, or a
// class derived from it, with its own arguments and then calls, in this order:
//
//   1. the prompts: job limit, memory limit, scratch directory, scratch limit, queue type, members;
//   2. the writers of the run-time files that it needs;
//   3. WriteCommitScript, and runs the script with a CCommitScript of its own.
//
// The prompts set fields. The writers read fields and change none. Only the commit script changes
// the machine outside the run-time files. The order of the prompts matters: the default memory
// limit depends on the job limit, and the default scratch limit on the scratch directory.
//
// Members of the service group can write to the install directory of a setup as root at any time,
// and this class works there by name. A caller that runs as root must therefore hide the directory
// from other users, as cv_install does, before it calls the constructor, PreserveSettings, which
// reads QueueLimits, CreateInstallDirectory, or a writer, and before it runs a commit script.
//
// A failure ends the process through InstallError unless the operation documents another error
// return. Not thread-safe. Text is read and written as UTF-8.
//
// The order of the fields is part of the binary interface.
class HX_EXPORT CInstallBase {
public:
    // The value of m_accessFlags in a setup as root. Any other value is a setup as a user.
    static constexpr int RootAccess = 1;

    // What runs calculations. QueueUnset: not chosen yet; QueueInternal: the product's own queue;
    // QueueExternal: the queue of m_scheduler; QueueNone: no queue.
    enum QueueType { QueueUnset = 0, QueueInternal = 1, QueueExternal = 2, QueueNone = 3 };

    // Checks the user's access, sets the install directory, exports CORV_CORVANERC, CORV_ACCESS,
    // and CORV_INSTALL to child processes, measures the machine, reads the limits of the previous
    // setup, and applies the command line. Ends the process with status 14 if the working
    // directory is unknown, 1 if the user is not root and `allowNonRoot` is false, and 2 if the
    // amount of memory is unknown. `argv` must end with a null pointer.
    CInstallBase(bool allowNonRoot, int argc, char** argv);

    // Compatibility: does not free m_osRelease, which callers may use until the process ends.
    virtual ~CInstallBase();

    CInstallBase(const CInstallBase&) = delete;
    CInstallBase& operator=(const CInstallBase&) = delete;

    // Returns true if one of argv[1] to argv[argc - 1] is "--user-mode". Call it before the
    // constructor to determine `allowNonRoot`.
    static bool ParseUserModeArg(int argc, char** argv);

    // Sets the fields that the options name. A later option overrides an earlier one. Unknown words
    // and invalid numbers are silently ignored. `argv` must end with a null pointer.
    void ParseArgs(int argc, char** argv);

    // Writes the directory part of `argv0`, appended to the working directory if it is relative, to
    // `buffer` of `size` bytes. The text is truncated to fit and always terminated. Does not
    // resolve links, search PATH, or normalize. If `argv0` is null or has no slash, writes the
    // working directory. Returns 0, or -1 with errno set if the working directory cannot be read or
    // does not fit.
    static int CurrentDirectory(const char* argv0, char* buffer, int size);

    // Sets m_serviceUid and m_serviceGid to the ids of `user` and `group`, or -1 if unknown, and
    // appends the members that the group record lists to m_serviceCurrentMembers.
    void DiscoverServiceUserGroup(const char* user, const char* group);

    // Copies the values of the install directory's QueueLimits file to the previous-value fields
    // and m_threadsPerMolecule. Without a readable file, changes nothing.
    void PreserveSettings();

    // Prints an error to stderr, with the text of `errnum` on a further line unless it is 0, and
    // calls exit(status). Flushes stdout first; a closed stdout does not prevent the message or
    // change the status. Does not destroy objects on the stack.
    [[noreturn]] static void InstallError(const QString& message, int status, int errnum);

    // Prints a warning to stderr in the same format and returns.
    static void InstallWarning(const QString& message, int errnum);

    // Prompts for a line on stdin and discards it. Does nothing if m_interactive is false.
    void InstallPause();

    // Prints a line of 60 hyphens to stdout.
    static void InstallSeparator();

    // The prompts. Each prints to stdout only and sets the named fields. If m_interactive is
    // false, the limit, directory, and member prompts use their defaults; PromptQueueType still
    // reads stdin if m_queueType is unset. At end of input, a menu ends the process with status 2.

    // Sets m_jobLimit to 1 or more. The default is m_coreCount, unchecked.
    void PromptJobLimit();

    // Sets m_memoryLimitMB. Skips the question if m_argMemoryLimitMB is above 0. The default is
    // m_ramMB divided by m_jobLimit, which must not be 0, or the value of the previous setup if
    // its job limit was the same.
    void PromptMemoryLimit();

    // Sets m_scratchDir without checking it. The default is m_prevScratchDir or, if that is empty,
    // m_scratchDir.
    void PromptScratchDirectory();

    // Sets m_scratchLimitGB. Skips the question if m_argScratchLimitGB is above 0. The default is
    // the free space of m_scratchDir divided by m_jobLimit, 1 if the free space is unknown, or the
    // value of the previous setup if its job limit and scratch directory were the same.
    void PromptScratchLimit();

    // Sets m_queueType if it is unset, calls PromptExternalQueueOptions for an external queue, and
    // prints the queue in any case.
    void PromptQueueType();

    // Sets m_scheduler, the name of its queue or partition, and its commands.
    void PromptExternalQueueOptions();

    // Sets m_serviceMembers to the names of the answer or, if it has none, to
    // m_serviceCurrentMembers. Does not check that the names exist.
    void PromptComputeServiceGroupMembers();

    // Compatibility: does nothing; callers of earlier versions call it.
    void PromptQueueAllow();

    // Compatibility: does nothing; callers of earlier versions call it.
    void VerifyCRuntime();

    // Creates the missing directories of m_installDir with mode 0755, regardless of the umask, and
    // returns true. Does not change existing ones. On failure, ends the process with status 2.
    bool CreateInstallDirectory();

    // The writers. Each writes one file in m_installDir, which must exist, or one link in /usr/bin,
    // reports it on stdout if m_allowNonRoot is true, and returns 1. If a script cannot be opened,
    // the process ends with the error number as its status; on any other failure, with status 2.
    // A file that the user can write to is truncated in place; any other is removed first. Does not
    // detect write errors.

    // corvane26, the run script for callers without a commit script. Mode 0755.
    int WriteCorvaneOLD();

    // corvane26_snapshot, the run script of the snapshot program. Mode 0755.
    int WriteCorvaneSnapshot();

    // The link /usr/bin/corvane26 to the run script. Replaces any other link or file.
    int WriteCorvaneLink();

    // The link /usr/bin/corvane26_snapshot to the snapshot run script. Replaces in the same way.
    int WriteCorvaneSnapshotLink();

    // qchemrc/qchemrc, the Q-Chem limits m_scratchLimitGB and m_memoryLimitMB. Mode 0644. Creates
    // the directory with mode 0755 if it is missing.
    int WriteQChemRC();

    // qchemrc/qcscratch, the Q-Chem scratch directory. Mode 0644. Creates the directory as above.
    int WriteQCScratch();

    // corvane26_samba, the submission script for job requests in files. Mode 0755.
    int WriteCorvaneSamba();

    // corvane26_ssh, the submission script for remote shells. Mode 0755.
    int WriteCorvaneSsh();

    // queue_entries, always empty, for callers without a commit script. Mode 0666. Does not report.
    int CreateInternalQueueEntries();

    // QueueLimits with m_jobLimit alone, for callers without a commit script. Mode 0644. Does not
    // report.
    int WriteInternalQueueLimits();

    // Returns the names in m_serviceMembers that are not in m_serviceCurrentMembers, separated by
    // spaces.
    QString AddServiceGroupUsers();

    // Returns the current members to remove from the service group, separated by spaces. If fewer
    // names are wanted than current, returns none. Also returns a wanted name whose index in
    // m_serviceMembers is not below the number of current members.
    QString RemoveServiceGroupUsers();

    // Writes the commit script to a new file in /tmp, mode 0600, and sets `path` to it. Returns
    // false, with `path` empty and the cause on stderr, if the file cannot be opened. Does not
    // detect write errors. Nothing deletes the file. Field values are written without quoting:
    // the caller must reject values that would change the meaning of a line. `reserved` has no
    // effect.
    bool WriteCommitScript(QString& path, bool reserved);

    // Writes the commit script, starts it, and returns immediately, which can terminate the script
    // early. To wait for the script, use WriteCommitScript and CCommitScript.
    void Commit();

    COSRelease* m_osRelease = nullptr;  // release of the operating system; owned, never freed
    QString m_osName;                   // name of the operating system
    QString m_productTitle = QStringLiteral("Corvane'26");  // for the executable
    bool m_allowNonRoot = false;  // regular users are allowed, and the writers report on stdout
    QString m_binariesDir;        // product directory, from argv[0]
    QString m_installDir;         // the install directory
    int m_coreCount = 1;          // processor cores, from hx_cpu_count; 1 if that fails
    int m_ramMB = 0;              // physical memory in MB of 2^20 bytes, from procRAM; above 0
    int m_accessFlags = 0;        // RootAccess, or 2 (writable directory) plus 4 (command link)
    bool m_cdInstall = false;     // -c, -cd, --cd-install, for the executable
    bool m_interactive = true;    // false: most prompts use their defaults, pauses do not wait
    bool m_clusterNode = false;   // --cluster-node
    bool m_setup = false;         // --setup, for the executable
    bool m_userMode = false;      // --user-mode, for the executable
    QString m_serviceGroup = QStringLiteral("corvsrvc");      // service group
    QString m_serviceUser = QStringLiteral("corvsrvc");       // service user
    QString m_scheduler = QStringLiteral("TORQUE");           // "TORQUE" or "SLURM"
    int m_queueType = QueueUnset;                             // a QueueType
    QString m_queueName;                                      // Torque queue; empty: default queue
    QString m_qsubCmd;                                        // Torque command to submit a job
    QString m_qdelCmd;                                        // Torque command to delete a job
    QString m_qsigCmd;                                        // Torque command to signal a job
    QString m_partitionName;                                  // Slurm partition; empty: default
    QString m_sbatchCmd;                                      // Slurm command to submit a job
    QString m_scancelCmd;                                     // Slurm command to cancel a job
    QString m_compSrvcAllow = QStringLiteral("HTTP");         // protocols of the compute service
    int m_compSrvcHttpPort = 8080;                            // HTTP port of the compute service
    QString m_compSrvcHttpAddr = QStringLiteral("0.0.0.0");   // address to bind for HTTP
    int m_compSrvcHttpsPort = 8443;                           // HTTPS port of the compute service
    QString m_compSrvcHttpsAddr = QStringLiteral("0.0.0.0");  // address to bind for HTTPS
    QString m_compSrvcCert = QStringLiteral("cert.pem");      // certificate file name
    QString m_compSrvcKey = QStringLiteral("key.pem");        // private key file name
    QString m_compSrvcDh = QStringLiteral("dh.pem");          // Diffie-Hellman parameters file name
    int m_jobLimit = 0;                             // threads that run at once; 0: not asked yet
    int m_prevJobLimit = -1;                        // m_jobLimit of the previous setup; -1: none
    QString m_scratchDir = QStringLiteral("/tmp");  // temporary files of jobs
    QString m_prevScratchDir;                       // of the previous setup; empty: none
    int m_scratchLimitGB = 0;                       // scratch space per thread, in GB of 2^30 bytes
    int m_prevScratchLimitGB = -1;                  // of the previous setup; -1: none
    int m_argScratchLimitGB = -1;                   // -s, --scratch-limit; -1: not given
    int m_memoryLimitMB = 0;                        // memory per thread, in MB of 2^20 bytes
    int m_prevMemoryLimitMB = -1;                   // of the previous setup; -1: none
    int m_argMemoryLimitMB = -1;                    // -m, --memory-limit; -1: not given
    int m_threadsPerMolecule = 0;                   // from the previous setup; 0: none
    int m_serviceUid = -1;                          // id at start-up; -1: no such user
    int m_serviceGid = -1;                          // id at start-up; -1: no such group
    QStringList m_serviceMembers;                   // wanted service group members
    QStringList m_serviceCurrentMembers;            // current service group members
};
