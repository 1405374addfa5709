#include "prompts/Console.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "support/HXfgets.h"

namespace hx {
namespace {

using Line = std::array<char, 1024>;

Line ReadLine() {
    std::fflush(stdout);
    Line line = {};
    HXfgets(line.data(), static_cast<int>(line.size()), stdin);
    return line;
}

}  // namespace

QString ReadTextAnswer() {
    return QString::fromUtf8(ReadLine().data()).trimmed();
}

void ReadTextAnswerInto(QString& field) {
    const QString answer = ReadTextAnswer();
    if (!answer.isEmpty())
        field = answer;
}

int AskMenu(CInstallBase& run, const char* menu, const char* question) {
    for (;;) {
        std::fputs(menu, stdout);
        // The number is cut to 32 bits; what stands behind it does not matter.
        const int choice = static_cast<int>(std::strtol(ReadLine().data(), nullptr, 10));
        if (choice == 1 || choice == 2)
            return choice;
        std::fputs("\n  Invalid choice. Try again.\n\n", stdout);
        if (std::feof(stdin) != 0 || std::ferror(stdin) != 0) {
            CInstallBase::InstallError(
                QStringLiteral(
                    "The choice of the %1 was not made, the console is closed.  Aborting")
                    .arg(QLatin1String(question)),
                2, 0);
        }
        run.InstallPause();
    }
}

}  // namespace hx
