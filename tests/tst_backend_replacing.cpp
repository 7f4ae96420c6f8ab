#include "tests/support/backend_process.h"
#include "tests/support/raw_client.h"

#include <QDir>
#include <QDirIterator>
#include <QSet>
#include <QTest>

#include <atomic>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

// A look that is replaced leaves nothing on the disk, and nothing that is referred to ever goes.
class TestBackendReplacing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void removesReplacedLookAtOnce();
    void keepsWhatAnotherAccountShows();
    void keepsWhatIsPublishedToo();
    void leavesFilesToWhoKeepsThem();
    void neverServesMissingFile();
    void servesLookWhileItIsReplaced();
    void leavesNothingOfUploadOnFullDisk();
    void leavesNothingWhenDatabaseRefuses();

private:
    struct Player
    {
        QByteArray token;
        QByteArray uuid;
    };
    Player enroll(const QString& name);
    int upload(const Player& player, const QByteArray& model);
    RawReply model(const Player& player);
    QStringList files(const QString& below = u"/files"_s) const;
    bool isWell(int count);

    std::unique_ptr<BackendProcess> m_backend;
    const QStringList m_unlimited{u"--max-account-uploads"_s, u"0"_s,
                                  u"--max-account-upload-volume"_s, u"0"_s};
};

namespace {

QByteArray modelOf(int number, qsizetype padding = 0)
{
    return R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,)" + QByteArray::number(number) +
           R"(]}],"more":")" + QByteArray(padding, 'x') + "\"}";
}

// A server with such a limit on the size of files that it writes, as a disk that is full.
class SizeLimit
{
public:
    explicit SizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }
    Q_DISABLE_COPY_MOVE(SizeLimit)

private:
    rlimit m_before = {};
};

} // namespace

void TestBackendReplacing::init()
{
    m_backend = std::make_unique<BackendProcess>();
}

TestBackendReplacing::Player TestBackendReplacing::enroll(const QString& name)
{
    const QJsonObject session =
        raw_http::postJson(m_backend->port(), "/auth/register",
                           {{u"username"_s, name}, {u"password"_s, u"correct horse"_s}})
            .json();
    return {session[u"token"_s].toString().toLatin1(), session[u"uuid"_s].toString().toLatin1()};
}

int TestBackendReplacing::upload(const Player& player, const QByteArray& model)
{
    return raw_http::post(m_backend->port(), "/models/upload", "application/json", model,
                          {raw_http::bearer(player.token)})
        .status;
}

RawReply TestBackendReplacing::model(const Player& player)
{
    return raw_http::get(m_backend->port(), "/models/" + player.uuid + ".json");
}

QStringList TestBackendReplacing::files(const QString& below) const
{
    QStringList found;
    QDirIterator all(m_backend->data() + below, QDir::Files | QDir::Hidden,
                     QDirIterator::Subdirectories);
    while (all.hasNext())
        found.append(all.next());
    return found;
}

// Whether `check` finds that many files, each of them sound and used.
bool TestBackendReplacing::isWell(int count)
{
    const auto run = m_backend->command({u"check"_s});
    const QByteArray wanted = "All is well: " + QByteArray::number(count) + " files, 0 unused.";
    if (run.exitCode == 0 && run.output.contains(wanted))
        return true;
    qWarning("%s%s", run.output.constData(), run.errors.constData());
    return false;
}

void TestBackendReplacing::removesReplacedLookAtOnce()
{
    QVERIFY2(m_backend->start(), m_backend->output().constData());
    const Player player = enroll(u"Painter"_s);
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(upload(player, modelOf(i)), 200);
        QCOMPARE(files().size(), 1);
        QCOMPARE(model(player).json()[u"elements"_s][0][u"to"_s][2].toInt(), i);
    }
    // The same again replaces nothing.
    QCOMPARE(upload(player, modelOf(4)), 200);
    QCOMPARE(model(player).status, 200);
    QVERIFY(isWell(1));
}

void TestBackendReplacing::keepsWhatAnotherAccountShows()
{
    QVERIFY(m_backend->start());
    const Player first = enroll(u"First"_s);
    const Player second = enroll(u"Second"_s);
    QCOMPARE(upload(first, modelOf(1)), 200);
    QCOMPARE(upload(second, modelOf(1)), 200);
    QCOMPARE(files().size(), 1);
    QCOMPARE(upload(first, modelOf(2)), 200);
    QCOMPARE(files().size(), 2);
    QCOMPARE(model(second).status, 200);
    QCOMPARE(upload(second, modelOf(2)), 200);
    QVERIFY(isWell(1));
    // One that is shown as the other kind of look.
    QVERIFY(m_backend->runSql(u"UPDATE accounts SET skin = model WHERE name = 'First'"_s));
    QCOMPARE(upload(first, modelOf(3)), 200);
    QCOMPARE(upload(second, modelOf(3)), 200);
    QVERIFY(isWell(2));
}

void TestBackendReplacing::keepsWhatIsPublishedToo()
{
    QVERIFY(m_backend->start());
    const Player player = enroll(u"Publisher"_s);
    QCOMPARE(upload(player, modelOf(1)), 200);
    const QString stored = files().constFirst();
    const QString copy = m_backend->data() + u"/build"_s;
    QVERIFY(QFile::copy(stored, copy));
    const auto published = m_backend->command(
        {u"publish"_s, u"launcher"_s, u"--version"_s, u"2"_s, u"--file"_s, copy});
    QVERIFY2(published.exitCode == 0, published.errors.constData());
    QCOMPARE(upload(player, modelOf(2)), 200);
    QVERIFY(QFile::exists(stored));
    QVERIFY(isWell(2));
}

// What a check or a backup is looking at stays until it is over: here, until the next sweep.
void TestBackendReplacing::leavesFilesToWhoKeepsThem()
{
    QVERIFY(m_backend->start());
    const Player player = enroll(u"Patient"_s);
    QCOMPARE(upload(player, modelOf(1)), 200);
    const int keeper = ::open(QFile::encodeName(m_backend->data() + u"/removal.lock"_s).constData(),
                              O_RDWR | O_CLOEXEC);
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_start = (off_t(1) << 60) + 12345;
    range.l_len = 1;
    QCOMPARE(::fcntl(keeper, F_OFD_SETLK, &range), 0);
    QCOMPARE(upload(player, modelOf(2)), 200);
    QCOMPARE(files().size(), 2);
    // A check beside it is not held up.
    QCOMPARE(m_backend->command({u"check"_s}).exitCode, 0);
    ::close(keeper);
    QCOMPARE(upload(player, modelOf(3)), 200);
    QCOMPARE(files().size(), 2);
    QCOMPARE(m_backend->stop(), 0);
    QVERIFY(m_backend->start());
    QTRY_COMPARE(files().size(), 1);
    QVERIFY(isWell(1));
}

// Players who take each other's models, somebody who publishes one of them, and a check, at once.
void TestBackendReplacing::neverServesMissingFile()
{
    QVERIFY(m_backend->start(m_unlimited));
    std::vector<Player> players;
    for (int i = 0; i < 4; ++i) {
        players.push_back(enroll(u"Player%1"_s.arg(i)));
        QCOMPARE(upload(players.back(), modelOf(0)), 200);
    }
    const QString build = m_backend->data() + u"/build"_s;
    QVERIFY(QFile::copy(files().constFirst(), build));
    std::atomic<int> faults = 0;
    std::atomic<int> uploads = 0;
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (size_t i = 0; i < players.size(); ++i)
        threads.emplace_back([&, i] {
            for (int turn = 0; turn < 60; ++turn) {
                if (upload(players[i], modelOf((turn * int(i + 1) / 2) % 3)) == 200)
                    ++uploads;
                else
                    ++faults;
                if (model(players[i]).status != 200)
                    ++faults;
            }
        });
    std::thread publisher([&] {
        while (!isOver) {
            const auto run = [&](const QStringList& words) {
                if (m_backend->command(words).exitCode != 0)
                    ++faults;
            };
            run({u"publish"_s, u"launcher"_s, u"--version"_s, u"2"_s, u"--file"_s, build});
            run({u"check"_s});
            run({u"withdraw"_s, u"launcher"_s, u"linux"_s});
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    isOver = true;
    publisher.join();
    QCOMPARE(faults, 0);
    QCOMPARE(uploads, 240);
    for (const Player& player : players)
        QCOMPARE(model(player).status, 200);
    // The checks kept some for the sweep.
    QCOMPARE(m_backend->stop(), 0);
    QVERIFY(m_backend->start());
    QSet<QByteArray> shown;
    for (const Player& player : players)
        shown.insert(model(player).body);
    QTRY_COMPARE(files().size(), shown.size());
    QVERIFY(isWell(int(shown.size())));
}

// Whoever looks meanwhile gets the one or the other.
void TestBackendReplacing::servesLookWhileItIsReplaced()
{
    QVERIFY(m_backend->start(m_unlimited));
    const Player player = enroll(u"Restless"_s);
    QCOMPARE(upload(player, modelOf(0)), 200);
    std::atomic<bool> isOver = false;
    std::atomic<int> faults = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            while (!isOver)
                faults += model(player).status == 200 ? 0 : 1;
        });
    int refused = 0;
    for (int i = 1; i < 80; ++i)
        refused += upload(player, modelOf(i)) == 200 ? 0 : 1;
    isOver = true;
    for (std::thread& reader : readers)
        reader.join();
    QCOMPARE(refused, 0);
    QCOMPARE(faults, 0);
    QVERIFY(isWell(1));
}

void TestBackendReplacing::leavesNothingOfUploadOnFullDisk()
{
    {
        const SizeLimit limit(1'000'000);
        QVERIFY(m_backend->start());
    }
    const Player player = enroll(u"Cramped"_s);
    QCOMPARE(upload(player, modelOf(1)), 200);
    const QByteArray before = model(player).body;
    const RawReply refused =
        raw_http::post(m_backend->port(), "/models/upload", "application/json",
                       modelOf(2, 1'500'000), {raw_http::bearer(player.token)});
    QVERIFY2(refused.status == 500, refused.whole.constData());
    QVERIFY(!refused.error().isEmpty());
    QVERIFY2(!refused.whole.contains(m_backend->data().toLatin1()), refused.whole.constData());
    QTRY_VERIFY(m_backend->output().contains("cannot write"));
    QCOMPARE(files().size(), 1);
    QCOMPARE(files(u"/tmp"_s).size(), 0);
    QCOMPARE(model(player).body, before);
    QCOMPARE(upload(player, modelOf(3)), 200);
    QVERIFY(isWell(1));
}

// The content lies there already when the database has no room, or does not want to.
void TestBackendReplacing::leavesNothingWhenDatabaseRefuses()
{
    if (BackendProcess::isOnPostgres())
        QSKIP("what PostgreSQL was asked to commit before it was lost may be committed yet");
    QVERIFY(m_backend->start());
    const Player player = enroll(u"Unlucky"_s);
    QCOMPARE(upload(player, modelOf(1)), 200);
    QVERIFY(m_backend->runSql(u"CREATE TRIGGER refuse BEFORE UPDATE OF model ON accounts"
                              " BEGIN SELECT RAISE(ABORT, 'no'); END"_s));
    QCOMPARE(upload(player, modelOf(2)), 500);
    QCOMPARE(files().size(), 1);
    QCOMPARE(model(player).status, 200);
    QVERIFY(isWell(1));
}

QTEST_GUILESS_MAIN(TestBackendReplacing)
#include "tst_backend_replacing.moc"
