#include "staging/StagedRun.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDataStream>
#include <QIODevice>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "installation/ChildProcess.h"
#include "installation/Installation.h"
#include "installation/TimeLimit.h"
#include "staging/PrivateMounts.h"
#include "staging/Recorder.h"

namespace {

// Of root's setup; a user's has only the first.
constexpr size_t descriptorCount = 4;

// A message holds everything but the descriptors, which go with it.
constexpr size_t longestMessage = 65536;

QByteArray Encode(const QString& impossible, const StagedMachine& staged) {
    QByteArray message;
    QDataStream stream(&message, QIODevice::WriteOnly);
    stream << impossible << staged.interactive << staged.conditions << staged.installDir
           << staged.productDir << staged.serviceUser << staged.serviceGroup
           << staged.members.joining << staged.members.leaving << staged.isManagerRunning
           << staged.activeServices
           << QList<std::pair<QString, QString>>(staged.values.begin(), staged.values.end())
           << staged.missingCommands << staged.answers << staged.isRecorded << staged.script
           << staged.copies << staged.formerPages;
    return message;
}

void Decode(const QByteArray& message, QString& impossible, StagedMachine& staged) {
    QDataStream stream(message);
    QList<std::pair<QString, QString>> values;
    stream >> impossible >> staged.interactive >> staged.conditions >> staged.installDir >>
        staged.productDir >> staged.serviceUser >> staged.serviceGroup >> staged.members.joining >>
        staged.members.leaving >> staged.isManagerRunning >> staged.activeServices >> values >>
        staged.missingCommands >> staged.answers >> staged.isRecorded >> staged.script >>
        staged.copies >> staged.formerPages;
    staged.values.assign(values.begin(), values.end());
}

struct Message {
    explicit Message(QByteArray& bytes)
        : part{.iov_base = bytes.data(), .iov_len = static_cast<size_t>(bytes.size())} {
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }

    iovec part;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(descriptorCount * sizeof(int))> control = {};
    msghdr header = {};
};

bool Send(int socket, QByteArray bytes, const StagedMachine* staged) {
    Message message(bytes);
    if (staged == nullptr) {
        message.header.msg_controllen = 0;
    } else {
        const int descriptors[descriptorCount] = {staged->tree.Number(), staged->etc.Number(),
                                                  staged->bin.Number(), staged->calls.Number()};
        const size_t size = staged->etc ? sizeof descriptors : sizeof descriptors[0];
        message.header.msg_controllen = CMSG_SPACE(size);
        cmsghdr* control = CMSG_FIRSTHDR(&message.header);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(control), descriptors, size);
    }
    return sendmsg(socket, &message.header, MSG_NOSIGNAL) == bytes.size();
}

// Waits for the message or for the end of the sender.
void Receive(int socket, StagedResult& result) {
    QByteArray bytes(longestMessage, '\0');
    Message message(bytes);
    ssize_t length = 0;
    do {
        length = recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC);
    } while (length < 0 && errno == EINTR);
    if (length <= 0)
        return;
    StagedMachine staged;
    Decode(bytes.first(length), result.impossible, staged);
    const cmsghdr* control = CMSG_FIRSTHDR(&message.header);
    int descriptors[descriptorCount] = {-1, -1, -1, -1};
    if (control == nullptr || control->cmsg_len > CMSG_LEN(sizeof descriptors))
        return;
    std::memcpy(descriptors, CMSG_DATA(control), control->cmsg_len - CMSG_LEN(0));
    staged.tree = Descriptor(descriptors[0]);
    staged.etc = Descriptor(descriptors[1]);
    staged.bin = Descriptor(descriptors[2]);
    staged.calls = Descriptor(descriptors[3]);
    result.staged = std::move(staged);
}

Failure EnterPrivateMounts(Descriptor& liveTree, TreeView view, StagedMachine& staged,
                           QString& impossible) {
    const ServiceStates services = FindServiceStates();
    staged.isManagerRunning = services.isManagerRunning;
    staged.activeServices = services.active;
    impossible = PrivateMounts::Enter(liveTree, staged.activeServices);
    if (!impossible.isEmpty())
        return {};
    const TimeLimit limit;
    const Descriptor none;
    return PrivateMounts::Fill(view == TreeView::Copied ? liveTree : none, staged);
}

ExitStatus RunChild(int socket, const QString& installDir, Descriptor& liveTree,
                    const std::function<Failure(StagedMachine&)>& setup, TreeView view) {
    StagedMachine staged;
    staged.installDir = installDir;
    QString impossible;
    Failure failure;
    if (getuid() == 0)
        failure = EnterPrivateMounts(liveTree, view, staged, impossible);
    if (!impossible.isEmpty()) {
        Send(socket, Encode(impossible, staged), nullptr);
        return ExitStatus::Complete;
    }
    if (!failure)
        failure = setup(staged);
    if (!failure && !Send(socket, Encode({}, staged), &staged)) {
        failure = Problem{ExitStatus::SystemCallFailed,
                          QStringLiteral("cannot pass on the staged setup: %1")
                              .arg(QString::fromUtf8(std::strerror(errno))),
                          QStringLiteral("Run the setup again.")};
    }
    if (!failure)
        return ExitStatus::Complete;
    failure->changes = Changes::None;
    Report(*failure);
    return failure->status;
}

}  // namespace

StagedResult RunStaged(const QString& installDir, Descriptor& liveTree,
                       const std::function<Failure(StagedMachine&)>& setup, TreeView view) {
    StagedResult result;
    int sockets[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
        result.impossible = QString::fromUtf8(std::strerror(errno));
        return result;
    }
    const Descriptor receiver(sockets[0]);
    Descriptor sender(sockets[1]);
    ChildProcess child;
    const pid_t forked = child.Fork();
    if (forked == -1) {
        result.impossible = QString::fromUtf8(std::strerror(errno));
        return result;
    }
    if (forked == 0)
        std::exit(static_cast<int>(RunChild(sender.Number(), installDir, liveTree, setup, view)));
    sender = Descriptor();
    Receive(receiver.Number(), result);
    const int status = ChildProcess::Wait();
    child.Restore();
    result.status = WEXITSTATUS(status);
    // Also a signal that came when the child had ended.
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status)
                    : status == 0       ? ChildProcess::ReceivedSignal()
                                        : 0;
    if (result.status != 0 || result.signal != 0)
        result.staged.reset();
    return result;
}
