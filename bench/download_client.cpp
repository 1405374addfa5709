// Downloads one URL into memory; measured by download.cpp.
#include <QCoreApplication>
#include <QEventLoop>

#include "net/CHttpCLI.h"

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QEventLoop loop;
    CHttpCLI http(QString::fromUtf8(argc > 1 ? argv[1] : ""), false, QString(), 0, &loop);
    http.downloadFile();
    return loop.exec();
}
