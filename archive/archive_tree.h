#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QHash>
#include <QList>

#include <utility>

// The files and directories that an archive has brought so far, the missing parents of its entries
// included. An entry that stands for another kind of thing than an earlier one of its name, or
// below what is no directory, would be unpacked through a link or in place of a directory.
class ArchiveTree
{
public:
    enum class Kind { Directory, File, Link };
    enum class Verdict { Fits, Conflicts, Full };

    explicit ArchiveTree(int maxNodes) : m_maxNodes(maxNodes) {}

    Verdict add(const QByteArrayList& steps, Kind kind);

private:
    int m_maxNodes;
    QHash<std::pair<qsizetype, QByteArray>, qsizetype> m_nodes; // parent and name to an index
    QList<Kind> m_kinds = {Kind::Directory};                    // index 0 is the destination
};
