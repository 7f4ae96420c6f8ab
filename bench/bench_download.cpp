// A gigabyte over loopback: the launcher's way against a bare network access manager that holds the
// body, and hashed as it arrives against one whose body is hashed in the end. In turns, each in a
// process of its own: what the one leaves in memory would help the other.
#include "bench/measure.h"
#include "services/http.h"
#include "services/sha256.h"
#include "tests/support/bulk_server.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>

#include <sys/resource.h>

namespace {

constexpr qint64 bodyBytes = 1024LL * 1024 * 1024;
constexpr int rounds = 5;
constexpr double aim = 1.05;
const auto plainWay = QStringLiteral("plain");
const auto hashedWay = QStringLiteral("hashed");
const auto bareWay = QStringLiteral("bare");
const auto bareHashedWay = QStringLiteral("bare, then hashed");

qint64 ours(QNetworkAccessManager& network, const QUrl& url, bool hashes)
{
    QEventLoop loop;
    qint64 size = 0;
    http::Exchange exchange{.context = &loop,
                            .maxBytes = http::maxDownloadBytes,
                            .done =
                                [&](const http::Answer& answer) {
                                    size =
                                        hashes && answer.sha256.isEmpty() ? 0 : answer.body.size();
                                    loop.quit();
                                },
                            .hashes = hashes};
    http::get(&network, QNetworkRequest(url), std::move(exchange));
    loop.exec();
    return size;
}

qint64 bare(QNetworkAccessManager& network, const QUrl& url, bool hashes)
{
    QEventLoop loop;
    QNetworkReply* reply = network.get(QNetworkRequest(url));
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const QByteArray body = reply->readAll();
    return hashes && Sha256::of(body).isEmpty() ? 0 : body.size();
}

// In the child: prints the milliseconds and the most memory it took, in MB.
int download(const QString& who, const QUrl& url)
{
    QNetworkAccessManager network;
    qint64 size = 0;
    const bool isBare = who == bareWay || who == bareHashedWay;
    const bool hashes = who == hashedWay || who == bareHashedWay;
    const double ms = measure::milliseconds(
        [&] { size = isBare ? bare(network, url, hashes) : ours(network, url, hashes); });
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%.1f %ld\n", ms, usage.ru_maxrss / 1024);
    return size == bodyBytes ? 0 : 1;
}

struct Cost
{
    std::vector<double> ms;
    long megabytes = 0;
};

void measureIn(Cost& cost, const QString& who, const QString& url)
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {who, url});
    if (!process.waitForFinished(120'000) || process.exitCode() != 0)
        qFatal("the download failed");
    const QByteArrayList printed = process.readAllStandardOutput().trimmed().split(' ');
    cost.ms.push_back(printed.value(0).toDouble());
    cost.megabytes = std::max(cost.megabytes, printed.value(1).toLong());
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 3)
        return download(arguments[1], QUrl(arguments[2]));
    const BulkServer server(bodyBytes);
    Cost plain;
    Cost hashed;
    Cost control;
    Cost hashedControl;
    for (int round = 0; round < rounds; ++round) {
        measureIn(plain, plainWay, server.url());
        measureIn(hashed, hashedWay, server.url());
        measureIn(control, bareWay, server.url());
        measureIn(hashedControl, bareHashedWay, server.url());
    }
    measure::ratio("download of 1 GB", measure::median(plain.ms), "ms", measure::median(control.ms),
                   aim);
    measure::ratio("download of 1 GB, with its SHA-256", measure::median(hashed.ms), "ms",
                   measure::median(control.ms), aim);
    measure::ratio("download of 1 GB, with its SHA-256, beside one hashed in the end",
                   measure::median(hashed.ms), "ms", measure::median(hashedControl.ms), aim);
    measure::ratio("memory of that download", double(std::max(plain.megabytes, hashed.megabytes)),
                   "MB", double(bodyBytes >> 20), 1.15);
    return 0;
}
