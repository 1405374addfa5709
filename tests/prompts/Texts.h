// What the prompts say, word for word.
#pragma once

#include <string>

namespace hx_test {

inline const std::string Separator =
    "------------------------------------------------------------\n";
inline const std::string Pause = "[Press \"Enter\" key to continue]";
inline const std::string Invalid = "\n  Invalid choice. Try again.\n\n";

// Of the job limit, and of the other limits.
extern const std::string JobComplaint;
extern const std::string Complaint;

std::string JobIntroduction(int cores);
std::string JobQuestion(int offered);

std::string MemoryIntroduction(int ramMB, int jobLimit, int shareMB);
std::string MemoryNotice(int previousMB);
std::string MemoryQuestion(int offeredMB);
std::string MemoryClosing(int limitMB);

extern const std::string DirectoryIntroduction;
std::string DirectoryNotice(const std::string& previous);
std::string DirectoryQuestion(const std::string& offered);
std::string DirectoryClosing(const std::string& directory);

std::string ScratchIntroduction(int freeGB, int jobLimit, int shareGB);
extern const std::string UnmeasuredIntroduction;
std::string ScratchNotice(int previousGB);
std::string ScratchQuestion(int offeredGB);
std::string ScratchClosing(int limitGB);

extern const std::string QueueMenu;
extern const std::string SchedulerMenu;
extern const std::string QueueNameQuestion;
extern const std::string PartitionNameQuestion;
std::string CommandQuestion(const std::string& command, const std::string& offered);
extern const std::string InternalSummary;
std::string ExternalSummary(const std::string& settings);
std::string TorqueSettings(const std::string& qsub, const std::string& qdel,
                           const std::string& qsig);
std::string SlurmSettings(const std::string& sbatch, const std::string& scancel);

std::string MembersQuestion(const std::string& present);
std::string MembersClosing(const std::string& members);

}  // namespace hx_test
