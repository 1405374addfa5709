// Fetches a URL into memory, for console programs.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include "support/hx_export.h"

class QEventLoop;
class QNetworkAccessManager;
class QNetworkReply;

// One GET request at a time, in the caller's event loop: construct with the loop, call
// downloadFile, run the loop, and take the loop's result 0 to mean that m_data holds the body. The
// result is 1 when the transfer, the server or the certificate failed and when the download was
// cancelled; m_data then holds what came of the body, such as the page of a 404, and after a cancel
// what it held before. Redirects are followed as QNetworkRequest does by default. There is no
// message, no retry and no time-out: a loop that runs without a download in flight never ends.
//
// To cancel, invoke the slot cancelDownload by name, from a timer or through QMetaObject. Do so
// while the loop runs: a cancel before it ends the request while there is no loop to end, and the
// loop that is run afterwards waits for ever.
//
// One thread. The loop must not be null and must outlive the download. The order of the fields is
// the library's binary interface.
class HX_EXPORT CHttpCLI : public QObject {
    Q_OBJECT
    Q_MOC_INCLUDE(<QNetworkReply>)

public:
    // With `useProxy` every request goes through the HTTP proxy `proxyHost`:`proxyPort`, without a
    // user name; without it the two are not looked at and Qt's own proxy setting holds.
    CHttpCLI(QString url, bool useProxy, QString proxyHost, int proxyPort, QEventLoop* loop,
             QObject* parent = nullptr);

    // A reply in flight is not aborted but deleted with the object: the loop is not ended.
    ~CHttpCLI() override;

    // Starts fetching m_url and returns. A download in flight is not stopped: its end is passed
    // over, and only the newest one ends the loop.
    Q_SLOT void downloadFile();

private Q_SLOTS:
    // Ends the download in flight; the loop ends with 1. Without one it does nothing.
    void cancelDownload();
    void OnRequestFinished(QNetworkReply* reply);
    void OnUpdateDownloadProgress(qint64 bytesReceived, qint64 bytesTotal);

public:
    QString m_url;                               // what to fetch
    QEventLoop* m_eventLoop = nullptr;           // the caller's, to be ended
    bool m_cancelled = false;                    // cancelled since the last downloadFile
    QByteArray m_data;                           // the body of the last finished reply
    QNetworkAccessManager* m_manager = nullptr;  // a child of this object
    QNetworkReply* m_reply = nullptr;            // the reply in flight
};
