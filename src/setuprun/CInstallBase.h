// The record of one setup run, and the single entry to the library's logic.
#pragma once

#include <QString>
#include <QStringList>

#include "support/hx_export.h"

class COSRelease;

// Owned by the executables that use the library; the library itself never looks at it.
extern "C" HX_EXPORT unsigned char g_hx_gui_installer;

// One setup run, from its constructor to the end of the process. The executable constructs it, or
// a class derived from it, with its own arguments and then calls, in this order:
//
//   1. the prompts: job limit, memory limit, scratch directory, scratch limit, queue type, members;
//   2. the writers of the run-time files that it wants;
//   3. WriteCommitScript, and runs the script through a CCommitScript of its own.
//
// The prompts settle fields, the writers read them and change none; the commit script is what
// touches the machine. The order within the prompts matters: the memory limit divides by the job
// limit, and the scratch limit measures the scratch directory.
//
// A failure that the run cannot survive ends the process through InstallError. There is no other
// error return unless an operation says so. One thread; text goes in and out as UTF-8.
//
// The order of the fields is the library's binary interface.
class HX_EXPORT CInstallBase {
public:
    // A root run has exactly this value in m_accessFlags; every other value is a user run.
    static constexpr int RootAccess = 1;

    // Who runs calculations: nobody was named yet, the queue of the product, the scheduler of
    // m_scheduler, or nobody.
    enum QueueType { QueueUnset = 0, QueueInternal = 1, QueueExternal = 2, QueueNone = 3 };

    // Decides who may run and where the install directory is, sets CORV_CORVANERC, CORV_ACCESS and
    // CORV_INSTALL for everything that the run starts, measures the machine, reads the settings of
    // the last installation and applies the command line. Ends the process with status 14 without a
    // working directory, with 1 when the user is not root and `allowNonRoot` is false, and with 2
    // when the amount of memory cannot be told. `argv` ends with a null pointer.
    CInstallBase(bool allowNonRoot, int argc, char** argv);

    // Kept: m_osRelease stays allocated until the process ends.
    virtual ~CInstallBase();

    CInstallBase(const CInstallBase&) = delete;
    CInstallBase& operator=(const CInstallBase&) = delete;

    // True if one of argv[1] to argv[argc - 1] is "--user-mode". Meant to be asked before an
    // object is constructed, for the constructor's first argument.
    static bool ParseUserModeArg(int argc, char** argv);

    // Turns options into fields; a later option wins over an earlier one. Unknown words and values
    // that do not convert are passed over without a word. `argv` ends with a null pointer.
    void ParseArgs(int argc, char** argv);

    // Writes the directory of the executable `argv0`, as text, into `buffer` of `size` bytes, cut
    // to fit and terminated: without resolving links, searching PATH or normalising. A null `argv0`
    // or one without a slash gives the working directory. Returns 0, or -1 with errno set when the
    // working directory cannot be told.
    static int CurrentDirectory(const char* argv0, char* buffer, int size);

    // Reads the ids of `user` and `group` into m_serviceUid and m_serviceGid (-1 when unknown) and
    // appends the names that the group record lists to m_serviceCurrentMembers.
    void DiscoverServiceUserGroup(const char* user, const char* group);

    // Copies the answers in the install directory's QueueLimits file, if there is one, to the
    // previous-value fields and m_threadsPerMolecule.
    void PreserveSettings();

    // Tells a failure on stderr, with the text of `errnum` on a further line when it is not 0, and
    // ends the process with `status`, without destroying objects on the stack.
    [[noreturn]] static void InstallError(const QString& message, int status, int errnum);

    // Tells a warning on stderr in the same form and returns.
    static void InstallWarning(const QString& message, int errnum);

    // Waits for a line on stdin, which is thrown away. Does nothing when m_interactive is false.
    void InstallPause();

    // Writes a line of 60 hyphens to stdout.
    static void InstallSeparator();

    // The prompts. Each writes to stdout only and settles the fields that it is named for. With
    // m_interactive false the limit, directory and member prompts answer themselves with their
    // defaults; PromptQueueType reads the console whenever m_queueType is unset. A menu that meets
    // the end of the input ends the process with status 2.

    // Settles m_jobLimit, 1 or more. The default is m_coreCount, untested.
    void PromptJobLimit();

    // Settles m_memoryLimitMB, without a question from m_argMemoryLimitMB if that is above 0. The
    // default is m_ramMB divided by m_jobLimit, which must not be 0, or the last installation's
    // answer if its job limit was the same.
    void PromptMemoryLimit();

    // Settles m_scratchDir. The default is m_prevScratchDir or, where that is empty, m_scratchDir.
    // The directory is not looked at.
    void PromptScratchDirectory();

    // Settles m_scratchLimitGB, without a question from m_argScratchLimitGB if that is above 0. The
    // default is the free space of m_scratchDir divided by m_jobLimit, or 1 where the space cannot
    // be told, or the last installation's answer if job limit and directory were the same.
    void PromptScratchLimit();

    // Settles m_queueType if it is unset, calls PromptExternalQueueOptions for an external queue,
    // and tells the queue in any case.
    void PromptQueueType();

    // Settles m_scheduler, the name of its queue or partition, and its commands.
    void PromptExternalQueueOptions();

    // Settles m_serviceMembers: the names of the answer, or m_serviceCurrentMembers where there are
    // none. Names are not looked up.
    void PromptComputeServiceGroupMembers();

    // Kept for callers of older versions; does nothing.
    void PromptQueueAllow();

    // Kept for callers of older versions; does nothing.
    void VerifyCRuntime();

    // Makes the missing directories of m_installDir with mode 0755, whatever the umask, and
    // returns true. Existing ones stay as they are. Ends the process with status 2 on a failure.
    bool CreateInstallDirectory();

    // The writers. Each writes one file below m_installDir, which must be there, or one link in
    // /usr/bin, reports it on stdout if m_allowNonRoot is true, and returns 1. A failure ends the
    // process: with the number of the error as its status where a script cannot be opened, and
    // with 2 otherwise. A file that the user may write to is truncated in place, any other is
    // removed first. A full disc goes unnoticed.

    // corvane26, the run script of callers that run no commit script. Mode 0755.
    int WriteCorvaneOLD();

    // corvane26_snapshot, the run script of the snapshot program. Mode 0755.
    int WriteCorvaneSnapshot();

    // The link /usr/bin/corvane26 to the run script. Any other link or file there is replaced.
    int WriteCorvaneLink();

    // The link /usr/bin/corvane26_snapshot, in the same way.
    int WriteCorvaneSnapshotLink();

    // qchemrc/qchemrc, Q-Chem's limits, from m_scratchLimitGB and m_memoryLimitMB. Mode 0644. Makes
    // the directory, mode 0755, if it is missing.
    int WriteQChemRC();

    // qchemrc/qcscratch, Q-Chem's scratch directory, in the same way.
    int WriteQCScratch();

    // corvane26_samba, which carries out job requests that come as files. Mode 0755.
    int WriteCorvaneSamba();

    // corvane26_ssh, which submits jobs from a remote shell. Mode 0755.
    int WriteCorvaneSsh();

    // queue_entries, empty whatever it held, for callers that run no commit script. Mode 0666, and
    // no report.
    int CreateInternalQueueEntries();

    // QueueLimits with m_jobLimit alone, for callers that run no commit script. Mode 0644, and no
    // report.
    int WriteInternalQueueLimits();

    // The names of m_serviceMembers that are not in m_serviceCurrentMembers, separated by blanks.
    QString AddServiceGroupUsers();

    // The present members that leave the group, separated by blanks. Fewer wanted names than
    // present ones remove nobody; a wanted name that stands further back among the wanted ones than
    // there are present members is removed as well.
    QString RemoveServiceGroupUsers();

    // Writes the commit script to a new file under /tmp, mode 0600, and its path to `path`. Returns
    // false, with `path` empty and the reason on stderr, when the file cannot be opened; a full
    // disc goes unnoticed. Nothing deletes the file. Values stand in the script as the fields hold
    // them, without quoting: the caller refuses those that would change the meaning of a line. The
    // second argument has no effect.
    bool WriteCommitScript(QString& path, bool reserved);

    // Writes the commit script, starts it and returns at once, which may cut the script short. A
    // caller that wants to see the script through uses WriteCommitScript and a CCommitScript.
    void Commit();

    COSRelease* m_osRelease = nullptr;  // the operating system's release, owned and never freed
    QString m_osName;                   // its name
    QString m_productTitle = QStringLiteral("Corvane'26");  // for the executable
    bool m_allowNonRoot = false;  // a user other than root may go on; the writers report on stdout
    QString m_binariesDir;        // directory of the running executable
    QString m_installDir;         // the install directory
    int m_coreCount = 1;          // processor cores, from hx_cpu_count; 1 where that fails
    int m_ramMB = 0;              // physical memory in MB, from procRAM, above 0
    int m_accessFlags = 0;        // RootAccess; otherwise 2 (directory) plus 4 (command link)
    bool m_cdInstall = false;     // -c, -cd, --cd-install, for the executable
    bool m_interactive = true;    // false: the prompts read nothing and pauses do not wait
    bool m_clusterNode = false;   // --cluster-node
    bool m_setup = false;         // --setup, for the executable
    bool m_userMode = false;      // --user-mode, for the executable
    QString m_serviceGroup = QStringLiteral("corvsrvc");      // group of the compute service
    QString m_serviceUser = QStringLiteral("corvsrvc");       // user of the compute service
    QString m_scheduler = QStringLiteral("TORQUE");           // "TORQUE" or "SLURM"
    int m_queueType = QueueUnset;                             // a QueueType
    QString m_queueName;                                      // Torque queue; empty: its default
    QString m_qsubCmd;                                        // Torque's command that submits
    QString m_qdelCmd;                                        // the one that deletes
    QString m_qsigCmd;                                        // the one that signals
    QString m_partitionName;                                  // Slurm partition; empty: its default
    QString m_sbatchCmd = QStringLiteral("/usr/bin/sbatch");  // Slurm's command that submits
    QString m_scancelCmd = QStringLiteral("/usr/bin/scancel");  // the one that cancels
    QString m_compSrvcAllow = QStringLiteral("HTTP");           // listeners of the compute service
    int m_compSrvcHttpPort = 8080;                              // its HTTP port
    QString m_compSrvcHttpAddr = QStringLiteral("0.0.0.0");     // the address it binds for HTTP
    int m_compSrvcHttpsPort = 8443;                             // its HTTPS port
    QString m_compSrvcHttpsAddr = QStringLiteral("0.0.0.0");    // the address it binds for HTTPS
    QString m_compSrvcCert = QStringLiteral("cert.pem");        // certificate file name
    QString m_compSrvcKey = QStringLiteral("key.pem");          // its key
    QString m_compSrvcDh = QStringLiteral("dh.pem");            // Diffie-Hellman parameters
    int m_jobLimit = 0;       // threads that may run at once; 0: not asked yet
    int m_prevJobLimit = -1;  // the same in the last installation; -1: none
    QString m_scratchDir = QStringLiteral("/tmp");  // where jobs keep temporary files
    QString m_prevScratchDir;                       // of the last installation; empty: none
    int m_scratchLimitGB = 0;                       // scratch space per thread, in GB of 2^30 bytes
    int m_prevScratchLimitGB = -1;                  // of the last installation; -1: none
    int m_argScratchLimitGB = -1;                   // -s, --scratch-limit; -1: not given
    int m_memoryLimitMB = 0;                        // memory per thread, in MB of 2^20 bytes
    int m_prevMemoryLimitMB = -1;                   // of the last installation; -1: none
    int m_argMemoryLimitMB = -1;                    // -m, --memory-limit; -1: not given
    int m_threadsPerMolecule = 0;                   // carried over from the last installation
    int m_serviceUid = -1;                          // as found at start-up; -1: no such user
    int m_serviceGid = -1;                          // as found at start-up; -1: no such group
    QStringList m_serviceMembers;                   // wanted members of the service group
    QStringList m_serviceCurrentMembers;            // its present members
};
