#include "app/settings.h"
#include "services/auth_client.h"
#include "services/runtime_manager.h"
#include "services/update_download.h"
#include "services/update_manager.h"
#include "tests/hostile/answers.h"
#include "tests/support/costs.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/heartbeat.h"
#include "tests/support/http_server.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/png_files.h"
#include "tests/support/throwaway_home.h"
#include "ui/profile_page.h"
#include "versions/version_manager.h"

#include <QDirIterator>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const QByteArray session = R"({"username":"Bob","uuid":"u","token":"t","versions":[]})";
const QByteArray model = R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[8,8,8]}]})";
const auto mismatch = QStringLiteral("Checksum mismatch on launcher update");

// What came of one request.
struct Outcome
{
    QByteArray name;
    hostile::Verdict verdict;
    int successes = 0;
    int failures = 0;
    QString text;                       // of the last failure
    std::function<void(Outcome&)> look; // for what has to be looked at, when all is quiet
    std::unique_ptr<QObject> subject;

    void succeed() { ++successes; }
    void fail(const QString& error)
    {
        ++failures;
        text = error;
    }
};

// A way to send a request, to the server whose address the settings hold.
struct Kind
{
    QByteArray path; // below that address
    QByteArray honest;
    std::function<void(Outcome&, const QString& address)> send;
    bool smallLimit = true;
    bool checksBodies = false; // itself, so that a cut one may arrive
    bool tellsCompressed = true;
    bool followsRedirects = false; // to other servers
    bool alwaysSame = false;       // the same signal whatever comes
};

} // namespace

// Every hostile answer to every kind of request that the launcher sends, all of a kind at once.
class TestHostileAnswers : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    }

private Q_SLOTS:
    void init()
    {
        // The network layer complains about what is done to a reply at the wrong time.
        QTest::failOnWarning(QRegularExpression(u"Internal problem|not open"_s));
        throwaway_home::clear();
        Settings::get().setGameDir(throwaway_home::path() + u"/game");
        m_server = std::make_unique<HttpServer>();
        while (m_server->port() < 10'000) // the deployment's place for it has five digits
            m_server = std::make_unique<HttpServer>();
        m_elsewhere = std::make_unique<HttpServer>();
        m_elsewhere->answer("/", HttpAnswer::ok(session));
    }

    void survives_data()
    {
        QTest::addColumn<Kind>("kind");
        Kind jar{"/jar", QByteArray(5'011, 'j'), sendJar};
        jar.smallLimit = jar.tellsCompressed = false;
        jar.followsRedirects = true;
        Kind update{"/update", QByteArray(5'011, 'u'), sendUpdate};
        update.smallLimit = false;
        update.checksBodies = update.followsRedirects = true;
        Kind runtime{"/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse",
                     QByteArray(5'011, 'r'), sendRuntime};
        runtime.smallLimit = false;
        runtime.checksBodies = runtime.followsRedirects = true;
        Kind manifest{"/manifest", session, sendManifest};
        manifest.followsRedirects = true;
        Kind check{"/manifest", session, sendCheck};
        check.followsRedirects = check.alwaysSame = true;
        Kind logout{"/auth/logout", session, sendLogout};
        logout.alwaysSame = true;

        Kind skin{"/skins/u.png", png_files::square(64, qRgb(1, 2, 3)), sendSkin};
        Kind character{"/models/u.json", model, sendModel};
        skin.followsRedirects = character.followsRedirects = true;

        QTest::newRow("manifest") << manifest;
        QTest::newRow("update check") << check;
        QTest::newRow("update") << update;
        QTest::newRow("jar") << jar;
        QTest::newRow("runtime") << runtime;
        QTest::newRow("login") << Kind{"/auth/login", session, sendLogin};
        QTest::newRow("register") << Kind{"/auth/register", session, sendRegister};
        QTest::newRow("validate") << Kind{"/auth/validate", session, sendValidate};
        QTest::newRow("logout") << logout;
        QTest::newRow("rename") << Kind{"/auth/rename", session, sendRename};
        QTest::newRow("skin") << skin;
        QTest::newRow("model") << character;
        QTest::newRow("skin upload") << Kind{"/skins/upload", session, uploadSkin};
        QTest::newRow("model upload") << Kind{"/models/upload", session, uploadModel};
    }

    void survives()
    {
        QFETCH(Kind, kind);
        const auto answers =
            hostile::answers(kind.honest, m_elsewhere->url(QStringLiteral("/")), kind.smallLimit);
        const QStringList before = files();
        const qint64 memory = costs::peakBytes();
        Heartbeat heartbeat;
        std::vector<std::unique_ptr<Outcome>> outcomes;
        for (const hostile::Answer& hostile : answers)
            outcomes.push_back(start(kind, hostile, qsizetype(outcomes.size())));

        const auto isOpen = [](const std::unique_ptr<Outcome>& outcome) {
            return outcome->verdict != hostile::Verdict::Silent &&
                   outcome->successes + outcome->failures == 0;
        };
        (void)QTest::qWaitFor(
            [&] {
                for (const auto& outcome : outcomes) {
                    if (outcome->look && isOpen(outcome))
                        outcome->look(*outcome);
                }
                return std::ranges::none_of(outcomes, isOpen);
            },
            30'000);
        QTest::qWait(50); // and a chance for what should not come
        for (const auto& outcome : outcomes)
            judge(kind, *outcome);
        outcomes.clear();

        qsizetype tokens = 0;
        for (const HttpRequest& request : m_elsewhere->requests())
            tokens += request.header("Authorization").isNull() ? 0 : 1;
        QStringList strays;
        for (const QString& file : files()) {
            if (!before.contains(file) && !isExpected(file))
                strays << file;
        }
        const qint64 held = (costs::peakBytes() - memory) / (1024 * 1024);
        qInfo("%lld answers: longest gap %lld ms (%lld ms of work), %lld MB more than before, "
              "%lld tokens elsewhere, %lld stray files",
              qint64(answers.size()), heartbeat.longestMs(), heartbeat.longestProcessorMs(), held,
              qint64(tokens), qint64(strays.size()));
        QCOMPARE(tokens, 0);
        QCOMPARE(strays.join(u' '), QString());
        QVERIFY(heartbeat.longestProcessorMs() < 1'500); // of all answers at once, sanitized
        QVERIFY(held < 700);                             // the server's own part and quarantine
    }

private:
    std::unique_ptr<Outcome> start(const Kind& kind, const hostile::Answer& hostile,
                                   qsizetype number)
    {
        auto outcome = std::make_unique<Outcome>();
        outcome->name = hostile.name;
        outcome->verdict = hostile.verdict;
        const bool isRuntime = kind.path.startsWith("/v3");
        const QString base = isRuntime ? QString() : QStringLiteral("/%1").arg(number);
        m_server->answer(base.toLatin1() + kind.path, hostile.answer);
        const QString address = m_server->origin() + base;
        Settings::get().setServerUrl(address);
        Settings::get().setManifestUrl(address + u"/manifest");
        if (isRuntime)
            loopback_deployment::setRuntimeOrigin(address);
        // A 404 would write into the same label as an upload.
        for (const char* path : {"/skins/u.png", "/models/u.json"}) {
            if (kind.path.endsWith("/upload"))
                m_server->answer(base.toLatin1() + path, HttpAnswer::htmlError(500));
        }
        kind.send(*outcome, address);
        // The runtime has one address for all, and who meets a closed connection asks again.
        if (isRuntime && hostile.verdict != hostile::Verdict::Silent)
            (void)QTest::qWaitFor([&] { return outcome->successes + outcome->failures > 0; },
                                  60'000);
        return outcome;
    }

    static void judge(const Kind& kind, const Outcome& outcome)
    {
        using enum hostile::Verdict;
        const QByteArray said = outcome.name + ": " + QByteArray::number(outcome.successes) +
                                " successes, " + QByteArray::number(outcome.failures) +
                                " failures, " + outcome.text.left(200).toUtf8();
        hostile::Verdict verdict = outcome.verdict;
        if (verdict == CompressedWhole)
            verdict = kind.tellsCompressed ? Whole : Fails;
        if (verdict == CompressedCut)
            verdict = kind.checksBodies ? Either : Fails;
        if (verdict == Either && outcome.name == "redirect elsewhere" && !kind.followsRedirects)
            verdict = Fails;
        if (kind.alwaysSame && verdict != Silent)
            verdict = Whole;
        const int sum = outcome.successes + outcome.failures;
        QVERIFY2(sum == (verdict == Silent ? 0 : 1), said.constData());
        QVERIFY2(verdict != Whole || outcome.successes == 1, said.constData());
        QVERIFY2(verdict != Fails || outcome.failures == 1, said.constData());
        QVERIFY2(!outcome.text.contains(u"canceled"), said.constData());
        if (verdict == Fails)
            QVERIFY2(!outcome.text.isEmpty(), said.constData());
    }

    // The game directory, the settings, and what drivers and fonts keep.
    static bool isExpected(const QString& file)
    {
        return std::ranges::any_of(
            QStringList{u"game/"_s, u"config/"_s, u"cache/"_s, u".dbus/"_s},
            [&file](const QString& place) { return file.startsWith(place); });
    }

    static QStringList files()
    {
        QStringList found;
        const QDir home(throwaway_home::path());
        QDirIterator it(home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            found << home.relativeFilePath(it.next());
        return found;
    }

    static void sendManifest(Outcome& outcome, const QString& /*address*/)
    {
        auto manager = std::make_unique<VersionManager>();
        connect(manager.get(), &VersionManager::manifestReady, manager.get(),
                [&outcome](bool fromCache) {
                    fromCache ? outcome.fail(QStringLiteral("from the cache")) : outcome.succeed();
                });
        connect(manager.get(), &VersionManager::manifestFailed, manager.get(),
                [&outcome](const QString& error) { outcome.fail(error); });
        manager->refreshManifest();
        outcome.subject = std::move(manager);
    }

    static void sendCheck(Outcome& outcome, const QString& /*address*/)
    {
        auto manager = std::make_unique<UpdateManager>();
        connect(manager.get(), &UpdateManager::upToDate, manager.get(),
                [&outcome] { outcome.succeed(); });
        connect(manager.get(), &UpdateManager::updateAvailable, manager.get(),
                [&outcome](const QString& version) { outcome.fail(version); });
        manager->checkForUpdate();
        outcome.subject = std::move(manager);
    }

    // No body has the digest: one that arrives is a mismatch, and nothing is staged.
    static void sendUpdate(Outcome& outcome, const QString& address)
    {
        auto network = std::make_unique<QNetworkAccessManager>();
        auto* download = new UpdateDownload(network.get());
        connect(download, &UpdateDownload::failed, download, [&outcome](const QString& error) {
            error == mismatch ? outcome.succeed() : outcome.fail(error);
        });
        download->start(network.get(), address + u"/update", QString(64, u'0'), false);
        outcome.subject = std::move(network);
    }

    static void sendJar(Outcome& outcome, const QString& address)
    {
        auto manager = std::make_unique<VersionManager>();
        const GameVersion version{address.section(u'/', -1), address + u"/jar", {}, {}};
        const QString path = manager->jarPath(version.id);
        connect(manager.get(), &VersionManager::installFinished, manager.get(), [&outcome, path] {
            // Half accepted would be the worst.
            QFile jar(path);
            const bool whole = jar.open(QIODevice::ReadOnly) && jar.size() == 5'011;
            if (whole || outcome.verdict == hostile::Verdict::Either)
                outcome.succeed();
            else
                outcome.fail({});
        });
        connect(manager.get(), &VersionManager::installFailed, manager.get(),
                [&outcome](const QString& error) { outcome.fail(error); });
        manager->install(version);
        outcome.subject = std::move(manager);
    }

    // No body is an archive: one that arrives cannot be extracted.
    static void sendRuntime(Outcome& outcome, const QString& /*address*/)
    {
        auto manager = std::make_unique<RuntimeManager>();
        connect(manager.get(), &RuntimeManager::installFailed, manager.get(),
                [&outcome](const QString& error) {
                    error == u"Could not extract Java runtime" ? outcome.succeed()
                                                               : outcome.fail(error);
                });
        connect(manager.get(), &RuntimeManager::installFinished, manager.get(),
                [&outcome] { outcome.fail({}); });
        manager->install();
        outcome.subject = std::move(manager);
    }

    static AuthClient& client(Outcome& outcome)
    {
        auto client = std::make_unique<AuthClient>();
        connect(client.get(), &AuthClient::loginSucceeded, client.get(),
                [&outcome] { outcome.succeed(); });
        connect(client.get(), &AuthClient::loginFailed, client.get(),
                [&outcome](const QString& error) { outcome.fail(error); });
        connect(client.get(), &AuthClient::validationResult, client.get(), [&outcome](bool valid) {
            valid ? outcome.succeed() : outcome.fail(QStringLiteral("not valid"));
        });
        connect(client.get(), &AuthClient::loggedOut, client.get(),
                [&outcome] { outcome.succeed(); });
        AuthClient& made = *client;
        outcome.subject = std::move(client);
        return made;
    }

    static void sendLogin(Outcome& outcome, const QString& /*address*/)
    {
        client(outcome).login(QStringLiteral("bob"), QStringLiteral("pw"));
    }

    static void sendRegister(Outcome& outcome, const QString& /*address*/)
    {
        client(outcome).registerAccount(QStringLiteral("bob"), QStringLiteral("pw"));
    }

    static void sendValidate(Outcome& outcome, const QString& /*address*/)
    {
        client(outcome).validate(QStringLiteral("secret"));
    }

    static void sendLogout(Outcome& outcome, const QString& /*address*/)
    {
        client(outcome).logout(QStringLiteral("secret"));
    }

    // A page of its own, with a client of its own; its skin and model are asked for at once.
    static QWidget* page(Outcome& outcome)
    {
        Settings::get().setAuth(QStringLiteral("secret"), QStringLiteral("Ada"),
                                QStringLiteral("u"));
        auto auth = std::make_unique<AuthClient>();
        auto made = std::make_unique<QObject>();
        auto* page = new ProfilePage(auth.get(), nullptr);
        // The page goes before the client that it follows.
        connect(made.get(), &QObject::destroyed, page, [page] { delete page; });
        auth.release()->setParent(made.get());
        outcome.subject = std::move(made);
        Settings::get().clearAuth();
        return page;
    }

    static void sendSkin(Outcome& outcome, const QString& /*address*/)
    {
        watch(outcome, *page(outcome), "skinStatus", QStringLiteral("Skin active."), "/skins/");
    }

    static void sendModel(Outcome& outcome, const QString& /*address*/)
    {
        watch(outcome, *page(outcome), "modelStatus", QStringLiteral("Custom model active"),
              "/models/");
    }

    // These say nothing of a failure.
    static void watch(Outcome& outcome, QWidget& page, const char* label, const QString& success,
                      const QByteArray& path)
    {
        auto* status = page.findChild<QLabel*>(QLatin1StringView(label));
        auto* network = page.findChild<QNetworkAccessManager*>();
        outcome.look = [status, network, success, path](Outcome& seen) {
            const bool ended = std::ranges::none_of(
                network->findChildren<QNetworkReply*>(), [&path](const QNetworkReply* reply) {
                    return reply->url().path().contains(QLatin1StringView(path));
                });
            if (status->text().startsWith(success))
                seen.succeed();
            else if (ended)
                seen.fail(status->text().isEmpty() ? u"as before"_s : QString());
        };
    }

    static void sendRename(Outcome& outcome, const QString& /*address*/)
    {
        QWidget* made = page(outcome);
        made->findChild<QLineEdit*>()->setText(QStringLiteral("Bob"));
        press(made, "Change");
        look(outcome, *made, "renameStatus", {QStringLiteral("Username updated.")});
    }

    static void uploadSkin(Outcome& outcome, const QString& /*address*/)
    {
        QWidget* made = page(outcome);
        upload(made, "Change skin...");
        look(
            outcome, *made, "skinStatus",
            {QStringLiteral("Skin uploaded."), QStringLiteral("No skin uploaded (default look).")});
    }

    static void uploadModel(Outcome& outcome, const QString& /*address*/)
    {
        QWidget* made = page(outcome);
        upload(made, "Change model...");
        look(outcome, *made, "modelStatus", {QStringLiteral("Model uploaded.")});
    }

    static void look(Outcome& outcome, QWidget& page, const char* label,
                     const QStringList& successes)
    {
        auto* status = page.findChild<QLabel*>(QLatin1StringView(label));
        outcome.look = [status, successes](Outcome& seen) {
            const QString text = status->text();
            if (successes.contains(text))
                seen.succeed();
            else if (!text.isEmpty() && text != u"Uploading...")
                seen.fail(text);
        };
    }

    static void press(const QWidget* page, const char* text)
    {
        for (auto* button : page->findChildren<QPushButton*>()) {
            if (button->text() == QLatin1StringView(text))
                return button->click();
        }
        QFAIL(text);
    }

    static void upload(const QWidget* page, const char* button)
    {
        const QString path = throwaway_home::path() + u"/game/picked.png";
        QDir().mkpath(throwaway_home::path() + u"/game");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("x");
        file.close();
        const FileDialogScript dialog(path);
        press(page, button);
        QVERIFY(dialog.wasShown());
    }

    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<HttpServer> m_elsewhere;
};

QTEST_MAIN(TestHostileAnswers)
#include "tst_hostile_answers.moc"
