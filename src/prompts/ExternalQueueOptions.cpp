// Asks for the external scheduler and for the commands that submit and cancel jobs.
#include <cstdio>
#include <vector>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/Schedulers.h"

namespace {

const hx::Scheduler& AskForScheduler(CInstallBase& run) {
    std::vector<hx::MenuChoice> choices;
    for (const hx::Scheduler& scheduler : hx::schedulers)
        choices.push_back({scheduler.label});
    return hx::schedulers[hx::AskMenu(run, "scheduler", choices) - 1];
}

// The brackets contain a fixed text: an empty answer names no queue.
void AskForQueue(const char* word, QString& queue) {
    queue.clear();
    std::printf("\n%s to which CORVANE jobs will be submitted [<default>]:", word);
    hx::ReadTextAnswerInto(queue);
}

void AskForCommand(const char* command, QString& path) {
    std::printf("\nLocation of %s command [%s]:", command, qUtf8Printable(path));
    hx::ReadTextAnswerInto(path);
}

}  // namespace

void CInstallBase::PromptExternalQueueOptions() {
    InstallSeparator();
    const hx::Scheduler& scheduler = AskForScheduler(*this);
    m_scheduler = QLatin1String(scheduler.name);
    AskForQueue(scheduler.queueQuestion, this->*scheduler.queue);
    const hx::SchedulerCommand& submit = scheduler.commands.front();
    AskForCommand(submit.name, this->*submit.path);
    hx::SetCompanionCommands(*this, scheduler);
    for (const hx::SchedulerCommand& command : scheduler.commands.subspan(1))
        AskForCommand(command.name, this->*command.path);
}
