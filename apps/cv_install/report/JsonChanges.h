// The changes of a setup for the JSON report. The administrator's guide describes the fields.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "answers/Answers.h"
#include "installation/Difference.h"

// An array with an object for each change, in the order of the plan.
nlohmann::ordered_json JsonOf(const Differences& differences);

// An object with a member for each answer.
nlohmann::ordered_json JsonOf(const Answers& answers);
