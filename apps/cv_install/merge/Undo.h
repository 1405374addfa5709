// The steps of a merge that can be taken back.
#pragma once

#include <functional>
#include <vector>

#include "Problem.h"

class Undo {
public:
    // `step` takes back what was just done. It reports its own failure, and returns false then.
    void Add(std::function<bool()> step) { m_steps.push_back(std::move(step)); }

    // Takes back everything, the last step first. Returns false if a step failed.
    bool Run() {
        bool isComplete = true;
        for (; !m_steps.empty(); m_steps.pop_back())
            isComplete = m_steps.back()() && isComplete;
        return isComplete;
    }

    // After the merge is complete.
    void Forget() { m_steps.clear(); }

private:
    std::vector<std::function<bool()>> m_steps;
};

// Takes everything back after a failure. If that fails, too, what was changed is unknown.
inline Failure TakeBackAfter(Failure failure, Undo& undo) {
    if (!undo.Run())
        failure->changes = Changes::Unknown;
    return failure;
}
