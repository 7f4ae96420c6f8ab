#pragma once

#include "versions/file_stamp.h"

#include <QHash>
#include <QString>

#include <optional>
#include <stop_token>

// SHA-256 of files, remembered for as long as a file looks as it did. A file is remembered only
// when any later change would show. One thread at a time; threads that work with the same files
// have a memory each and hand readings on.
class FileDigests
{
public:
    // What is known of a file after it was read, or written.
    struct Reading
    {
        // 64 lower-case hexadecimal characters; empty when it cannot be read or is no regular file.
        QString sha256;
        std::optional<FileStamp> stamp; // nothing when it changed meanwhile
        bool isLasting = false;         // any later change shows in the stamp
    };

    // From memory; reads the file when it is not known.
    Reading read(const QString& path, const std::stop_token& stop = {});
    // The digest when it is known, or can be in a moment because there is little to read.
    std::optional<QString> find(const QString& path);

    // A reading that does not last counts until it is forgotten.
    void insert(const QString& path, const Reading& reading);
    void forgetFleeting();

private:
    QHash<QString, Reading> m_known; // by path
};
