#include "prompts/LimitQuestion.h"

#include <cstdio>

#include "prompts/Console.h"

namespace hx {
namespace {

// Returns a decimal integer from 1 to 2^31 - 1, or 0 for any other answer.
int LimitFromAnswer(const QString& answer) {
    bool isNumber = false;
    const int limit = answer.toInt(&isNumber);
    return isNumber && limit >= 1 ? limit : 0;
}

}  // namespace

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
