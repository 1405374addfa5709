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

void WriteMenu(const char* subject, std::span<const MenuChoice> choices) {
    std::printf("\nChoose %s...\n", subject);
    int number = 0;
    for (const MenuChoice& choice : choices)
        std::printf("  %d) %s\n%s", ++number, choice.label, choice.explanation);
    std::fputs(">", stdout);
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

int AskMenu(CInstallBase& run, const char* subject, std::span<const MenuChoice> choices) {
    for (;;) {
        WriteMenu(subject, choices);
        // The number is truncated to 32 bits. Text after it is ignored.
        const int number = static_cast<int>(std::strtol(ReadLine().data(), nullptr, 10));
        if (number >= 1 && static_cast<size_t>(number) <= choices.size())
            return number;
        std::fputs("\n  Invalid choice. Try again.\n\n", stdout);
        if (std::feof(stdin) != 0 || std::ferror(stdin) != 0) {
            CInstallBase::InstallError(
                QStringLiteral(
                    "The choice of the %1 was not made, the console is closed.  Aborting")
                    .arg(QLatin1String(subject)),
                2, 0);
        }
        run.InstallPause();
    }
}

}  // namespace hx
