#include "net/WebServer.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "harness/Process.h"

namespace hx_test {
namespace {

// Another process can take a port between its choice and its use.
constexpr int attempts = 5;

const char* const configuration = R"(
daemon off;
master_process off;
pid nginx.pid;
events {}
http {
    log_format asked '$request_method|$request_uri|$http_host|$http_connection|'
                     '$http_accept|$http_user_agent|$http_via';
    access_log access.log asked;
    client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi; scgi_temp_path scgi;
    types { text/plain txt; text/html html; }
    default_type application/octet-stream;
    error_page 404 /missing.html;
    server {
        listen 127.0.0.1:@PORT@;
        listen 127.0.0.1:@SECURE@ ssl;
        ssl_certificate cert.pem;
        ssl_certificate_key key.pem;
        root root;
        location /chunked/ { alias root/; ssi on; ssi_types text/plain; }
        location /packed/ { alias root/; gzip on; gzip_types text/plain; gzip_min_length 1; }
        location /slow/ { alias root/; limit_rate 1k; }
        location = /moved { return 302 /page.txt; }
        location = /round { return 302 /round; }
        location = /secure { return 302 https://127.0.0.1:@SECURE@/page.txt; }
        location = /insecure { return 302 http://127.0.0.1:@PORT@/page.txt; }
        location = /broken { return 500 "out of order\n"; }
        location = /nothing { return 204; }
    }
}
)";

void Replace(std::string& text, const std::string& mark, const std::string& value) {
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at))
        text.replace(at, mark.size(), value);
}

}  // namespace

bool WebServer::Start() {
    std::filesystem::create_directory(Root());
    WriteFile(Root() + "/missing.html", NotFound());
    if (!MakeCertificate())
        return false;
    for (int i = 0; i < attempts; ++i) {
        m_port = FreePort();
        m_securePort = FreePort();
        WriteConfiguration();
        if (m_server.Start({"/usr/sbin/nginx", "-p", m_directory / "", "-c",
                            m_directory / "nginx.conf", "-e", m_directory / "error.log"},
                           m_port))
            return true;
    }
    return false;
}

bool WebServer::MakeCertificate() const {
    return hx_test::Run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                         "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                         "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                         m_directory / "key.pem", "-out", CertificateFile()})
               .status == 0;
}

void WebServer::WriteConfiguration() const {
    std::string text = configuration;
    Replace(text, "@PORT@", std::to_string(m_port));
    Replace(text, "@SECURE@", std::to_string(m_securePort));
    WriteFile(m_directory / "nginx.conf", text);
}

std::string WebServer::Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

std::string WebServer::SecureUrl(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(m_securePort) + path;
}

// The server logs a request after its response.
std::string WebServer::LastRequest() const {
    std::string log;
    for (int i = 0; i < 100 && !log.ends_with('\n'); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        log = ReadFile(m_directory / "access.log");
    }
    if (log.empty())
        return {};
    log.pop_back();
    return log.substr(log.rfind('\n') + 1);
}

std::string WebServer::Problem() const {
    return "nginx and openssl are needed: " + ReadFile(m_directory / "error.log");
}

bool ProxyServer::Start(Clients allowed) {
    for (int i = 0; i < attempts; ++i) {
        m_port = FreePort();
        std::string text = "Port " + std::to_string(m_port) + "\nListen 127.0.0.1\nTimeout 30\n";
        text += "LogFile \"" + (m_directory / "log") + "\"\nMaxClients 20\n";
        text += allowed == Clients::Loopback ? "Allow 127.0.0.1\n" : "Deny 127.0.0.1\n";
        WriteFile(m_directory / "conf", text);
        if (m_server.Start({"tinyproxy", "-d", "-c", m_directory / "conf"}, m_port))
            return true;
    }
    return false;
}

}  // namespace hx_test
