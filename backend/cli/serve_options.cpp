#include "backend/cli/serve_options.h"

#include "backend/cli/command.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

void describe(command::Options& options)
{
    options.add(u"listen"_s, u"Where to listen (port 0: any free one)."_s, u"ADDR:PORT"_s,
                u"127.0.0.1:18461"_s);
    options.add(u"public-origin"_s,
                u"How players reach this server; stands in the manifest's addresses. "
                "Default: what it listens on."_s,
                u"URL"_s);
    options.add(u"files-origin"_s,
                u"Where players fetch files, when another server or a CDN hands out the directory "
                "files/ of the data directory as URL/files/."_s,
                u"URL"_s);
    options.add(u"tls-certificate"_s, u"A PEM file with the certificate chain: serve HTTPS."_s,
                u"FILE"_s);
    options.add(u"tls-key"_s, u"The PEM file with the certificate's key."_s, u"FILE"_s);
    options.add(u"trusted-proxy"_s,
                u"Addresses of reverse proxies, separated by commas, whose X-Forwarded-For names "
                "the client."_s,
                u"ADDRS"_s);
    options.add(u"access-log"_s,
                u"Log requests as JSON lines to a file, or - for standard error."_s, u"FILE"_s);
    const QString number = u"NUMBER"_s;
    options.add(u"max-connections"_s, u"How many clients are served at a time."_s, number,
                u"4000"_s);
    options.add(u"max-address-connections"_s,
                u"How many of them may have the same address (IPv6: the same network)."_s, number,
                u"100"_s);
    options.add(u"max-body-memory"_s, u"MiB that all uploads under way may fill."_s, number,
                u"32"_s);
    options.add(u"max-account-body-memory"_s, u"MiB of them that one account may fill."_s, number,
                u"4"_s);
    options.add(u"max-account-uploads"_s,
                u"Skins and models that one account may upload in an hour (0: any number)."_s,
                number, u"60"_s);
    options.add(u"max-account-upload-volume"_s,
                u"MiB after which an account's uploads of an hour are over (0: never)."_s, number,
                u"32"_s);
    options.add(
        u"max-account-sessions"_s,
        u"Sessions of one account; one more ends the one that was used least lately (0: any "
        "number)."_s,
        number, u"20"_s);
    options.add(u"max-account-renames"_s,
                u"How often an account may change its name in a day (0: any number)."_s, number,
                u"5"_s);
    options.add(u"max-address-registrations"_s,
                u"Accounts that one address may register in an hour (IPv6: one network; 0: any "
                "number)."_s,
                number, u"20"_s);
    options.add(u"stall-seconds"_s,
                u"How long a client may take for each 64 KiB of an answer; for an upload, half "
                "as long."_s,
                number, u"30"_s);
    options.add(u"answer-seconds"_s, u"After how long a request that waits is answered 503."_s,
                number, u"10"_s);
}

// "ADDR:PORT", an IPv6 address in brackets.
bool parseListen(const QString& text, ServeOptions& parsed)
{
    const qsizetype colon = text.lastIndexOf(u':');
    bool isNumber = false;
    parsed.network.port = QStringView(text).mid(colon + 1).toInt(&isNumber);
    parsed.network.host = text.left(std::max<qsizetype>(colon, 0));
    if (parsed.network.host.startsWith(u'[') && parsed.network.host.endsWith(u']'))
        parsed.network.host = parsed.network.host.mid(1, parsed.network.host.size() - 2);
    else if (parsed.network.host.contains(u':'))
        return false;
    return !parsed.network.host.isEmpty() && isNumber && parsed.network.port >= 0 &&
           parsed.network.port <= 65535;
}

// An http or https address, left without its last slashes.
bool parseOrigin(QString text, QString& parsed)
{
    while (text.endsWith(u'/'))
        text.chop(1);
    parsed = text;
    const QUrl url(text, QUrl::StrictMode);
    const bool web = url.scheme() == "http"_L1 || url.scheme() == "https"_L1;
    return text.isEmpty() ||
           (url.isValid() && web && !url.host().isEmpty() && !url.hasQuery() && !url.hasFragment());
}

// Reads a number from `least` on; hands back what is wrong, or nothing.
template <typename Number>
QString parseNumber(const command::Options& options, const QString& name, Number& parsed,
                    std::type_identity_t<Number> unit, int least = 1)
{
    bool isNumber = false;
    const int number = options.value(name).toInt(&isNumber);
    if (!isNumber || number < least || number > 1'000'000)
        return u"--%1 must be a number between %2 and 1000000."_s.arg(name).arg(least);
    parsed = static_cast<Number>(number * unit);
    return {};
}

constexpr qint64 mebibyte = 1024 * 1024;

// What accounts and addresses may do within some time; 0 is no limit.
QString parseBudgets(const command::Options& options, ServeOptions& parsed)
{
    QString wrong;
    const auto next = [&](const QString& name, auto& field, auto unit) {
        if (wrong.isEmpty())
            wrong = parseNumber(options, name, field, unit, 0);
    };
    next(u"max-account-uploads"_s, parsed.uploads.uploads, 1);
    next(u"max-account-upload-volume"_s, parsed.uploads.bytes, mebibyte);
    next(u"max-account-sessions"_s, parsed.accounts.sessions, 1);
    next(u"max-account-renames"_s, parsed.accounts.renamesPerDay, 1);
    next(u"max-address-registrations"_s, parsed.registrationsOfAddress, 1);
    return wrong;
}

QString parseLimits(const command::Options& options, ServeOptions& parsed)
{
    server::Options& network = parsed.network;
    QString wrong = parseNumber(options, u"max-connections"_s, network.connections, 1);
    const auto next = [&](const QString& name, auto& field, auto unit) {
        if (wrong.isEmpty())
            wrong = parseNumber(options, name, field, unit);
    };
    next(u"max-address-connections"_s, network.connectionsOfAddress, 1);
    next(u"max-body-memory"_s, parsed.bodies.process, mebibyte);
    next(u"max-account-body-memory"_s, parsed.bodies.account, mebibyte);
    int stall = 0;
    int answer = 0;
    next(u"stall-seconds"_s, stall, 1);
    next(u"answer-seconds"_s, answer, 1);
    network.transfer = std::chrono::seconds(stall);
    network.body = network.transfer / 2;
    network.application = std::chrono::seconds(answer);
    return wrong.isEmpty() ? parseBudgets(options, parsed) : wrong;
}

// What is wrong with the options, or nothing.
QString check(const command::Options& options, ServeOptions& parsed)
{
    if (!parseListen(options.value(u"listen"_s), parsed))
        return u"--listen must be ADDR:PORT, such as 127.0.0.1:18461."_s;
    const QString origin =
        u"--%1 must be an http or https address, such as https://play.example."_s;
    if (!parseOrigin(options.value(u"public-origin"_s), parsed.publicOrigin))
        return origin.arg(u"public-origin"_s);
    if (!parseOrigin(options.value(u"files-origin"_s), parsed.filesOrigin))
        return origin.arg(u"files-origin"_s);
    const bool anywhere = parsed.network.host == "0.0.0.0"_L1 || parsed.network.host == "::"_L1;
    if (anywhere && parsed.publicOrigin.isEmpty())
        return u"--public-origin is needed when listening on all addresses."_s;
    if (parsed.certificate.isEmpty() != parsed.key.isEmpty())
        return u"--tls-certificate and --tls-key go together."_s;
    return parseLimits(options, parsed);
}

} // namespace

std::variant<ServeOptions, int> ServeOptions::parse(const QStringList& words)
{
    command::Options options(u"serve"_s, u"Runs the server until SIGTERM or SIGINT."_s,
                             command::Options::Directory::MadeWhenMissing);
    describe(options);
    if (const auto over = options.parse(words))
        return *over;
    ServeOptions parsed;
    parsed.data = options.dataLocation();
    parsed.certificate = options.value(u"tls-certificate"_s);
    parsed.key = options.value(u"tls-key"_s);
    parsed.accessLog = options.value(u"access-log"_s);
    parsed.network.trustedProxies =
        options.value(u"trusted-proxy"_s).split(u',', Qt::SkipEmptyParts);
    if (const QString wrong = check(options, parsed); !wrong.isEmpty())
        return command::wrongUsage(wrong, u"serve"_s);
    return parsed;
}

QString ServeOptions::localOrigin(int port) const
{
    const QString& host = network.host;
    const QString address = host.contains(u':') ? u"[%1]"_s.arg(host) : host;
    return u"%1://%2:%3"_s.arg(key.isEmpty() ? u"http"_s : u"https"_s, address).arg(port);
}
