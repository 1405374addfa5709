#include "Letter.h"

#include <array>
#include <cctype>
#include <cstdio>

#include "support/HXfgets.h"

char AskForLetter(const char* question) {
    std::fputs(question, stdout);
    std::fflush(stdout);
    std::array<char, 1024> answer = {};
    HXfgets(answer.data(), static_cast<int>(answer.size()), stdin);
    return static_cast<char>(std::tolower(static_cast<unsigned char>(answer[0])));
}
