#include "net/CHttpCLI.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>
#include <utility>

namespace {

// Includes a port that the URL contains, even the default port of the scheme.
QByteArray HostHeader(const QUrl& url) {
    QString value = url.host(QUrl::FullyDecoded);
    if (const int port = url.port(-1); port != -1)
        value += u':' + QString::number(port);
    return value.toUtf8();
}

QNetworkRequest RequestFor(const QUrl& url) {
    QNetworkRequest request;
    request.setUrl(url);
    request.setRawHeader("Connection", "Keep-Alive");
    request.setRawHeader("Accept", "text/*");
    request.setRawHeader("User-Agent", "Corvane-Application");
    request.setRawHeader("Host", HostHeader(url));
    return request;
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the binary interface
CHttpCLI::CHttpCLI(QString url, bool useProxy, QString proxyHost, int proxyPort, QEventLoop* loop,
                   QObject* parent)
    : QObject(parent),
      m_url(std::move(url)),
      m_eventLoop(loop),
      m_manager(new QNetworkAccessManager(this)) {
    if (useProxy) {
        m_manager->setProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, proxyHost, static_cast<quint16>(proxyPort)));
    }
    connect(m_manager, &QNetworkAccessManager::finished, this, &CHttpCLI::OnRequestFinished);
}

CHttpCLI::~CHttpCLI() = default;

void CHttpCLI::downloadFile() {
    const QUrl url(m_url, QUrl::TolerantMode);
    m_cancelled = false;
    m_reply = m_manager->get(RequestFor(url));
    connect(m_reply, &QNetworkReply::downloadProgress, this, &CHttpCLI::OnUpdateDownloadProgress);
}

void CHttpCLI::cancelDownload() {
    m_cancelled = true;
    if (m_reply != nullptr)
        m_reply->abort();
}

void CHttpCLI::OnRequestFinished(QNetworkReply* reply) {
    reply->deleteLater();
    if (reply != m_reply)
        return;
    if (m_cancelled) {
        m_eventLoop->exit(1);
    } else {
        // A failed reply can contain an error page.
        m_data = reply->readAll();
        m_eventLoop->exit(reply->error() == QNetworkReply::NoError ? 0 : 1);
    }
    m_reply = nullptr;
}

// Compatibility: connected, but progress is not shown.
void CHttpCLI::OnUpdateDownloadProgress(qint64 /*bytesReceived*/, qint64 /*bytesTotal*/) {}
