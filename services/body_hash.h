#pragma once

#include "services/worker.h"

#include <QByteArrayView>
#include <QString>

#include <functional>
#include <memory>

class Sha256;

// SHA-256 of a body that comes piece by piece, computed beside the event loop: a gigabyte takes
// more than half a second. Internal to ReplyTaker, on its thread. Its end drops what is not hashed.
class BodyHash
{
public:
    // `advanced` is called from the event loop whenever less is left to do.
    explicit BodyHash(std::function<void()> advanced);
    ~BodyHash();
    Q_DISABLE_COPY_MOVE(BodyHash)

    // Copies it.
    void add(QByteArrayView piece);
    // So much waits that no more is to be added.
    bool isFull() const;
    bool isDone() const { return m_waiting == 0; }
    // As Sha256's, once that is so.
    QString result();

private:
    std::function<void()> m_advanced;
    qsizetype m_waiting = 0;        // bytes
    std::shared_ptr<Sha256> m_hash; // the worker's thread only, until all is done
    Worker m_worker;
};
