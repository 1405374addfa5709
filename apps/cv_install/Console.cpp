#include "Console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "WriteAll.h"

namespace {

// Printed by CInstallBase::InstallPause.
constexpr std::string_view pausePrompt = "[Press \"Enter\" key to continue]";

bool isStarted = false;
bool isAtPause = false;     // the next line of input ends a pause
bool isInsideLine = false;  // of the input
int outputError = 0;
Console::Copy copyOutput = nullptr;
Console::Copy watchErrors = nullptr;
bool isLevelSet = false;
Console::Level currentLevel = Console::Level::Normal;
Console::Importance currentImportance = Console::Importance::Usual;

bool IsShown(int console) {
    switch (currentImportance) {
        case Console::Importance::Needed:
            return true;
        case Console::Importance::Usual:
            return console == STDERR_FILENO || currentLevel != Console::Level::Quiet;
        default:
            return console == STDERR_FILENO || currentLevel == Console::Level::Verbose;
    }
}

// An error of the console does not keep the text from the copy.
void Print(int console, std::string_view text) {
    if (IsShown(console) && WriteAll(console, text) != 0 && console == STDOUT_FILENO)
        outputError = errno;
    if (copyOutput != nullptr && !text.empty())
        copyOutput(text.data(), text.size());
}

// The library flushes stdout after the prompt, so that it comes last.
ssize_t WriteOutput(void* /*cookie*/, const char* bytes, size_t length) {
    std::string_view text(bytes, length);
    isAtPause = text.ends_with(pausePrompt);
    if (isAtPause)
        text.remove_suffix(pausePrompt.size());
    Print(STDOUT_FILENO, text);
    return static_cast<ssize_t>(length);
}

ssize_t WriteErrors(void* /*cookie*/, const char* bytes, size_t length) {
    std::fflush(stdout);
    if (watchErrors != nullptr)
        watchErrors(bytes, length);
    Print(STDERR_FILENO, {bytes, length});
    return static_cast<ssize_t>(length);
}

ssize_t ReadByte(char* byte) {
    const ssize_t length = read(STDIN_FILENO, byte, 1);
    isInsideLine = length == 1 && *byte != '\n';
    return length;
}

// A byte at a time, so that another process can read the rest of the input.
ssize_t ReadInput(void* /*cookie*/, char* bytes, size_t /*length*/) {
    if (!isAtPause)
        return ReadByte(bytes);
    isAtPause = false;
    // The rest of an answer that was too long.
    while (isInsideLine && ReadByte(bytes) == 1)
        continue;
    *bytes = '\n';
    return 1;
}

// stdin, stdout and stderr are variables, which the C library lets a program set.
void ReplaceStream(FILE*& stream, const char* mode, cookie_io_functions_t functions,
                   int buffering) {
    FILE* replaced = fopencookie(nullptr, mode, functions);
    if (replaced == nullptr)
        return;
    std::fflush(stream);
    std::setvbuf(replaced, nullptr, buffering, BUFSIZ);
    stream = replaced;
}

}  // namespace

void Console::Start() {
    if (isStarted)
        return;
    isStarted = true;
    ReplaceStream(stdin, "r", {ReadInput, nullptr, nullptr, nullptr}, _IONBF);
    ReplaceStream(stdout, "w", {nullptr, WriteOutput, nullptr, nullptr},
                  isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF);
    ReplaceStream(stderr, "w", {nullptr, WriteErrors, nullptr, nullptr}, _IONBF);
}

void Console::CopyTo(Copy copy) {
    Start();
    std::fflush(stdout);
    copyOutput = copy;
}

void Console::WatchErrors(Copy copy) {
    Start();
    watchErrors = copy;
}

void Console::SetLevel(Level level) {
    isLevelSet = false;
    SetDefaultLevel(level);
    isLevelSet = true;
}

void Console::SetDefaultLevel(Level level) {
    if (isLevelSet)
        return;
    std::fflush(stdout);
    currentLevel = level;
}

bool Console::IsQuiet() {
    return currentLevel == Level::Quiet;
}

Console::Printing::Printing(Importance importance) : m_former(currentImportance) {
    std::fflush(stdout);
    currentImportance = importance;
}

Console::Printing::~Printing() {
    std::fflush(stdout);
    currentImportance = m_former;
}

int Console::OutputError() {
    if (std::fflush(stdout) != 0)
        return errno;
    // An earlier error of the stream, whose number is gone.
    return outputError == 0 && std::ferror(stdout) != 0 ? EIO : outputError;
}
