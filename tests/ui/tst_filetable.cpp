// The file table: what each row shows and carries, its order for every column, and navigation.
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/index/DisplayFormat.h"
#include "core/index/EntrySorting.h"
#include "ui/FileTypeIcons.h"

#include <QApplication>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QStyle>
#include <QTableWidget>
#include <QTest>

using namespace Velmarin;
using Velmarin::Tests::WindowFixture;

namespace {

constexpr int KindRole = Qt::UserRole + 1;

QDateTime day(int d)
{
    return QDateTime(QDate(2024, 1, d), QTime(10, 30), Qt::UTC);
}

QStringList texts(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items) {
        list.append(QString::fromUtf8(item));
    }
    return list;
}

QImage image(const QIcon& icon)
{
    return icon.pixmap(QSize(18, 18)).toImage().convertToFormat(QImage::Format_ARGB32);
}

bool containsColour(const QImage& picture, const QColor& colour)
{
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            if (picture.pixelColor(x, y) == colour) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

class FileTableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void rootHasNoParentRow();
    void rowsCarryTheirPathAndKindOnEveryItem();
    void cellsShowSizeTypeAndDate();
    void typeTexts_data();
    void typeTexts();
    void badgeTable_data();
    void badgeTable();
    void rowIcons();
    void invalidTimeShowsAnEmptyCell();
    void sortsEveryColumnBothWays_data();
    void sortsEveryColumnBothWays();
    void sortingBySizeDescendingKeepsFoldersOnTop();
    void iconColumnHeaderDoesNotSort();
    void parentRowStaysFirstInAFolder();
    void navigatesDownAndBackUp();
    void folderOfAnyLetterCaseIsListed();
    void doubleClickOnAFileOpensIt();
    void tableIsEmptyWhileLocked();

private:
    void setUpSortingVault();

    WindowFixture m_fixture;
};

void FileTableTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void FileTableTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void FileTableTest::setUpSortingVault()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("gamma"), QStringLiteral("Alpha"), QStringLiteral("beta")},
                            {
                                {QStringLiteral("b.txt"), QByteArray(300, 'b'), day(1)},
                                {QStringLiteral("A.png"), QByteArray(100, 'a'), day(5)},
                                {QStringLiteral("c.txt"), QByteArray(100, 'c'), day(3)},
                                {QStringLiteral("d"), QByteArray(200, 'd'), day(2)},
                                {QStringLiteral("E.JPG"), QByteArray(300, 'e'), day(4)},
                            }));
    QVERIFY(m_fixture.unlock());
}

void FileTableTest::rootHasNoParentRow()
{
    setUpSortingVault();
    const QStringList names = m_fixture.names();
    QVERIFY(!names.contains(QStringLiteral("..")));
    QCOMPARE(names, QStringList({QStringLiteral("Alpha"), QStringLiteral("beta"), QStringLiteral("gamma"),
                                 QStringLiteral("A.png"), QStringLiteral("b.txt"), QStringLiteral("c.txt"),
                                 QStringLiteral("d"), QStringLiteral("E.JPG")}));
    // No row is current after a refill.
    QCOMPARE(m_fixture.table()->currentRow(), -1);
    QVERIFY(m_fixture.table()->selectedItems().isEmpty());
}

void FileTableTest::rowsCarryTheirPathAndKindOnEveryItem()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("Docs/carta.txt"), "x"}}));
    QVERIFY(m_fixture.unlock());
    QTableWidget* table = m_fixture.table();
    for (int column = 0; column < 5; ++column) {
        QCOMPARE(table->item(0, column)->data(Qt::UserRole).toString(), QStringLiteral("Docs"));
        QCOMPARE(table->item(0, column)->data(KindRole).toInt(), 1);
    }
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("carta.txt")}));
    for (int column = 0; column < 5; ++column) {
        QCOMPARE(table->item(0, column)->data(Qt::UserRole).toString(), QString());
        QCOMPARE(table->item(0, column)->data(KindRole).toInt(), 2);
        QCOMPARE(table->item(1, column)->data(Qt::UserRole).toString(), QStringLiteral("Docs/carta.txt"));
        QCOMPARE(table->item(1, column)->data(KindRole).toInt(), 0);
    }
}

void FileTableTest::cellsShowSizeTypeAndDate()
{
    const QDateTime modified(QDate(2023, 7, 14), QTime(18, 5, 30), Qt::UTC);
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")},
                            {{QStringLiteral("relatorio.pdf"), QByteArray(1536, 'r'), modified}}));
    QVERIFY(m_fixture.unlock());
    QTableWidget* table = m_fixture.table();
    const Qt::Alignment centred = Qt::AlignHCenter | Qt::AlignVCenter;

    const int folder = m_fixture.rowOf(QStringLiteral("Docs"));
    QCOMPARE(table->item(folder, 2)->text(), QString());
    QCOMPARE(table->item(folder, 3)->text(), QStringLiteral("Pasta"));
    QCOMPARE(table->item(folder, 4)->text().size(), 16);
    QCOMPARE(Qt::Alignment(table->item(folder, 0)->textAlignment()), centred);
    QCOMPARE(Qt::Alignment(table->item(folder, 3)->textAlignment()), centred);
    QCOMPARE(Qt::Alignment(table->item(folder, 4)->textAlignment()), centred);

    const int file = m_fixture.rowOf(QStringLiteral("relatorio.pdf"));
    QCOMPARE(table->item(file, 2)->text(), QStringLiteral("1,5 kB"));
    QCOMPARE(Qt::Alignment(table->item(file, 2)->textAlignment()), Qt::AlignRight | Qt::AlignVCenter);
    QCOMPARE(table->item(file, 3)->text(), QStringLiteral("PDF"));
    QCOMPARE(Qt::Alignment(table->item(file, 3)->textAlignment()), centred);
    QCOMPARE(table->item(file, 4)->text(),
             QLocale().toString(modified.toLocalTime(), QStringLiteral("dd/MM/yyyy HH:mm")));
    QCOMPARE(Qt::Alignment(table->item(file, 4)->textAlignment()), centred);
    QCOMPARE(table->item(file, 0)->text(), QString());
}

void FileTableTest::typeTexts_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("type");
    QTest::newRow("no suffix") << "notas"
                               << "Arquivo";
    QTest::newRow("upper-cased suffix kept") << "foto.JPEG"
                                             << "JPEG";
    QTest::newRow("lower-case suffix") << "carta.txt"
                                       << "TXT";
    QTest::newRow("last suffix only") << "copia.tar.gz"
                                      << "GZ";
    QTest::newRow("hidden-style name") << ".config"
                                       << "CONFIG";
}

void FileTableTest::typeTexts()
{
    QFETCH(QString, name);
    QFETCH(QString, type);
    QCOMPARE(Core::EntrySorting::typeText(name), type);
}

void FileTableTest::badgeTable_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QColor>("colour");
    const auto rows = [](const QStringList& suffixes, const char* label, const QColor& colour) {
        for (const QString& suffix : suffixes) {
            QTest::newRow(qPrintable(suffix)) << suffix << QString::fromLatin1(label) << colour;
        }
    };
    rows({QStringLiteral("pem"), QStringLiteral("key"), QStringLiteral("KEY")}, "KEY", QColor(31, 115, 92));
    rows({QStringLiteral("sig"), QStringLiteral("asc")}, "SIG", QColor(112, 80, 160));
    rows({QStringLiteral("crt"), QStringLiteral("cer"), QStringLiteral("csr")}, "CRT", QColor(184, 113, 24));
    rows({QStringLiteral("encrypted")}, "ENC", QColor(69, 92, 122));
    rows({QStringLiteral("txt"), QStringLiteral("log")}, "TXT", QColor(90, 90, 90));
    rows({QStringLiteral("mp3"), QStringLiteral("wav"), QStringLiteral("flac"), QStringLiteral("ogg"),
          QStringLiteral("m4a")},
         "AUD", QColor(37, 99, 180));
    rows({QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("JPEG"), QStringLiteral("png"),
          QStringLiteral("gif"), QStringLiteral("bmp"), QStringLiteral("webp")},
         "IMG", QColor(31, 132, 141));
    rows({QStringLiteral("pdf"), QStringLiteral("docx"), QString()}, "", QColor(92, 92, 92));
}

void FileTableTest::badgeTable()
{
    QFETCH(QString, suffix);
    QFETCH(QString, label);
    QFETCH(QColor, colour);
    const UI::FileTypeIcons::Badge badge = UI::FileTypeIcons::badgeFor(suffix);
    QCOMPARE(badge.label, label);
    QCOMPARE(badge.color, colour);
    QCOMPARE(badge.color.alpha(), 255);
    const QIcon icon = UI::FileTypeIcons::badgeIcon(badge);
    QCOMPARE(icon.isNull(), label.isEmpty());
    if (!icon.isNull()) {
        // The badge's band is painted in the table's colour.
        QVERIFY(containsColour(icon.pixmap(QSize(54, 54)).toImage(), colour));
    }
}

void FileTableTest::rowIcons()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("Docs/foto.JPEG"), "j"},
                                                       {QStringLiteral("Docs/notas"), "n"},
                                                       {QStringLiteral("Docs/planilha.xyz"), "x"}}));
    QVERIFY(m_fixture.unlock());
    QTableWidget* table = m_fixture.table();
    QFileIconProvider provider;
    QCOMPARE(image(table->item(m_fixture.rowOf(QStringLiteral("Docs")), 0)->icon()),
             image(provider.icon(QFileIconProvider::Folder)));

    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QCOMPARE(image(table->item(0, 0)->icon()),
             image(m_fixture.window().style()->standardIcon(QStyle::SP_ArrowUp)));
    const int photo = m_fixture.rowOf(QStringLiteral("foto.JPEG"));
    QCOMPARE(table->item(photo, 3)->text(), QStringLiteral("JPEG"));
    QCOMPARE(image(table->item(photo, 0)->icon()),
             image(UI::FileTypeIcons::badgeIcon({QStringLiteral("IMG"), QColor(31, 132, 141)})));
    QCOMPARE(image(table->item(m_fixture.rowOf(QStringLiteral("notas")), 0)->icon()),
             image(provider.icon(QFileIconProvider::File)));
    // The system's icon for the type, or the generic file icon where the desktop has none.
    QIcon systemIcon = provider.icon(QFileInfo(QStringLiteral("velmarin-placeholder.xyz")));
    if (systemIcon.isNull()) {
        systemIcon = provider.icon(QFileIconProvider::File);
    }
    QVERIFY(!systemIcon.isNull());
    QCOMPARE(image(table->item(m_fixture.rowOf(QStringLiteral("planilha.xyz")), 0)->icon()),
             image(systemIcon));
    // The placeholder is a name only: nothing was created to find its icon.
    QVERIFY(!QFileInfo::exists(QStringLiteral("velmarin-placeholder.xyz")));
}

void FileTableTest::invalidTimeShowsAnEmptyCell()
{
    QCOMPARE(Core::formatTableDate(QDateTime()), QString());
    const QDateTime valid(QDate(2025, 12, 31), QTime(23, 59), Qt::UTC);
    QCOMPARE(Core::formatTableDate(valid),
             QLocale().toString(valid.toLocalTime(), QStringLiteral("dd/MM/yyyy HH:mm")));
}

void FileTableTest::sortsEveryColumnBothWays_data()
{
    QTest::addColumn<QList<int>>("clicks");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("order");

    const QStringList byName = texts({"A.png", "b.txt", "c.txt", "d", "E.JPG"});
    QTest::newRow("name ascending (initial)")
        << QList<int>{} << (texts({"Alpha", "beta", "gamma"}) + byName) << 1 << int(Qt::AscendingOrder);
    QTest::newRow("name descending") << QList<int>{1}
                                     << texts({"gamma", "beta", "Alpha", "E.JPG", "d", "c.txt", "b.txt",
                                               "A.png"})
                                     << 1 << int(Qt::DescendingOrder);
    QTest::newRow("size ascending") << QList<int>{2}
                                    << texts({"Alpha", "beta", "gamma", "A.png", "c.txt", "d", "b.txt",
                                              "E.JPG"})
                                    << 2 << int(Qt::AscendingOrder);
    QTest::newRow("size descending") << QList<int>{2, 2}
                                     << texts({"gamma", "beta", "Alpha", "E.JPG", "b.txt", "d", "c.txt",
                                               "A.png"})
                                     << 2 << int(Qt::DescendingOrder);
    QTest::newRow("type ascending") << QList<int>{3}
                                    << texts({"Alpha", "beta", "gamma", "d", "E.JPG", "A.png", "b.txt",
                                              "c.txt"})
                                    << 3 << int(Qt::AscendingOrder);
    QTest::newRow("type descending") << QList<int>{3, 3}
                                     << texts({"gamma", "beta", "Alpha", "c.txt", "b.txt", "A.png", "E.JPG",
                                               "d"})
                                     << 3 << int(Qt::DescendingOrder);
    QTest::newRow("time ascending") << QList<int>{4}
                                    << texts({"gamma", "Alpha", "beta", "b.txt", "d", "c.txt", "E.JPG",
                                              "A.png"})
                                    << 4 << int(Qt::AscendingOrder);
    QTest::newRow("time descending") << QList<int>{4, 4}
                                     << texts({"beta", "Alpha", "gamma", "A.png", "E.JPG", "c.txt", "d",
                                               "b.txt"})
                                     << 4 << int(Qt::DescendingOrder);
    QTest::newRow("another column starts ascending")
        << QList<int>{2, 2, 1} << (texts({"Alpha", "beta", "gamma"}) + byName) << 1
        << int(Qt::AscendingOrder);
}

void FileTableTest::sortsEveryColumnBothWays()
{
    QFETCH(QList<int>, clicks);
    QFETCH(QStringList, expected);
    QFETCH(int, column);
    QFETCH(int, order);
    setUpSortingVault();
    for (const int click : clicks) {
        m_fixture.clickHeader(click);
    }
    QCOMPARE(m_fixture.names(), expected);
    QHeaderView* header = m_fixture.table()->horizontalHeader();
    QCOMPARE(header->sortIndicatorSection(), column);
    QCOMPARE(int(header->sortIndicatorOrder()), order);
}

void FileTableTest::sortingBySizeDescendingKeepsFoldersOnTop()
{
    setUpSortingVault();
    m_fixture.clickHeader(2);
    m_fixture.clickHeader(2);
    const QStringList names = m_fixture.names();
    // Folders in reverse name order, then the largest file; equal sizes in reverse name order.
    QCOMPARE(names.mid(0, 3),
             QStringList({QStringLiteral("gamma"), QStringLiteral("beta"), QStringLiteral("Alpha")}));
    QCOMPARE(names.at(3), QStringLiteral("E.JPG"));
    QCOMPARE(names.mid(3, 2), QStringList({QStringLiteral("E.JPG"), QStringLiteral("b.txt")}));
}

void FileTableTest::iconColumnHeaderDoesNotSort()
{
    setUpSortingVault();
    m_fixture.clickHeader(2);
    const QStringList before = m_fixture.names();
    m_fixture.clickHeader(0);
    QCOMPARE(m_fixture.names(), before);
    QCOMPARE(m_fixture.table()->horizontalHeader()->sortIndicatorSection(), 2);
    QCOMPARE(m_fixture.table()->horizontalHeader()->sortIndicatorOrder(), Qt::AscendingOrder);
}

void FileTableTest::parentRowStaysFirstInAFolder()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs"), QStringLiteral("Docs/zeta")},
                            {{QStringLiteral("Docs/a.txt"), "a"}, {QStringLiteral("Docs/b.txt"), "bb"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("zeta"),
                                             QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
    m_fixture.clickHeader(1);
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("zeta"),
                                             QStringLiteral("b.txt"), QStringLiteral("a.txt")}));
    m_fixture.clickHeader(2);
    m_fixture.clickHeader(2);
    QCOMPARE(m_fixture.names().first(), QStringLiteral(".."));
}

void FileTableTest::navigatesDownAndBackUp()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs"), QStringLiteral("Docs/Notas")},
                            {{QStringLiteral("raiz.txt"), "r"}, {QStringLiteral("Docs/Notas/n.txt"), "n"}}));
    QVERIFY(m_fixture.unlock());
    QLabel* status = m_fixture.label(QStringLiteral("vaultStatusLabel"));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Docs"), QStringLiteral("raiz.txt")}));

    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QCOMPARE(m_fixture.window().currentFolder(), QStringLiteral("Docs"));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("Notas")}));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Notas")));
    QCOMPARE(m_fixture.window().currentFolder(), QStringLiteral("Docs/Notas"));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("n.txt")}));
    QCOMPARE(status->text(),
             QStringLiteral("Arquivos protegidos | Pasta: Docs/Notas | 2 arquivos no cofre."));

    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("..")));
    QCOMPARE(m_fixture.window().currentFolder(), QStringLiteral("Docs"));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("..")));
    QCOMPARE(m_fixture.window().currentFolder(), QString());
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Docs"), QStringLiteral("raiz.txt")}));
    QCOMPARE(status->text(), QStringLiteral("Arquivos protegidos | Pasta: Raiz | 2 arquivos no cofre."));
}

void FileTableTest::folderOfAnyLetterCaseIsListed()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")},
                            {{QStringLiteral("Docs/a.txt"), "a"}, {QStringLiteral("DOCS/b.txt"), "b"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral(".."), QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
}

void FileTableTest::doubleClickOnAFileOpensIt()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("carta.txt"), "conteúdo"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("carta.txt")));
    QCOMPARE(m_fixture.fakes().urls->opened.size(), 1);
    const QString working = m_fixture.fakes().urls->opened.first().toLocalFile();
    QVERIFY(working.endsWith(QStringLiteral("/carta.txt")));
    QCOMPARE(Tests::TestFiles::read(working), QStringLiteral("conteúdo").toUtf8());
    QCOMPARE(m_fixture.window().currentFolder(), QString());
}

void FileTableTest::tableIsEmptyWhileLocked()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("a.txt"), "a"}}));
    m_fixture.chooseContainer(m_fixture.container());
    QCOMPARE(m_fixture.table()->rowCount(), 0);
    QVERIFY(m_fixture.unlock());
    QCOMPARE(m_fixture.table()->rowCount(), 2);
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QCOMPARE(m_fixture.table()->rowCount(), 0);
    QCOMPARE(m_fixture.window().currentFolder(), QString());
}

QTEST_MAIN(FileTableTest)
#include "tst_filetable.moc"
