#include "backend/serve_options.h"

#include "backend/command.h"

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
}

// "ADDR:PORT", an IPv6 address in brackets.
bool parseListen(const QString& text, ServeOptions& parsed)
{
    const qsizetype colon = text.lastIndexOf(u':');
    bool isNumber = false;
    parsed.port = QStringView(text).mid(colon + 1).toInt(&isNumber);
    parsed.host = text.left(std::max<qsizetype>(colon, 0));
    if (parsed.host.startsWith(u'[') && parsed.host.endsWith(u']'))
        parsed.host = parsed.host.mid(1, parsed.host.size() - 2);
    else if (parsed.host.contains(u':'))
        return false;
    return !parsed.host.isEmpty() && isNumber && parsed.port >= 0 && parsed.port <= 65535;
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
    const bool anywhere = parsed.host == "0.0.0.0"_L1 || parsed.host == "::"_L1;
    if (anywhere && parsed.publicOrigin.isEmpty())
        return u"--public-origin is needed when listening on all addresses."_s;
    if (parsed.tlsCertificate.isEmpty() != parsed.tlsKey.isEmpty())
        return u"--tls-certificate and --tls-key go together."_s;
    return {};
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
    parsed.site = options.site();
    parsed.tlsCertificate = options.value(u"tls-certificate"_s);
    parsed.tlsKey = options.value(u"tls-key"_s);
    parsed.accessLog = options.value(u"access-log"_s);
    parsed.trustedProxies = options.value(u"trusted-proxy"_s).split(u',', Qt::SkipEmptyParts);
    if (const QString wrong = check(options, parsed); !wrong.isEmpty())
        return command::wrongUsage(wrong, u"serve"_s);
    return parsed;
}

QString ServeOptions::localOrigin() const
{
    const QString address = host.contains(u':') ? u"[%1]"_s.arg(host) : host;
    return u"%1://%2:%3"_s.arg(tlsKey.isEmpty() ? u"http"_s : u"https"_s, address).arg(port);
}
