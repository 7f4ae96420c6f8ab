#pragma once

#include <QByteArray>
#include <QList>

// PNG files that no honest program writes.
namespace hostile_pngs {

struct File
{
    QByteArray name;
    QByteArray bytes;
};

// Well-formed and not, all cheap to read: chunks in odd places, cut files, every kind of pixel.
QList<File> odd();
// So many files, each a small one with some bytes or chunks changed, the same ones every time.
QList<File> mutated(int count);
QList<File> mutationsOf(const QList<QByteArray>& seeds, int count);
// What would cost a careless reader seconds or gigabytes though a picture can be got from it at
// the price of the picture.
QList<File> costlyPictures();
// What would cost that and is refused for it, whatever else a reader might make of it.
QList<File> bombs();

} // namespace hostile_pngs
