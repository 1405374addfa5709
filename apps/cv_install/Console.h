// The standard streams of this process.
#pragma once

#include <QByteArray>
#include <cstddef>

// Replaces the C library's stdin, stdout and stderr.
//
// The library pauses after each question and each file: it prints a prompt and reads a line.
// Nothing needs to be read there, because the output does not continue without an answer to the
// next question. The pauses therefore end at once, without a prompt, and read nothing.
//
// What is printed to stderr appears after everything that was printed to stdout before.
class Console {
public:
    // Called at the start of main; further calls have no effect.
    static void Start();

    // From now on, `copy` gets everything that is printed, also what the level hides. It must not
    // print.
    using Copy = void (*)(const char* text, size_t length);
    static void CopyTo(Copy copy);

    // From now on, `copy` gets everything that is printed to stderr. It must not print.
    static void WatchErrors(Copy copy);

    // What stdout shows: with Quiet only what is Needed, otherwise also what is Usual, and with
    // Verbose also Details. Problems go to stderr.
    enum class Level { Quiet, Normal, Verbose };
    enum class Importance { Needed, Usual, Detail };

    static void SetLevel(Level level);

    // Has no effect after SetLevel. The first default is Normal.
    static void SetDefaultLevel(Level level);

    static bool IsQuiet();

    // What is printed to stdout while the object exists has this importance. Otherwise it is Usual.
    class Printing {
    public:
        explicit Printing(Importance importance);
        ~Printing();
        Printing(const Printing&) = delete;
        Printing& operator=(const Printing&) = delete;

    private:
        Importance m_former;
    };

    // The number of the error that kept something from being written to stdout; 0 when everything
    // was written.
    static int OutputError();
};
