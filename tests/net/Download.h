// Runs downloads to their end in a test.
#pragma once

#include <QEventLoop>
#include <QString>
#include <functional>
#include <string>

#include "net/CHttpCLI.h"

namespace hx_test {

constexpr int NeverEnded = 99;

// Runs the loop for `milliseconds` at most; NeverEnded when nobody ended it.
int RunLoop(QEventLoop& loop, int milliseconds = 60000);

struct Outcome {
    int status = NeverEnded;
    std::string body;
};

// A client with a loop of its own, without a proxy or with the one on `proxyPort`.
struct Client {
    explicit Client(const std::string& url)
        : http(QString::fromStdString(url), false, QString(), 0, &loop) {}
    Client(const std::string& url, int proxyPort)
        : http(QString::fromStdString(url), true, QStringLiteral("127.0.0.1"), proxyPort, &loop) {}

    Outcome Download();

    // Invokes the private slot as a timer would.
    void Cancel();

    QEventLoop loop;
    CHttpCLI http;
};

}  // namespace hx_test
