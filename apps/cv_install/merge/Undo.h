// The steps of a merge that can be taken back.
#pragma once

#include <functional>
#include <vector>

class Undo {
public:
    // `step` takes back what was just done. It reports its own failures.
    void Add(std::function<void()> step) { m_steps.push_back(std::move(step)); }

    // Takes back everything, the last step first.
    void Run() {
        for (; !m_steps.empty(); m_steps.pop_back())
            m_steps.back()();
    }

    // After the merge is complete.
    void Forget() { m_steps.clear(); }

private:
    std::vector<std::function<void()>> m_steps;
};
