#include "services/elf_head.h"
#include "tests/support/elf_loader.h"
#include "tests/support/files.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const auto dynamicProgram = QStringLiteral(BUILDS_DIR "/programs/same");
const auto staticProgram = QStringLiteral(BUILDS_DIR "/programs/static");

} // namespace

class TestElfHead : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsWhatAProgramAsksFor();
    void knowsNothingOfOtherFiles_data();
    void knowsNothingOfOtherFiles();
    void takesNoLoaderWithoutEnd();
    void survivesAnyByte_data();
    void survivesAnyByte();

private:
    QString file(const QByteArray& content) const
    {
        const QString path = m_directory.filePath(u"file"_s);
        writeFile(path, content);
        return path;
    }

    QTemporaryDir m_directory;
};

void TestElfHead::knowsWhatAProgramAsksFor()
{
    const auto dynamic = ElfHead::of(dynamicProgram);
    const auto fixed = ElfHead::of(staticProgram);
    QVERIFY(dynamic && fixed);
    QVERIFY2(dynamic->interpreter.startsWith("/lib64/ld-linux"), dynamic->interpreter.constData());
    QCOMPARE(fixed->interpreter, QByteArray());
    QCOMPARE(dynamic->machine, fixed->machine);
    QVERIFY(dynamic->isWhole && fixed->isWhole);
}

void TestElfHead::knowsNothingOfOtherFiles_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("a script") << QByteArray("#!/bin/sh\nexit 0\n");
    QTest::newRow("half of a head") << contentOf(staticProgram).left(30);
    QTest::newRow("text after the mark") << QByteArray("\x7f"
                                                       "ELF")
                                                .leftJustified(1000, ' ');
}

void TestElfHead::knowsNothingOfOtherFiles()
{
    QFETCH(QByteArray, content);
    QVERIFY(!ElfHead::of(file(content)));
    QVERIFY(!ElfHead::of(m_directory.filePath(u"nothing"_s)));
    QVERIFY(!ElfHead::of(m_directory.path()));
}

void TestElfHead::takesNoLoaderWithoutEnd()
{
    const QByteArray program = contentOf(dynamicProgram);
    QCOMPARE(ElfHead::of(file(withLoader(program, "/a/loader")))->interpreter,
             QByteArray("/a/loader"));
    const QByteArray path = '/' + QByteArray(1'000'000, 'x');
    QCOMPARE(ElfHead::of(file(withLoader(program, path)))->interpreter, QByteArray());
}

void TestElfHead::survivesAnyByte_data()
{
    QTest::addColumn<int>("byte");
    for (const int byte : {0x00, 0x03, 0x7f, 0x80, 0xff})
        QTest::addRow("%d", byte) << byte;
}

// Each of the head, and each eight of it and of the segments' table: sizes and offsets without end.
void TestElfHead::survivesAnyByte()
{
    QFETCH(int, byte);
    constexpr qsizetype headBytes = 64;
    constexpr qsizetype tableBytes = 14 * 56;
    const QByteArray program = contentOf(dynamicProgram).left(2048);
    int known = 0;
    for (const qsizetype width : {1, 8}) {
        const qsizetype end = width == 1 ? headBytes : headBytes + tableBytes;
        for (qsizetype at = 0; at < end; at += width) {
            QByteArray damaged = program;
            damaged.replace(at, width, QByteArray(width, static_cast<char>(byte)));
            const auto head = ElfHead::of(file(damaged));
            known += head ? 1 : 0;
            QVERIFY(!head || head->interpreter.size() <= 4096);
        }
    }
    QVERIFY2(known > 100, qPrintable(QString::number(known)));
}

QTEST_GUILESS_MAIN(TestElfHead)
#include "tst_elf_head.moc"
