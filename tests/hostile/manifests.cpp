#include "tests/hostile/manifests.h"

#include <QByteArrayList>
#include <QList>
#include <QString>

#include <functional>

namespace {

constexpr qsizetype largest = 16 * 1024 * 1024 - 1024; // of what the launcher takes
constexpr qsizetype large = 2 * 1024 * 1024;

struct Filling
{
    const char* name;
    const char* piece; // JSON, repeated
};

// What a layout, a painter or a file name has trouble with.
constexpr Filling fillings[] = {
    {"one letter", "x"},
    {"no-break spaces", "\xc2\xa0"},
    {"combining marks", "\xcc\x81"},
    {"line separators", "\xe2\x80\xa8"},
    {"line feeds", "\\n"},
    {"Hebrew", "\xd7\x90"},
    {"right-to-left overrides", "\xe2\x80\xae"},
    {"word joiners", "a\xe2\x81\xa0"},
    {"joined emoji", "\xf0\x9f\x91\xa9\xe2\x80\x8d"},
    {"lone surrogates", "\\ud800"},
    {"HTML", "<img src='/etc/passwd'><b>"},
    {"tabs", "\\t"},
    {"zero-width spaces", "\xe2\x80\x8b"},
    {"NULs", "\\u0000"},
    {"steps up", "../"},
};

QByteArray filled(const char* piece, qsizetype bytes)
{
    return QByteArray(piece).repeated(bytes / static_cast<qsizetype>(qstrlen(piece)));
}

// One version and one news item, ordinary but for the named fields.
QByteArray manifestWith(const QByteArrayList& fields, const QByteArray& value)
{
    const auto pick = [&](const char* name, const char* ordinary) -> QByteArray {
        return "\"" + QByteArray(name) + "\":\"" +
               (fields.contains(name) ? value : QByteArray(ordinary)) + "\"";
    };
    return "{\"versions\":[{" + pick("id", "1.0") + "," + pick("url", "http://127.0.0.1:9/x") +
           "," + pick("sha256", "") + "," + pick("released", "2026-01-02") + "}],\"news\":[{" +
           pick("title", "Headline") + "," + pick("date", "2026-01-02") + "," +
           pick("body", "Text") + "}]}";
}

QByteArray list(const QByteArray& entry, qsizetype bytes)
{
    QByteArray entries = QByteArray(entry + ",").repeated(bytes / (entry.size() + 1));
    entries.chop(1);
    return "[" + entries + "]";
}

QByteArray manifestOf(const QByteArray& versions, const QByteArray& news)
{
    return "{\"versions\":" + versions + ",\"news\":" + news + "}";
}

const QByteArray version = R"({"id":"1.0","url":"http://127.0.0.1:9/x"})";
const QByteArray newsItem = R"({"title":"a","date":"b","body":"c"})";

struct Recipe
{
    QByteArray name;
    std::function<QByteArray()> make;
};

QList<Recipe> recipes()
{
    QList<Recipe> all;
    for (const Filling& filling : fillings) {
        const auto addWith = [&](const QByteArray& where, const QByteArrayList& fields) {
            all.append({where + " of " + filling.name, [fields, filling] {
                            return manifestWith(fields, filled(filling.piece, large));
                        }});
        };
        addWith("names", {"id", "title", "date"});
        addWith("body", {"body"});
    }
    // Nobody lays these out.
    all.append({"unseen fields",
                [] { return manifestWith({"url", "sha256", "released"}, filled("x", large)); }});
    for (const char* field : {"id", "title", "body"})
        all.append({"16 MB of " + QByteArray(field),
                    [field] { return manifestWith({field}, filled("x", largest)); }});
    const auto add = [&all](const char* name, const std::function<QByteArray()>& make) {
        all.append({name, make});
    };
    add("a body of short lines", [] { return manifestWith({"body"}, filled("ab\\n", largest)); });
    add("a body of lines of 10,000", [] {
        return manifestWith(
            {"body"}, filled(QByteArray(QByteArray(10'000, 'x') + "\\n").constData(), largest));
    });
    add("many tiny versions",
        [] { return manifestOf(list(R"({"id":"a","url":"b"})", large), "[]"); });
    add("many tiny news", [] { return manifestOf("[]", list(R"({"title":"a"})", large)); });
    add("many rows of a thousand letters", [] {
        const QByteArray text(1000, 'W');
        return manifestOf(list(R"({"id":")" + text + R"(","url":"b"})", 2 * large),
                          list(R"({"title":")" + text + R"("})", 2 * large));
    });
    add("one id, many times",
        [] { return manifestOf(list(version, large), list(newsItem, large)); });
    add("nested as deep as parses", [] {
        const QByteArray deep = QByteArray(1000, '[') + QByteArray(1000, ']');
        return manifestOf("[" + version + "," + deep + "]", deep);
    });
    add("wrong types", [] {
        return manifestOf(R"([null,7,"x",[],{"id":7,"url":{}},{"id":[],"url":null},)" + version +
                              "]",
                          R"([null,{"title":7},{"title":"t","date":{},"body":[1]},{"title":"u"}])");
    });
    add("ids that are paths", [] {
        return manifestOf(
            R"([{"id":"..","url":"u"},{"id":"/","url":"u"},{"id":"../../x","url":"u"},)"
            R"({"id":"a\nb","url":"u"},{"id":"a\u0000b","url":"u"},)"
            R"({"id":"version:1.0","url":"u"},{"id":" ","url":"u"}])",
            "[]");
    });
    return all;
}

} // namespace

qsizetype hostile::manifestCount()
{
    return recipes().size();
}

QByteArray hostile::manifestName(qsizetype index)
{
    return recipes().at(index).name;
}

QByteArray hostile::manifest(qsizetype index)
{
    return recipes().at(index).make();
}
