// An nginx and a tinyproxy of the test's own on the loopback.
#pragma once

#include <string>
#include <vector>

#include "harness/Server.h"
#include "harness/TempDir.h"

namespace hx_test {

// What there is to fetch, over http and, with a certificate that nobody knows, over https:
//   /NAME           a file of Root(), by its length
//   /chunked/NAME   the same in chunks
//   /packed/NAME    the same compressed, if the client takes it
//   /slow/NAME      the same at 1 KB a second
//   /moved          a redirect to /page.txt; /round to itself; /secure and /insecure to the
//                   other scheme's /page.txt
//   /broken         a 500 with a body; /nothing a 204
//   anything else   a 404 with the body that NotFound() tells
class WebServer {
public:
    // False where nginx or openssl are not installed or do not start; Problem() tells why.
    bool Start();

    std::string Root() const { return m_directory / "root"; }
    std::string Url(const std::string& path) const;
    std::string SecureUrl(const std::string& path) const;
    int Port() const { return m_port; }
    std::string CertificateFile() const { return m_directory / "cert.pem"; }
    static std::string NotFound() { return "there is no such page here\n"; }

    // The last request: its method, path and the headers Host, Connection, Accept, User-Agent and
    // Via, separated by "|" ("-" stands for none).
    std::string LastRequest() const;

    std::string Problem() const;

private:
    bool MakeCertificate() const;
    void WriteConfiguration() const;

    TempDir m_directory;
    Server m_server;
    int m_port = 0;
    int m_securePort = 0;
};

class ProxyServer {
public:
    enum class Clients { Loopback, Nobody };

    // False where tinyproxy is not installed or does not start.
    bool Start(Clients allowed);

    int Port() const { return m_port; }

private:
    TempDir m_directory;
    Server m_server;
    int m_port = 0;
};

}  // namespace hx_test
