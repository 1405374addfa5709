// Downloads a URL into memory, for console programs.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include "support/hx_export.h"

class QEventLoop;
class QNetworkAccessManager;
class QNetworkReply;

// Runs one GET request in the event loop of the caller. Construct the client with a loop, call
// downloadFile, and run the loop. The loop ends with 0 if m_data contains the body. It ends with 1
// for a network error, an HTTP error, an unknown certificate, and a canceled download. m_data then
// contains the received part of the body, such as an error page; a canceled download does not
// change it. Redirects follow the default of QNetworkRequest. Prints no message, does not retry,
// and has no timeout: without a download in flight, the loop runs indefinitely.
//
// To cancel, invoke the slot cancelDownload by name, from a timer or with QMetaObject. Cancel only
// while the loop runs. Before that, there is no loop to end, and a later exec() never returns.
//
// Use from one thread. The loop must not be null and must outlive the download. The order of the
// fields is part of the binary interface.
class HX_EXPORT CHttpCLI : public QObject {
    Q_OBJECT
    Q_MOC_INCLUDE(<QNetworkReply>)

public:
    // With `useProxy`, requests go through the HTTP proxy `proxyHost`:`proxyPort`, without a user
    // name. Otherwise both arguments are ignored and the proxy settings of Qt apply.
    CHttpCLI(QString url, bool useProxy, QString proxyHost, int proxyPort, QEventLoop* loop,
             QObject* parent = nullptr);

    // Deletes a reply in flight without aborting it. Does not end the loop.
    ~CHttpCLI() override;

    // Starts to download m_url and returns. Does not stop a download in flight, but ignores its
    // result: only the latest download ends the loop.
    Q_SLOT void downloadFile();

private Q_SLOTS:
    // Aborts the download in flight, which ends the loop with 1.
    void cancelDownload();
    void OnRequestFinished(QNetworkReply* reply);
    void OnUpdateDownloadProgress(qint64 bytesReceived, qint64 bytesTotal);

public:
    QString m_url;                               // the URL to download
    QEventLoop* m_eventLoop = nullptr;           // not owned
    bool m_cancelled = false;                    // canceled since the last downloadFile
    QByteArray m_data;                           // the body of the last finished reply
    QNetworkAccessManager* m_manager = nullptr;  // child of this object
    QNetworkReply* m_reply = nullptr;            // the reply in flight, or null
};
