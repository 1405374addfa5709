#include "Outcome.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <QStringList>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "answers/Usage.h"
#include "installation/Owners.h"
#include "record/RecordText.h"

namespace {

// Shared with the child process of a setup as root.
struct SharedNotes {
    int status;  // of the problem
    std::array<char, 1000> problem;
    std::array<char, 128> keptScript;
    std::array<char, 32768> answers;
};

SharedNotes* sharedNotes = nullptr;
const char* actionName = "setup";
std::string whose;  // the beginning of a line of its own
std::string commandLine;

template <size_t Size>
void Store(const std::string& text, std::array<char, Size>& place) {
    const size_t length = std::min(text.size(), Size - 1);
    std::memcpy(place.data(), text.data(), length);
    place[length] = '\0';
}

std::string Now() {
    const time_t now = std::time(nullptr);
    tm fields = {};
    localtime_r(&now, &fields);
    std::array<char, 64> text = {};
    std::strftime(text.data(), text.size(), "%FT%T%z", &fields);
    return text.data();
}

QString Caller() {
    const char* sudo = getuid() == 0 ? std::getenv("SUDO_USER") : nullptr;
    const QString user = UserName(getuid());
    return sudo == nullptr ? user
                           : user + QStringLiteral(" (sudo: %1)").arg(QString::fromUtf8(sudo));
}

QString Word(const char* argument) {
    const QString word = QString::fromUtf8(argument);
    return word.isEmpty() || word.contains(u' ') ? u'"' + word + u'"' : word;
}

// Empty for a signal.
const char* MeaningOf(int status) {
    for (const StatusUsage& usage : Statuses()) {
        if (usage.status && static_cast<int>(*usage.status) == status && *usage.suffix == '\0')
            return usage.meaning;
    }
    return "";
}

void AddReason(OutcomeLine& line, int status) {
    const int signal = status - static_cast<int>(ExitStatus::SignalBase);
    const char* name = signal > 0 ? sigdescr_np(signal) : nullptr;
    line.Add("exit status ");
    line.Add(status);
    line.Add(": ");
    if (sharedNotes != nullptr && status != 0 && sharedNotes->status == status) {
        line.Add(sharedNotes->problem.data());
    } else if (name != nullptr) {
        line.Add("stopped by signal ");
        line.Add(name);
    } else if (status == 0) {
        line.Add(actionName);
        line.Add(" completed");
    } else {
        line.Add(MeaningOf(status));
    }
}

}  // namespace

void OutcomeLine::Add(std::string_view text) {
    const size_t length = std::min(text.size(), sizeof m_text - m_length);
    std::copy_n(text.data(), length, m_text + m_length);
    m_length += length;
}

void OutcomeLine::Add(int number) {
    std::array<char, 12> digits = {};
    size_t first = digits.size();
    do {
        digits[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0);
    Add({digits.data() + first, digits.size() - first});
}

void Outcome::Begin(int argc, char** argv) {
    void* shared = mmap(nullptr, sizeof(SharedNotes), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    sharedNotes = shared == MAP_FAILED ? nullptr : static_cast<SharedNotes*>(shared);
    QStringList words;
    for (int i = 0; i < argc; ++i)
        words.append(Word(argv[i]));
    commandLine = Printable(words.join(u' ')).toStdString();
    whose = "=== " + Now() + ' ' + HostName().toStdString() + " cv_install " + HX_VERSION +
            ", user " + Printable(Caller()).toStdString();
}

void Outcome::NoteAction(const char* action) {
    actionName = action;
}

void Outcome::NoteProblem(const Problem& problem) {
    if (sharedNotes == nullptr)
        return;
    sharedNotes->status = static_cast<int>(problem.status);
    Store(Printable(problem.text).toStdString(), sharedNotes->problem);
}

void Outcome::NoteAnswers(const Answers& answers) {
    QString text;
    for (const AnswerRow& row : AnswerRows()) {
        if (answers.Find(row.id) != nullptr)
            text += QLatin1String(row.label) + QStringLiteral(": ") +
                    Printable(answers.Text(row.id)) + u'\n';
    }
    if (sharedNotes != nullptr)
        Store(text.toStdString(), sharedNotes->answers);
}

void Outcome::NoteKeptScript(const QString& path) {
    if (sharedNotes != nullptr)
        Store(path.toStdString(), sharedNotes->keptScript);
}

std::string Outcome::KeptScript() {
    return sharedNotes == nullptr ? "" : sharedNotes->keptScript.data();
}

std::string Outcome::Header() {
    const std::string answers = sharedNotes == nullptr ? "" : sharedNotes->answers.data();
    return '\n' + whose + "\nCommand: " + commandLine + '\n' + answers + '\n';
}

OutcomeLine Outcome::Line(int status, Form form) {
    OutcomeLine line;
    if (form == Form::Whole) {
        line.Add(whose);
        line.Add(": ");
    } else {
        line.Add("=== ");
    }
    AddReason(line, status);
    line.Add("\n");
    return line;
}

// syslog() must not be called by the handler of a signal. The journal reads this socket too.
void Outcome::SendToJournal(int status) {
    const int socketNumber = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socketNumber == -1)
        return;
    OutcomeLine message;
    message.Add("<");
    message.Add(LOG_USER | (status == 0 ? LOG_INFO : LOG_ERR));
    message.Add(">cv_install[");
    message.Add(getpid());
    message.Add("]: ");
    AddReason(message, status);
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    const std::string_view text = message.Text();
    sendto(socketNumber, text.data(), text.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(socketNumber);
}
