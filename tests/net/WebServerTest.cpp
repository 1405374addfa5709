// Downloads from nginx, directly and through tinyproxy.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QSslConfiguration>
#include <algorithm>
#include <random>
#include <string>

#include "net/Download.h"
#include "net/WebServer.h"

namespace {

using hx_test::Client;
using hx_test::Outcome;
using hx_test::ProxyServer;
using hx_test::WebServer;

class WebDownload : public testing::Test {
protected:
    void SetUp() override {
        if (!m_server.Start())
            GTEST_SKIP() << m_server.Problem();
        hx_test::WriteFile(m_server.Root() + "/page.txt", m_page);
    }

    Outcome Fetch(const std::string& path) const { return Client(m_server.Url(path)).Download(); }

    void ExpectPage(const Outcome& outcome) const {
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.body, m_page);
    }

    const std::string m_page = "a page\nof two lines\n";
    WebServer m_server;
};

TEST_F(WebDownload, ReceivesPage) {
    for (const char* path : {"/chunked/page.txt", "/packed/page.txt", "/moved", "/page.txt"}) {
        SCOPED_TRACE(path);
        ExpectPage(Fetch(path));
    }
    EXPECT_EQ(m_server.LastRequest(), "GET|/page.txt|127.0.0.1:" + std::to_string(m_server.Port()) +
                                          "|Keep-Alive|text/*|Corvane-Application|-");
}

TEST_F(WebDownload, ReceivesAllBytes) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    hx_test::WriteFile(m_server.Root() + "/bytes", bytes);
    EXPECT_EQ(Fetch("/bytes").body, bytes);
}

TEST_F(WebDownload, SucceedsForEmptyResponse) {
    EXPECT_EQ(Fetch("/nothing"), (Outcome{0, ""}));
}

TEST_F(WebDownload, KeepsBodyOfFailure) {
    EXPECT_EQ(Fetch("/nowhere.txt"), (Outcome{1, WebServer::NotFound()}));
    EXPECT_EQ(Fetch("/broken"), (Outcome{1, "out of order\n"}));
}

TEST_F(WebDownload, FailsForEndlessRedirect) {
    EXPECT_EQ(Fetch("/round").status, 1);
}

TEST_F(WebDownload, Receives200Megabytes) {
    constexpr size_t size = 200'000'000;
    std::string body(size, '\0');
    std::mt19937 random(1);
    std::generate(body.begin(), body.begin() + size / 100,
                  [&] { return static_cast<char>(random()); });
    for (size_t at = size / 100; at < size; at += size / 100) {
        std::copy_n(body.begin(), size / 100, body.begin() + static_cast<std::ptrdiff_t>(at));
        body[at] = static_cast<char>(at / (size / 100));
    }
    hx_test::WriteFile(m_server.Root() + "/large", body);
    Client client(m_server.Url("/large"));
    client.http.downloadFile();
    EXPECT_EQ(hx_test::RunLoop(client.loop), 0);
    // EXPECT_EQ would print the data.
    EXPECT_TRUE(client.http.m_data == QByteArrayView(body.data(), static_cast<qsizetype>(size)));
}

TEST_F(WebDownload, CancelsSlowTransfer) {
    hx_test::WriteFile(m_server.Root() + "/long.txt", std::string(1'000'000, 'x'));
    Client client(m_server.Url("/slow/long.txt"));
    client.http.m_data = "before";
    client.http.downloadFile();
    EXPECT_EQ(hx_test::RunLoop(client.loop, 1000), hx_test::neverEnded);
    QMetaObject::invokeMethod(&client.http, "cancelDownload", Qt::QueuedConnection);
    EXPECT_EQ(hx_test::RunLoop(client.loop), 1);
    EXPECT_EQ(client.http.m_data, "before");
}

class TlsDownload : public WebDownload {
protected:
    void SetUp() override {
        WebDownload::SetUp();
        if (!QSslSocket::supportsSsl())
            GTEST_SKIP() << "this Qt does not support TLS";
    }
    void TearDown() override { QSslConfiguration::setDefaultConfiguration(m_defaultConfiguration); }

    void Trust() const {
        QSslConfiguration configuration = m_defaultConfiguration;
        EXPECT_TRUE(
            configuration.addCaCertificates(QString::fromStdString(m_server.CertificateFile())));
        QSslConfiguration::setDefaultConfiguration(configuration);
    }

    QSslConfiguration m_defaultConfiguration = QSslConfiguration::defaultConfiguration();
};

TEST_F(TlsDownload, AcceptsOnlyKnownCertificate) {
    EXPECT_EQ(Client(m_server.SecureUrl("/page.txt")).Download(), (Outcome{1, ""}));
    Trust();
    ExpectPage(Client(m_server.SecureUrl("/page.txt")).Download());
}

TEST_F(TlsDownload, FollowsRedirectToHttpsOnly) {
    Trust();
    ExpectPage(Fetch("/secure"));
    EXPECT_EQ(Client(m_server.SecureUrl("/insecure")).Download().status, 1);
}

class ProxyDownload : public TlsDownload {
protected:
    void SetUp() override {
        TlsDownload::SetUp();
        if (!IsSkipped() && !m_proxy.Start(ProxyServer::Clients::Loopback))
            GTEST_SKIP() << "tinyproxy is needed";
    }

    Outcome FetchThrough(int proxyPort, const std::string& url) const {
        return Client(url, proxyPort).Download();
    }

    ProxyServer m_proxy;
};

TEST_F(ProxyDownload, ReceivesPage) {
    for (const char* path : {"/chunked/page.txt", "/moved", "/page.txt"}) {
        SCOPED_TRACE(path);
        ExpectPage(FetchThrough(m_proxy.Port(), m_server.Url(path)));
    }
    const std::string request = m_server.LastRequest();
    const std::string host = "127.0.0.1:" + std::to_string(m_server.Port());
    EXPECT_TRUE(request.starts_with("GET|/page.txt|" + host + "|")) << request;
    EXPECT_NE(request.find("|text/*|Corvane-Application|1.1 "), std::string::npos)
        << "missing Via header of the proxy: " << request;
}

TEST_F(ProxyDownload, KeepsBodyOfFailure) {
    EXPECT_EQ(FetchThrough(m_proxy.Port(), m_server.Url("/nowhere")),
              (Outcome{1, WebServer::NotFound()}));
}

TEST_F(ProxyDownload, TunnelsTls) {
    EXPECT_EQ(FetchThrough(m_proxy.Port(), m_server.SecureUrl("/page.txt")).status, 1);
    Trust();
    ExpectPage(FetchThrough(m_proxy.Port(), m_server.SecureUrl("/page.txt")));
}

TEST_F(ProxyDownload, FailsForUnreachableServer) {
    const std::string nowhere = "http://127.0.0.1:" + std::to_string(hx_test::FreePort()) + "/";
    EXPECT_EQ(FetchThrough(m_proxy.Port(), nowhere).status, 1);
}

TEST_F(ProxyDownload, FailsForUnusableProxy) {
    ProxyServer refusing;
    ASSERT_TRUE(refusing.Start(ProxyServer::Clients::None));
    EXPECT_EQ(FetchThrough(refusing.Port(), m_server.Url("/page.txt")).status, 1);
    EXPECT_EQ(FetchThrough(hx_test::FreePort(), m_server.Url("/page.txt")).status, 1);
}

TEST_F(ProxyDownload, IgnoresProxyWithoutUseProxy) {
    QEventLoop loop;
    CHttpCLI http(QString::fromStdString(m_server.Url("/page.txt")), false,
                  QStringLiteral("127.0.0.1"), m_proxy.Port(), &loop);
    http.downloadFile();
    EXPECT_EQ(hx_test::RunLoop(loop), 0);
    EXPECT_TRUE(m_server.LastRequest().ends_with("|-"));
}

}  // namespace
