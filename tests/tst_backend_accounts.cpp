#include "tests/support/backend_process.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

// The account interface of the server, over real HTTP.
class TestBackendAccounts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void registersAndLogsIn();
    void acceptsIndentedJson();
    void refusesBadNamesAndPasswords_data();
    void refusesBadNamesAndPasswords();
    void keepsNamesUniqueIgnoringCase();
    void answersUnknownNameAndWrongPasswordAlike();
    void validatesAndEndsSessions();
    void renamesWithoutEndingSessions();
    void refusesToRename();
    void toleratesDoubledSlash();

private:
    RawReply enroll(const QString& name, const QString& password = u"correct horse"_s);
    RawReply login(const QString& name, const QString& password = u"correct horse"_s);
    RawReply validate(const QByteArray& token);

    BackendProcess m_backend;
};

namespace {

QJsonObject credentials(const QString& name, const QString& password)
{
    return {{u"username"_s, name}, {u"password"_s, password}};
}

QByteArray tokenOf(const RawReply& reply)
{
    return reply.json().value(u"token"_s).toString().toLatin1();
}

QString uuidOf(const RawReply& reply)
{
    return reply.json().value(u"uuid"_s).toString();
}

} // namespace

RawReply TestBackendAccounts::enroll(const QString& name, const QString& password)
{
    return raw_http::postJson(m_backend.port(), "/auth/register", credentials(name, password));
}

RawReply TestBackendAccounts::login(const QString& name, const QString& password)
{
    return raw_http::postJson(m_backend.port(), "/auth/login", credentials(name, password));
}

RawReply TestBackendAccounts::validate(const QByteArray& token)
{
    return raw_http::get(m_backend.port(), "/auth/validate", {raw_http::bearer(token)});
}

void TestBackendAccounts::initTestCase()
{
    QVERIFY2(m_backend.start(), m_backend.output().constData());
}

void TestBackendAccounts::registersAndLogsIn()
{
    const RawReply created = enroll(u"Ada_1"_s);
    QCOMPARE(created.status, 200);
    QCOMPARE(created.headers.value("content-type"), "application/json");
    QCOMPARE(created.json().value(u"username"_s).toString(), u"Ada_1"_s);
    QCOMPARE(tokenOf(created).size(), 64);
    QCOMPARE(uuidOf(created).size(), 36);

    // The name as registered comes back, however it is typed at login.
    const RawReply again = login(u"aDA_1"_s);
    QCOMPARE(again.status, 200);
    QCOMPARE(again.json().value(u"username"_s).toString(), u"Ada_1"_s);
    QCOMPARE(uuidOf(again), uuidOf(created));
    QVERIFY(tokenOf(again) != tokenOf(created));
    QCOMPARE(validate(tokenOf(created)).status, 200);
    QCOMPARE(validate(tokenOf(again)).status, 200);
}

void TestBackendAccounts::acceptsIndentedJson()
{
    const QByteArray body = QJsonDocument(credentials(u"Indented"_s, u"correct horse"_s)).toJson();
    QVERIFY(body.contains('\n'));
    QCOMPARE(
        raw_http::post(m_backend.port(), "/auth/register", "application/json; charset=utf-8", body)
            .status,
        200);
}

void TestBackendAccounts::refusesBadNamesAndPasswords_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("error");
    const QString badName = u"A username has 3 to 16 letters, digits or underscores."_s;
    const QString badPassword = u"A password has 8 to 128 characters."_s;
    const QString good = u"correct horse"_s;
    QTest::newRow("empty name") << u""_s << good << badName;
    QTest::newRow("two letters") << u"ab"_s << good << badName;
    QTest::newRow("seventeen letters") << u"abcdefghijklmnopq"_s << good << badName;
    QTest::newRow("blank inside") << u"two words"_s << good << badName;
    QTest::newRow("letter beyond ASCII") << u"Zoë99"_s << good << badName;
    QTest::newRow("path") << u"../../etc"_s << good << badName;
    QTest::newRow("line feed at the end") << u"Grace\n"_s << good << badName;
    QTest::newRow("seven characters") << u"Grace"_s << u"1234567"_s << badPassword;
    QTest::newRow("129 characters") << u"Grace"_s << QString(129, u'x') << badPassword;
    QTest::newRow("half a surrogate pair")
        << u"Grace"_s << QString(u"12345678"_s + QChar(0xd800)) << badPassword;
}

void TestBackendAccounts::refusesBadNamesAndPasswords()
{
    QFETCH(QString, name);
    QFETCH(QString, password);
    QFETCH(QString, error);
    const RawReply refused = enroll(name, password);
    QCOMPARE(refused.status, 400);
    QCOMPARE(refused.error(), error);
    QVERIFY(login(name, password).status >= 400);
}

void TestBackendAccounts::keepsNamesUniqueIgnoringCase()
{
    QCOMPARE(enroll(u"Unique"_s).status, 200);
    const RawReply second = enroll(u"uNIQUE"_s, u"another password"_s);
    QCOMPARE(second.status, 409);
    QCOMPARE(second.error(), u"That username is taken."_s);
    QCOMPARE(login(u"Unique"_s).status, 200);
    QCOMPARE(login(u"Unique"_s, u"another password"_s).status, 401);
    // 128 characters beyond the Basic Multilingual Plane are 128 characters.
    QCOMPARE(enroll(u"LongPass"_s, u"\U0001F9F1"_s.repeated(128)).status, 200);
    QCOMPARE(login(u"LongPass"_s, u"\U0001F9F1"_s.repeated(127)).status, 401);
}

void TestBackendAccounts::answersUnknownNameAndWrongPasswordAlike()
{
    QCOMPARE(enroll(u"Known"_s).status, 200);
    const RawReply wrong = login(u"Known"_s, u"wrong password"_s);
    const RawReply unknown = login(u"Unknown"_s, u"wrong password"_s);
    QCOMPARE(wrong.status, 401);
    QCOMPARE(wrong.error(), u"Wrong username or password."_s);
    // Also what a database may not take for a text at all.
    const RawReply impossible = login(u"a"_s + QChar(0) + u"b"_s);
    QCOMPARE(impossible.status, 401);
    QCOMPARE(impossible.body, wrong.body);
    QCOMPARE(unknown.status, wrong.status);
    QCOMPARE(unknown.body, wrong.body);
}

void TestBackendAccounts::validatesAndEndsSessions()
{
    const QByteArray token = tokenOf(enroll(u"Visitor"_s));
    const QByteArray other = tokenOf(login(u"Visitor"_s));
    const RawReply valid = validate(token);
    QCOMPARE(valid.status, 200);
    QCOMPARE(valid.json().value(u"username"_s).toString(), u"Visitor"_s);

    const auto logout = [this](const QByteArray& which) {
        return raw_http::post(m_backend.port(), "/auth/logout", {}, {}, {raw_http::bearer(which)});
    };
    QCOMPARE(logout(token).status, 200);
    QCOMPARE(validate(token).status, 401);
    QVERIFY(!validate(token).error().isEmpty());
    QCOMPARE(validate(other).status, 200);
    QCOMPARE(logout(token).status, 401);

    QCOMPARE(validate({}).status, 401);
    QCOMPARE(validate(QByteArray(64, '0')).status, 401);
    QCOMPARE(validate(other.toUpper()).status, 401);
    QCOMPARE(raw_http::get(m_backend.port(), "/auth/validate").status, 401);
}

void TestBackendAccounts::renamesWithoutEndingSessions()
{
    const RawReply created = enroll(u"Before"_s);
    const QByteArray token = tokenOf(created);
    const RawReply renamed =
        raw_http::postJson(m_backend.port(), "/auth/rename", {{u"username"_s, u"After"_s}}, token);
    QCOMPARE(renamed.status, 200);
    QCOMPARE(validate(token).json().value(u"username"_s).toString(), u"After"_s);
    QCOMPARE(login(u"Before"_s).status, 401);
    QCOMPARE(uuidOf(login(u"After"_s)), uuidOf(created));
    // The old name is nobody else's yet, and only the case of a name may change.
    QCOMPARE(enroll(u"Before"_s).status, 409);
    QCOMPARE(
        raw_http::postJson(m_backend.port(), "/auth/rename", {{u"username"_s, u"AFTER"_s}}, token)
            .status,
        200);
    QCOMPARE(login(u"after"_s).json().value(u"username"_s).toString(), u"AFTER"_s);
}

void TestBackendAccounts::refusesToRename()
{
    const QByteArray token = tokenOf(enroll(u"Owner"_s));
    QCOMPARE(enroll(u"Taken"_s).status, 200);
    const auto rename = [this](const QString& name, const QByteArray& by) {
        return raw_http::postJson(m_backend.port(), "/auth/rename", {{u"username"_s, name}}, by);
    };
    QCOMPARE(rename(u"tAKEN"_s, token).status, 409);
    QCOMPARE(rename(u"tAKEN"_s, token).error(), u"That username is taken."_s);
    QCOMPARE(rename(u"no"_s, token).status, 400);
    QCOMPARE(rename(u"Fresh"_s, "not a token").status, 401);
    QCOMPARE(validate(token).json().value(u"username"_s).toString(), u"Owner"_s);
}

void TestBackendAccounts::toleratesDoubledSlash()
{
    QCOMPARE(raw_http::get(m_backend.port(), "//manifest.json").status, 200);
    QCOMPARE(raw_http::postJson(m_backend.port(), "//auth/login",
                                credentials(u"Nobody"_s, u"correct horse"_s))
                 .status,
             401);
}

QTEST_GUILESS_MAIN(TestBackendAccounts)
#include "tst_backend_accounts.moc"
