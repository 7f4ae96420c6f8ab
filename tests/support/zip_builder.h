#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Writes ZIP archives byte by byte, hostile ones included: names are stored as the bytes given,
// nothing is checked. Independent of the library that the launcher reads archives with.
class ZipBuilder
{
public:
    enum class Names {
        Utf8,    // the entry says that its name is UTF-8
        Unmarked // the entry says nothing, as old tools do
    };

    ZipBuilder& file(const QByteArray& name, const QByteArray& content, unsigned mode = 0644,
                     Names names = Names::Utf8);
    // The name's slash at the end is added.
    ZipBuilder& directory(const QByteArray& name, unsigned mode = 0755);
    ZipBuilder& link(const QByteArray& name, const QByteArray& target);
    // An entry that says of itself what it likes.
    struct Raw
    {
        QByteArray name = {};
        QByteArray content = {};
        unsigned typeAndMode = 0100644;
        quint16 flags = 1 << 11; // UTF-8
        quint16 method = 8;      // deflated; 0 is stored, anything else is deflated all the same
        std::optional<quint32> size = {};
        std::optional<quint32> packedSize = {};
        QByteArray localName = {};  // before the data, in place of `name`
        bool sizesFollow = false;   // behind the data, as a packer that cannot go back writes them
        bool sizesAre64Bit = false; // in extra fields
        std::optional<quint32> at = {}; // claims to be where another entry is: no data of its own
    };
    ZipBuilder& raw(const Raw& entry);
    ZipBuilder& comment(const QByteArray& text);
    // The end in its 64-bit form.
    ZipBuilder& with64BitEnd();
    // Any Unix file type: S_IFIFO, S_IFCHR and so on.
    ZipBuilder& special(const QByteArray& name, unsigned typeAndMode);
    // From here on entries carry a checksum that is not their content's.
    ZipBuilder& withWrongChecksums();

    QByteArray bytes() const;
    bool write(const QString& path) const;

    // A runtime as the archive service packs it: one top directory with an executable bin/java,
    // which is the shell script given.
    static ZipBuilder runtime(const QByteArray& topDirectory, const QByteArray& javaScript);

private:
    void add(const QByteArray& name, const QByteArray& content, unsigned typeAndMode, Names names);

    QByteArray m_comment;
    bool m_64BitEnd = false;
    QByteArray m_entries;
    QByteArray m_directory;
    quint16 m_count = 0;
    bool m_wrongChecksums = false;
};
