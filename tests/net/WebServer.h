// Runs nginx and tinyproxy on the loopback interface.
#pragma once

#include <string>
#include <vector>

#include "harness/Server.h"
#include "harness/TempDir.h"

namespace hx_test {

// Serves these paths over HTTP and, with a self-signed certificate, over HTTPS:
//   /NAME           a file in Root(), with its length
//   /chunked/NAME   the file in chunks
//   /packed/NAME    the file compressed, if the client accepts that
//   /slow/NAME      the file at 1 KB per second
//   /moved          a redirect to /page.txt
//   /round          a redirect to itself
//   /secure         a redirect to /page.txt over HTTPS
//   /insecure       a redirect to /page.txt over HTTP
//   /broken         status 500 with a body
//   /nothing        status 204
//   other paths     status 404 with the body NotFound()
class WebServer {
public:
    // Returns false if nginx or openssl is not installed or does not start. Problem() returns why.
    bool Start();

    std::string Root() const { return m_directory / "root"; }
    std::string Url(const std::string& path) const;
    std::string SecureUrl(const std::string& path) const;
    int Port() const { return m_port; }
    std::string CertificateFile() const { return m_directory / "cert.pem"; }
    static std::string NotFound() { return "there is no such page here\n"; }

    // The method, the path, and the headers Host, Connection, Accept, User-Agent, and Via of the
    // last request, separated by "|". "-" is a missing header.
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
    enum class Clients { Loopback, None };

    // Returns false if tinyproxy is not installed or does not start.
    bool Start(Clients allowed);

    int Port() const { return m_port; }

private:
    TempDir m_directory;
    Server m_server;
    int m_port = 0;
};

}  // namespace hx_test
