#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QByteArrayView>
#include <QHash>
#include <QString>

#include <functional>

// Makes files, links and directories below one directory, and nowhere else: every step on the way
// is opened from the one before, and a link among them is a failure. Names are given as the steps
// below the directory, at least one. Each call says whether it worked. Any thread, one at a time.
class TreeWriter
{
public:
    // An existing directory; links that lead to it are followed, once.
    explicit TreeWriter(const QString& destination);
    ~TreeWriter();
    Q_DISABLE_COPY_MOVE(TreeWriter)

    bool isOpen() const { return m_root >= 0; }

    // One that stands there already gets the mode. Modes that would keep their owner out wait for
    // closeDirectories().
    bool makeDirectory(const QByteArrayList& steps, int mode);
    // What stands there is replaced, unless it is a directory.
    bool makeLink(const QByteArrayList& steps, const QByteArray& target);
    bool beginFile(const QByteArrayList& steps, int mode);
    bool write(QByteArrayView data);
    enum class Sync { No, Yes };
    bool endFile(Sync sync = Sync::No);
    // Replaces what stands at `to` in one go.
    bool move(const QByteArrayList& from, const QByteArrayList& to);
    bool closeDirectories(const std::function<bool()>& cancelled);

private:
    int directoryOf(const QByteArrayList& steps);
    bool remove(int directory, const QByteArray& name);
    void closeFile();

    int m_root;
    int m_directory = -1; // the one used last, and where it is
    QByteArrayList m_directorySteps;
    int m_file = -1;
    int m_fileMode = 0;
    QHash<QByteArrayList, int> m_closedModes;
};
