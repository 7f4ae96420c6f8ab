#pragma once

#include <QtGlobal>

#include <optional>

class ArchiveSource;

// The record that ends a ZIP. libarchive looks for it in the last 16 KB only, though a comment of
// up to 64 KB may follow it, and never finds the one of an archive that holds nothing else.
struct ZipEnd
{
    qint64 endWithoutComment;
    bool hasEntries;

    // Nothing unless a record is there whose comment ends where the archive does.
    static std::optional<ZipEnd> find(ArchiveSource& source);
};
