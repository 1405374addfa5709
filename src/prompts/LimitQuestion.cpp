#include "prompts/LimitQuestion.h"

#include <cstdio>

#include "prompts/Console.h"

namespace hx {

int AskForLimit(CInstallBase& run, int offered, const char* complaint,
                const std::function<void()>& ask) {
    for (;;) {
        ask();
        if (!run.m_interactive) {
            std::printf("%d\n", offered);
            return offered;
        }
        const QString answer = ReadTextAnswer();
        if (answer.isEmpty())
            return offered;
        if (const int limit = LimitFromAnswer(answer); limit > 0)
            return limit;
        std::fputs(complaint, stdout);
        run.InstallPause();
    }
}

}  // namespace hx
