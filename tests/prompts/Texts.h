// The texts of the prompts, word for word.
#pragma once

#include <string>

namespace hx_test {

inline const std::string Separator =
    "------------------------------------------------------------\n";
inline const std::string Pause = "[Press \"Enter\" key to continue]";
inline const std::string Invalid = "\n  Invalid choice. Try again.\n\n";

inline const std::string JobComplaint = R"(Value entered must be an interger value greater the 0.
Please try again.
)";

inline const std::string Complaint = R"(Value entered must be an integer value greater the 0.
Please try again.
)";

inline std::string JobIntroduction(int cores) {
    return Separator + R"(
Use this setting to limit the number of threads that can be run
simultaneously.  The recommended setting is to use the number
of processor cores present in the system.

System has )" +
           std::to_string(cores) + " processor cores.\n\n";
}

inline std::string JobQuestion(int offered) {
    return "Job thread limit [" + std::to_string(offered) + "]: ";
}

inline std::string MemoryIntroduction(int ramMB, int jobLimit, int shareMB) {
    const std::string ram = std::to_string(ramMB);
    const std::string jobs = std::to_string(jobLimit);
    return Separator + R"(
Specify the amount of physical memory (RAM) available per
thread.  The formula to follow is the total available RAM
divided by the number of threads allowed to run simultaneously
(job limit entered previously).

    (Total RAM)/(Job Limit) = ()" +
           ram + ")/(" + jobs + ") = " + std::to_string(shareMB) + R"(MB

The minimum amount of memory required per thread for good
performance is 512 MB.  The recommended amount of memory per
job is 1024 MB.

    System has )" +
           ram + "MB of RAM with job limit=" + jobs + ".\n\n";
}

inline std::string MemoryNotice(int previousMB) {
    return "A previous installation has set the memory usage\nlimit to \"" +
           std::to_string(previousMB) +
           "MB\".  To preserve setting, accept the\ndefault response to the next question.\n\n";
}

inline std::string MemoryQuestion(int offeredMB) {
    return "Memory usage limit per job [" + std::to_string(offeredMB) + "MB]: ";
}

inline std::string MemoryClosing(int limitMB) {
    return Separator + "\n  Memory limit per job: " + std::to_string(limitMB) + "MB\n\n";
}

inline const std::string DirectoryIntroduction = Separator + R"(
Some higher level Corvane jobs require the use of scratch
disk space.  Enter a directory where sufficient disk space
is available.  Typically this directory should be world-writable
with the sticky bit set.  The sticky bit should be set such that
only the owner of a scratch file is allowed to delete or rename
it.  The default choice is "/tmp" which is world-writable with
the sticky bit set.

)";

inline std::string DirectoryNotice(const std::string& previous) {
    return "A previous installation has set the scratch storage\ndirectory to \"" + previous +
           "\".  To preserve setting, accept\nthe default response to the next question.\n\n";
}

inline std::string DirectoryQuestion(const std::string& offered) {
    return "Scratch directory [" + offered + "]: ";
}

inline std::string DirectoryClosing(const std::string& directory) {
    return Separator + "\n  Scratch Directory: " + directory + "\n\n";
}

inline std::string ScratchIntroduction(int freeGB, int jobLimit, int shareGB) {
    return Separator + R"(
Specify the amount of disk space available per thread.  The formula
to follow is the disk space available on file system the scratch
directory resides divided by the number of threads allowed to run
simultaneously (job limit entered previously).

    (Available Disk Space) / (Job Limit) = )" +
           std::to_string(freeGB) + " / " + std::to_string(jobLimit) + " = " +
           std::to_string(shareGB) + " GB\n\n";
}

inline const std::string UnmeasuredIntroduction = Separator + R"(
Specify the amount of disk space available per job.
)";

inline std::string ScratchNotice(int previousGB) {
    return "A previous installation has set the scratch disk\nlimit to \"" +
           std::to_string(previousGB) +
           "GB\".  To preserve setting, accept the\ndefault response to the next question.\n\n";
}

inline std::string ScratchQuestion(int offeredGB) {
    return "Scratch limit per job [" + std::to_string(offeredGB) + "GB]: ";
}

inline std::string ScratchClosing(int limitGB) {
    return Separator + "\n  Scratch limit per thread: " + std::to_string(limitGB) + "GB\n\n";
}

inline const std::string QueueMenu = R"(
Choose type of queue...
  1) Internal
       Default queue built into Corvane.  The queue implements
       a simple FIFO (First In First Out) scheduler.
  2) External
       Allows submitting jobs to a queue external to Corvane.
       Examples are Torque, OpenPBS, Slurm, SGE, and LSF.
>)";

inline const std::string SchedulerMenu = R"(
Choose scheduler...
  1) Torque/OpenPBS
  2) Slurm
>)";

inline const std::string InternalSummary = Separator + "\n  Queue type: Internal\n\n";

inline std::string ExternalSummary(const std::string& settings) {
    return Separator + "\n  Queue type: External\n" + settings + "\n";
}

inline std::string MembersQuestion(const std::string& present) {
    return R"(
Specify users who will be responsible for the administration
of the Corvane Compute Service.  The main responsiblily of these
users will be to manage remote user access to the service.

Enter user names as follows...

dana,erik

Corvane Compute Service Members [)" +
           present + "]: ";
}

inline std::string MembersClosing(const std::string& members) {
    return Separator + "\n  Corvane Compute Service Group Members: " + members + "\n\n";
}

}  // namespace hx_test
