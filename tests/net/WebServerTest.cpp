// Downloads from a real web server, directly and through a real proxy.
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

class FromWebServer : public testing::Test {
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

TEST_F(FromWebServer, AFileComesWhole) {
    ExpectPage(Fetch("/page.txt"));
    EXPECT_EQ(m_server.LastRequest(), "GET|/page.txt|127.0.0.1:" + std::to_string(m_server.Port()) +
                                          "|Keep-Alive|text/*|Corvane-Application|-");
}

TEST_F(FromWebServer, ChunksAndCompressionAreUndone) {
    ExpectPage(Fetch("/chunked/page.txt"));
    ExpectPage(Fetch("/packed/page.txt"));
}

TEST_F(FromWebServer, BytesComeAsTheyAre) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    hx_test::WriteFile(m_server.Root() + "/bytes", bytes);
    EXPECT_EQ(Fetch("/bytes").body, bytes);
}

TEST_F(FromWebServer, AnEmptyAnswerIsASuccess) {
    const Outcome outcome = Fetch("/nothing");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.body, "");
}

TEST_F(FromWebServer, TheBodyOfAFailureIsKept) {
    const Outcome missing = Fetch("/nowhere.txt");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.body, WebServer::NotFound());
    const Outcome broken = Fetch("/broken");
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.body, "out of order\n");
}

TEST_F(FromWebServer, ARedirectIsFollowed) {
    ExpectPage(Fetch("/moved"));
}

TEST_F(FromWebServer, AnEndlessRedirectFails) {
    EXPECT_EQ(Fetch("/round").status, 1);
}

TEST_F(FromWebServer, TwoHundredMegabytesComeWhole) {
    constexpr size_t Size = 200'000'000;
    std::string body(Size, '\0');
    std::mt19937 random(1);
    std::generate(body.begin(), body.begin() + Size / 100,
                  [&] { return static_cast<char>(random()); });
    for (size_t at = Size / 100; at < Size; at += Size / 100) {
        std::copy_n(body.begin(), Size / 100, body.begin() + static_cast<std::ptrdiff_t>(at));
        body[at] = static_cast<char>(at / (Size / 100));
    }
    hx_test::WriteFile(m_server.Root() + "/large", body);
    Client client(m_server.Url("/large"));
    client.http.downloadFile();
    EXPECT_EQ(hx_test::RunLoop(client.loop), 0);
    // Not by EXPECT_EQ, which would print them.
    EXPECT_TRUE(client.http.m_data == QByteArrayView(body.data(), static_cast<qsizetype>(Size)));
}

TEST_F(FromWebServer, ASlowTransferCanBeCancelled) {
    hx_test::WriteFile(m_server.Root() + "/long.txt", std::string(1'000'000, 'x'));
    Client client(m_server.Url("/slow/long.txt"));
    client.http.m_data = "before";
    client.http.downloadFile();
    EXPECT_EQ(hx_test::RunLoop(client.loop, 1000), hx_test::NeverEnded);
    QMetaObject::invokeMethod(&client.http, "cancelDownload", Qt::QueuedConnection);
    EXPECT_EQ(hx_test::RunLoop(client.loop), 1);
    EXPECT_EQ(client.http.m_data, "before");
}

class OverTls : public FromWebServer {
protected:
    void SetUp() override {
        FromWebServer::SetUp();
        if (!QSslSocket::supportsSsl())
            GTEST_SKIP() << "this Qt has no TLS";
    }
    void TearDown() override { QSslConfiguration::setDefaultConfiguration(m_former); }

    void Trust() const {
        QSslConfiguration trusting = m_former;
        EXPECT_TRUE(trusting.addCaCertificates(QString::fromStdString(m_server.CertificateFile())));
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    QSslConfiguration m_former = QSslConfiguration::defaultConfiguration();
};

TEST_F(OverTls, AnUnknownCertificateFails) {
    const Outcome outcome = Client(m_server.SecureUrl("/page.txt")).Download();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.body, "");
}

// The same server and page: it is the certificate that made the difference.
TEST_F(OverTls, AKnownCertificateIsASuccess) {
    Trust();
    ExpectPage(Client(m_server.SecureUrl("/page.txt")).Download());
}

TEST_F(OverTls, ARedirectIsFollowedToASafeSchemeOnly) {
    Trust();
    ExpectPage(Fetch("/secure"));
    EXPECT_EQ(Client(m_server.SecureUrl("/insecure")).Download().status, 1);
}

class ThroughProxy : public OverTls {
protected:
    void SetUp() override {
        OverTls::SetUp();
        if (!IsSkipped() && !m_proxy.Start(ProxyServer::Clients::Loopback))
            GTEST_SKIP() << "tinyproxy is needed";
    }

    Outcome FetchThrough(int proxyPort, const std::string& url) const {
        return Client(url, proxyPort).Download();
    }

    ProxyServer m_proxy;
};

TEST_F(ThroughProxy, AFileComesWhole) {
    ExpectPage(FetchThrough(m_proxy.Port(), m_server.Url("/page.txt")));
    const std::string request = m_server.LastRequest();
    const std::string host = "127.0.0.1:" + std::to_string(m_server.Port());
    EXPECT_TRUE(request.starts_with("GET|/page.txt|" + host + "|")) << request;
    EXPECT_NE(request.find("|text/*|Corvane-Application|1.1 "), std::string::npos)
        << "no Via header of a proxy: " << request;
}

TEST_F(ThroughProxy, ChunksRedirectsAndFailuresAreAsWithoutOne) {
    ExpectPage(FetchThrough(m_proxy.Port(), m_server.Url("/chunked/page.txt")));
    ExpectPage(FetchThrough(m_proxy.Port(), m_server.Url("/moved")));
    const Outcome missing = FetchThrough(m_proxy.Port(), m_server.Url("/nowhere"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.body, WebServer::NotFound());
}

TEST_F(ThroughProxy, TlsIsTunnelled) {
    EXPECT_EQ(FetchThrough(m_proxy.Port(), m_server.SecureUrl("/page.txt")).status, 1);
    Trust();
    ExpectPage(FetchThrough(m_proxy.Port(), m_server.SecureUrl("/page.txt")));
}

TEST_F(ThroughProxy, AServerThatTheProxyCannotReachFails) {
    const std::string nowhere = "http://127.0.0.1:" + std::to_string(hx_test::FreePort()) + "/";
    EXPECT_EQ(FetchThrough(m_proxy.Port(), nowhere).status, 1);
}

TEST_F(ThroughProxy, AProxyThatRefusesTheClientFails) {
    ProxyServer refusing;
    ASSERT_TRUE(refusing.Start(ProxyServer::Clients::Nobody));
    EXPECT_EQ(FetchThrough(refusing.Port(), m_server.Url("/page.txt")).status, 1);
}

TEST_F(ThroughProxy, AProxyThatIsNotThereFails) {
    EXPECT_EQ(FetchThrough(hx_test::FreePort(), m_server.Url("/page.txt")).status, 1);
}

TEST_F(ThroughProxy, IsNotUsedUnlessItIsAskedFor) {
    QEventLoop loop;
    CHttpCLI http(QString::fromStdString(m_server.Url("/page.txt")), false,
                  QStringLiteral("127.0.0.1"), m_proxy.Port(), &loop);
    http.downloadFile();
    EXPECT_EQ(hx_test::RunLoop(loop), 0);
    EXPECT_TRUE(m_server.LastRequest().ends_with("|-"));
}

}  // namespace
