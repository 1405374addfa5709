// Runs downloads in tests.
#pragma once

#include <QEventLoop>
#include <QString>
#include <string>

#include "net/CHttpCLI.h"

namespace hx_test {

constexpr int neverEnded = 99;

// Runs the loop for at most `milliseconds`. Returns neverEnded if that time is over.
int RunLoop(QEventLoop& loop, int milliseconds = 60000);

struct Outcome {
    int status = neverEnded;
    std::string body;

    bool operator==(const Outcome&) const = default;
};

// A client with its own loop, without a proxy or with a proxy on a port of 127.0.0.1.
struct Client {
    explicit Client(const std::string& url)
        : http(QString::fromStdString(url), false, QString(), 0, &loop) {}
    Client(const std::string& url, int proxyPort)
        : http(QString::fromStdString(url), true, QStringLiteral("127.0.0.1"), proxyPort, &loop) {}

    Outcome Download();

    // Invokes the private slot, like a timer.
    void Cancel();

    QEventLoop loop;
    CHttpCLI http;
};

}  // namespace hx_test
