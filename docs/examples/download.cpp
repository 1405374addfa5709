// Downloads a URL to standard output, optionally through a proxy, with a time limit.
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <cstdio>

#include "net/CHttpCLI.h"

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    if (words.size() != 3 && words.size() != 5) {
        std::fprintf(stderr, "usage: %s URL SECONDS [PROXY-HOST PROXY-PORT]\n", argv[0]);
        return 2;
    }
    const bool useProxy = words.size() == 5;

    QEventLoop loop;
    CHttpCLI http(words[1], useProxy, words.value(3), words.value(4).toInt(), &loop);

    // The slot is private, so connect it by name.
    QTimer timeout;
    timeout.setSingleShot(true);
    QObject::connect(&timeout, SIGNAL(timeout()), &http, SLOT(cancelDownload()));
    timeout.start(words[2].toInt() * 1000);

    http.downloadFile();
    const int result = loop.exec();
    if (http.m_cancelled)
        std::fprintf(stderr, "No answer within %s seconds.\n", qUtf8Printable(words[2]));
    else if (result != 0)
        std::fprintf(stderr, "The download failed.\n");
    // After a failure, this can be an error page of the server.
    std::fwrite(http.m_data.constData(), 1, static_cast<size_t>(http.m_data.size()), stdout);
    return result;
}
