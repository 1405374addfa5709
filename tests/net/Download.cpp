#include "net/Download.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTimer>
#include <memory>

namespace hx_test {
namespace {

// Qt networking needs an application during all tests.
class Application : public testing::Environment {
public:
    void SetUp() override { m_application = std::make_unique<QCoreApplication>(m_count, m_words); }
    void TearDown() override { m_application.reset(); }

private:
    char m_name[16] = "download_test";
    char* m_words[2] = {m_name, nullptr};
    int m_count = 1;
    std::unique_ptr<QCoreApplication> m_application;
};

const testing::Environment* const application =
    testing::AddGlobalTestEnvironment(std::make_unique<Application>().release());

}  // namespace

int RunLoop(QEventLoop& loop, int milliseconds) {
    QTimer timeout;
    timeout.setSingleShot(true);
    QObject::connect(&timeout, &QTimer::timeout, &loop, [&loop] { loop.exit(neverEnded); });
    timeout.start(milliseconds);
    return loop.exec();
}

Outcome Client::Download() {
    http.downloadFile();
    const int status = RunLoop(loop);
    return {status, http.m_data.toStdString()};
}

void Client::Cancel() {
    EXPECT_TRUE(QMetaObject::invokeMethod(&http, "cancelDownload"));
}

}  // namespace hx_test
