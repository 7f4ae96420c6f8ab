#include "tests/hostile/archives.h"

#include <sys/stat.h>

namespace {

using Verdict = HostileArchive::Verdict;
using Top = const QByteArray&;
constexpr qsizetype mega = 1024 * 1024;

QByteArray pathOf(int steps)
{
    return QByteArray("d/").repeated(steps - 1) + "f";
}

// A name that leads to where the archive is unpacked, or out of it.
QList<HostileArchive> places()
{
    QList<HostileArchive> list;
    const auto entry = [&list](const char* name, Verdict verdict, const ZipBuilder::Raw& raw) {
        list.append({name, verdict, [raw](ZipBuilder good, Top) { return good.raw(raw).bytes(); }});
    };
    entry("itself, mode 0", Verdict::Taken, {.name = "./", .typeAndMode = S_IFDIR});
    entry("itself, mode 1777", Verdict::Taken, {.name = "././", .typeAndMode = S_IFDIR | 01777});
    entry("itself as a link", Verdict::Refused,
          {.name = ".", .content = "jdk-11", .typeAndMode = S_IFLNK | 0777});
    entry("itself as a file", Verdict::Refused, {.name = ".", .content = "x"});
    entry("itself as a file, longer", Verdict::Refused, {.name = "./.", .content = "x"});
    entry("itself by way of a child", Verdict::Refused, {.name = "a/..", .content = "x"});
    entry("itself by way of a child, as directory", Verdict::Refused,
          {.name = "a/../", .typeAndMode = S_IFDIR});
    entry("parent", Verdict::Refused, {.name = "../", .typeAndMode = S_IFDIR});
    entry("climbs", Verdict::Refused, {.name = "../evil", .content = "x"});
    entry("climbs later", Verdict::Refused, {.name = "a/../../evil", .content = "x"});
    entry("absolute", Verdict::Refused, {.name = "/tmp/tessellan-evil", .content = "x"});
    entry("nameless", Verdict::Refused, {.name = "", .content = "x"});
    entry("a zero byte first", Verdict::Refused, {.name = QByteArray("\0evil", 5), .content = "x"});
    entry("climbs before the data only", Verdict::Refused,
          {.name = "jdk-11/x", .content = "x", .localName = "../../ev"});
    return list;
}

QList<HostileArchive> links()
{
    QList<HostileArchive> list;
    const auto link = [&list](const char* name, Verdict verdict, QByteArray target) {
        list.append({name, verdict, [target](ZipBuilder good, Top top) {
                         return good.link(top + "link", target).bytes();
                     }});
    };
    link("link to a neighbour", Verdict::Taken, "release");
    link("absolute link", Verdict::Refused, "/etc/passwd");
    link("link far out", Verdict::Refused, "../../../outside");
    link("link that climbs late", Verdict::Refused, "bin/../../../outside");
    link("link to nothing", Verdict::Refused, "");
    link("link of 70,000 bytes", Verdict::Refused, QByteArray(70'000, 'x'));
    const auto pair = [&list](const char* name, const std::function<void(ZipBuilder&, Top)>& add) {
        list.append({name, Verdict::Refused, [add](ZipBuilder good, Top top) {
                         add(good, top);
                         return good.bytes();
                     }});
    };
    pair("file through a link",
         [](ZipBuilder& zip, Top top) { zip.link(top + "l", "bin").file(top + "l/evil", "x"); });
    pair("file, then a link, then below it", [](ZipBuilder& zip, Top top) {
        zip.file(top + "l", "x").link(top + "l", "bin").file(top + "l/evil", "x");
    });
    pair("link in place of a directory", [](ZipBuilder& zip, Top top) {
        zip.directory(top + "d").link(top + "d", "bin").file(top + "d/evil", "x");
    });
    pair("directory in place of a link", [](ZipBuilder& zip, Top top) {
        zip.link(top + "d", "bin").directory(top + "d").file(top + "d/evil", "x");
    });
    pair("file below a file",
         [](ZipBuilder& zip, Top top) { zip.file(top + "f", "x").file(top + "f/g", "x"); });
    pair("directory in place of a file",
         [](ZipBuilder& zip, Top top) { zip.file(top + "f", "x").directory(top + "f"); });
    return list;
}

QList<HostileArchive> names()
{
    QList<HostileArchive> list;
    const auto file = [&list](const char* name, Verdict verdict, QByteArray path,
                              unsigned typeAndMode = S_IFREG | 0644, quint16 flags = 1 << 11) {
        list.append({name, verdict, [=](ZipBuilder good, Top top) {
                         return good
                             .raw({.name = top + path, .typeAndMode = typeAndMode, .flags = flags})
                             .bytes();
                     }});
    };
    file("64 steps", Verdict::Taken, pathOf(63));
    file("65 steps", Verdict::Refused, pathOf(66));
    file("30,000 steps", Verdict::Refused, pathOf(30'000));
    file("step of 255 bytes", Verdict::Taken, QByteArray(255, 'n'));
    file("step of 256 bytes", Verdict::Refused, QByteArray(256, 'n'));
    file("name of 5,000 bytes", Verdict::Refused, QByteArray(199, 'n').append('/').repeated(25));
    file("Latin-1 name", Verdict::Taken, "\xfcml\xe4ut", S_IFREG | 0644, 0);
    file("Latin-1 name called UTF-8", Verdict::Either, "\xfcml\xe4ut");
    // The library takes them for slashes where there are no others.
    file("backslashes", Verdict::Either, "..\\..\\evil");
    file("line breaks", Verdict::Taken, "a\nb\r");
    file("device", Verdict::Refused, "device", S_IFCHR | 0666);
    // A known packer says so of what it read from a pipe: a file.
    file("pipe", Verdict::Taken, "pipe", S_IFIFO | 0666);
    file("socket", Verdict::Refused, "socket", S_IFSOCK | 0666);
    file("set-user-id", Verdict::Taken, "sudo", S_IFREG | 06755);
    list.append({"two letter cases", Verdict::Taken, [](ZipBuilder good, Top top) {
                     return good.file(top + "readme", "x").file(top + "README", "y").bytes();
                 }});
    list.append({"the same file twice", Verdict::Taken, [](ZipBuilder good, Top top) {
                     return good.file(top + "twice", "x").file(top + "twice", "y").bytes();
                 }});
    list.append({"names of temporary files", Verdict::Taken, [](ZipBuilder good, Top top) {
                     return good.file(top + "x.part", "one").file(top + "x", "other").bytes();
                 }});
    list.append({"closed directories", Verdict::Taken, [](ZipBuilder good, Top top) {
                     return good.directory(top + "r", 0555)
                         .directory(top + "r/none", 0)
                         .file(top + "r/none/file", "x", 0)
                         .bytes();
                 }});
    return list;
}

QList<HostileArchive> sizes()
{
    QList<HostileArchive> list;
    const auto raw = [&list](const char* name, Verdict verdict, ZipBuilder::Raw entry) {
        list.append({name, verdict, [entry](ZipBuilder good, Top top) mutable {
                         ZipBuilder::Raw placed = entry;
                         placed.name = top + "entry";
                         placed.content = placed.content.isEmpty() ? "content" : placed.content;
                         return good.raw(placed).bytes();
                     }});
    };
    raw("stored", Verdict::Taken, {.method = 0});
    raw("encrypted", Verdict::Refused, {.flags = 1});
    raw("unknown method", Verdict::Refused, {.method = 99});
    raw("claims fewer bytes", Verdict::Refused, {.size = 2});
    raw("claims more bytes", Verdict::Refused, {.size = 4'000'000'000});
    raw("claims fewer packed bytes", Verdict::Refused, {.packedSize = 2});
    raw("claims more packed bytes", Verdict::Refused, {.packedSize = 4'000'000'000});
    raw("stored, claims more bytes", Verdict::Refused,
        {.method = 0, .size = 900, .packedSize = 900});
    raw("sizes behind the data", Verdict::Taken, {.sizesFollow = true});
    raw("64-bit sizes", Verdict::Taken, {.sizesAre64Bit = true});
    raw("10 MB of zeros", Verdict::Taken, {.content = QByteArray(10 * mega, '\0')});
    raw("bomb", Verdict::Refused, {.content = QByteArray(70 * mega, '\0')});
    list.append({"bomb of many", Verdict::Refused, [](ZipBuilder good, Top top) {
                     const QByteArray zeros(4 * mega, '\0');
                     for (int i = 0; i < 20; ++i)
                         good.file(top + QByteArray::number(i), zeros);
                     return good.bytes();
                 }});
    list.append({"wrong checksum", Verdict::Refused, [](ZipBuilder good, Top top) {
                     return good.withWrongChecksums().file(top + "x", "content").bytes();
                 }});
    return list;
}

QList<HostileArchive> counts()
{
    QList<HostileArchive> list;
    const auto many = [&list](const char* name, Verdict verdict, int count,
                              const std::function<void(ZipBuilder&, const QByteArray&)>& add) {
        list.append({name, verdict, [=](ZipBuilder good, Top top) {
                         for (int i = 0; i < count; ++i)
                             add(good, top + QByteArray::number(i));
                         return good.bytes();
                     }});
    };
    many("10,000 files", Verdict::AsRuntimeOnly, 10'000,
         [](ZipBuilder& zip, Top path) { zip.raw({.name = path, .method = 0}); });
    many("300 entries, 18,000 directories", Verdict::AsRuntimeOnly, 300,
         [](ZipBuilder& zip, Top path) { zip.file(path + QByteArray("/d").repeated(60), {}); });
    many("1,000 names for one file", Verdict::Either, 1'000,
         [](ZipBuilder& zip, Top path) { zip.raw({.name = path, .at = 0}); });
    // The library holds all of them in memory before it hands out the first entry.
    many("directory of 40 MB", Verdict::Refused, 160'000, [](ZipBuilder& zip, Top path) {
        zip.raw({.name = path.leftJustified(200, 'x'), .at = 0});
    });
    list.append({"100,001 entries", Verdict::Refused, [](ZipBuilder good, Top top) {
                     for (int i = 0; i <= 100'000; ++i)
                         good.directory(top + "d");
                     return good.bytes();
                 }});
    return list;
}

QList<HostileArchive> ends()
{
    QList<HostileArchive> list;
    const auto change = [&list](const char* name, Verdict verdict,
                                const std::function<QByteArray(ZipBuilder)>& make) {
        list.append({name, verdict, [make](ZipBuilder good, Top) { return make(good); }});
    };
    change("comment of 17,000 bytes", Verdict::Taken,
           [](ZipBuilder zip) { return zip.comment(QByteArray(17'000, 'c')).bytes(); });
    change("comment of 65,535 bytes", Verdict::Taken,
           [](ZipBuilder zip) { return zip.comment(QByteArray(65'535, 'c')).bytes(); });
    change("ends within the comment", Verdict::Taken, [](ZipBuilder zip) {
        return zip.comment(QByteArray("PK\x05\x06 no end").repeated(2'000)).bytes();
    });
    change("an archive as the comment", Verdict::Either, [](ZipBuilder zip) {
        return zip.comment(ZipBuilder().file("../evil", "x").bytes()).bytes();
    });
    change("64-bit end", Verdict::Taken, [](ZipBuilder zip) { return zip.with64BitEnd().bytes(); });
    change("something before it", Verdict::Taken,
           [](ZipBuilder zip) { return QByteArray(QByteArray(5'000, 'x') + zip.bytes()); });
    change("something behind it", Verdict::Either,
           [](ZipBuilder zip) { return QByteArray(zip.bytes() + QByteArray(5'000, 'x')); });
    change("another archive behind it", Verdict::Either, [](ZipBuilder zip) {
        return QByteArray(zip.bytes() + ZipBuilder().file("../evil", "x").bytes());
    });
    change("no entries", Verdict::Refused, [](const ZipBuilder&) { return ZipBuilder().bytes(); });
    change("no entries, with a comment", Verdict::Refused,
           [](const ZipBuilder&) { return ZipBuilder().comment(QByteArray(20'000, 'c')).bytes(); });
    change("cut in half", Verdict::Refused,
           [](const ZipBuilder& zip) { return zip.bytes().left(zip.bytes().size() / 2); });
    change("end missing", Verdict::Refused,
           [](const ZipBuilder& zip) { return zip.bytes().chopped(4); });
    change("nothing", Verdict::Refused, [](const ZipBuilder&) { return QByteArray(); });
    change("a page", Verdict::Refused, [](const ZipBuilder&) { return QByteArray("<html>no"); });
    change("zeros", Verdict::Refused, [](const ZipBuilder&) { return QByteArray(mega, '\0'); });
    return list;
}

} // namespace

QList<HostileArchive> hostileArchives()
{
    return places() + links() + names() + sizes() + counts() + ends();
}
