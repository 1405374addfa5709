// The settings of the schedulers in the template of the run script.
#include <ostream>

#include "generate/Texts.h"
#include "setuprun/Schedulers.h"

void WriteQueueVariables(std::ostream& script) {
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        const char* name = scheduler.queueVariable;
        script << "export CORV_" << name << "=\"%CORV_" << name << "%\"\n";
    }
}

void WriteQueueCommands(std::ostream& script) {
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        for (const hx::SchedulerCommand& command : scheduler.commands) {
            const char* name = command.variable;
            script << "cvset CORV_" << name << " \"%CORV_" << name << "%\" \"${CORV_USER_" << name
                   << "}\"\n";
        }
    }
}
