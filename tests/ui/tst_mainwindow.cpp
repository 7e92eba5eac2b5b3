// The main window as a user meets it: layout, menus, enabled states, status fields and closing.
#include "FailureInjection.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"
#include "ui/PadlockIcon.h"
#include "ui/ProgressDialogs.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QListWidget>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>

#include <set>

using namespace Velmarin;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::WindowFixture;

namespace {

const QStringList AllActions = {
    QStringLiteral("Sair"),
    QStringLiteral("Atualizar lista"),
    QStringLiteral("Escolher container..."),
    QStringLiteral("Criar novo cofre..."),
    QStringLiteral("Fazer backup..."),
    QStringLiteral("Alterar senha..."),
    QStringLiteral("Desbloquear"),
    QStringLiteral("Bloquear"),
    QStringLiteral("Nova pasta..."),
    QStringLiteral("Importar..."),
    QStringLiteral("Exportar..."),
    QStringLiteral("Abrir"),
    QStringLiteral("Mover para pasta..."),
    QStringLiteral("Renomear arquivo..."),
    QStringLiteral("Renomear pasta..."),
    QStringLiteral("Excluir pasta vazia"),
    QStringLiteral("Excluir..."),
    QStringLiteral("Compactar cofre..."),
    QStringLiteral("Verificar cofre..."),
    QStringLiteral("Ajuda"),
    QStringLiteral("Visitar a página oficial do Velmarin"),
    QStringLiteral("Sobre o Velmarin"),
};

const QStringList Always = {QStringLiteral("Sair"), QStringLiteral("Ajuda"),
                            QStringLiteral("Visitar a página oficial do Velmarin"),
                            QStringLiteral("Sobre o Velmarin")};

QStringList enabledActions(const WindowFixture& fixture)
{
    QStringList enabled;
    for (const QString& text : AllActions) {
        QAction* action = fixture.action(text);
        if (action && action->isEnabled()) {
            enabled.append(text);
        }
    }
    return enabled;
}

QStringList plus(QStringList list, const QStringList& more)
{
    list.append(more);
    return list;
}

// "Menu > Submenu > Action [shortcut]", with "---" for separators, in menu order.
void describeMenu(const QMenu* menu, const QString& prefix, QStringList& out)
{
    for (QAction* action : menu->actions()) {
        if (action->isSeparator()) {
            out.append(prefix + QStringLiteral("---"));
        } else if (action->menu()) {
            describeMenu(action->menu(), prefix + action->text() + QStringLiteral(" > "), out);
        } else {
            const QString shortcut = action->shortcut().toString(QKeySequence::PortableText);
            out.append(prefix + action->text() +
                       (shortcut.isEmpty() ? QString() : QStringLiteral(" [%1]").arg(shortcut)));
        }
    }
}

QImage iconImage(const QIcon& icon, QIcon::Mode mode = QIcon::Normal)
{
    return icon.pixmap(QSize(48, 48), mode).toImage().convertToFormat(QImage::Format_ARGB32);
}

} // namespace

class MainWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void sizeFollowsTheScreen_data();
    void sizeFollowsTheScreen();
    void windowIsFixedToItsScreenSize();
    void layoutFacts();
    void fileTableFacts();
    void statusBarFields();
    void menusAndShortcuts();
    void contextMenuOnlyActionsStayOutOfTheMenuBar();

    void enableRules_data();
    void enableRules();
    void lockButtonFollowsTheState();
    void lockButtonUnlocksAndLocks();
    void padlockTellsItsFourStatesApart();
    void badgeStyleFollowsTheState();
    void containerLabel_data();
    void containerLabel();
    void longContainerNameIsElidedInTheMiddle();
    void vaultStatusCountsEveryFile_data();
    void vaultStatusCountsEveryFile();
    void vaultStatusNamesTheFolder();

    void progressAdaptersDisagreeOnAZeroTotal();
    void progressAdapterTexts();

    void closingLockedClosesAtOnce();
    void closingUnlockedLocksFirst();
    void closingKeepsTheWindowWhenLockingFails();

private:
    WindowFixture m_fixture;
};

void MainWindowTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void MainWindowTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void MainWindowTest::sizeFollowsTheScreen_data()
{
    QTest::addColumn<QRect>("available");
    QTest::addColumn<QSize>("expected");
    QTest::newRow("1280 wide: 768 clamps up to 900") << QRect(0, 0, 1280, 1024) << QSize(900, 506);
    QTest::newRow("2560 wide: 1536 clamps down to 1152") << QRect(0, 0, 2560, 1440) << QSize(1152, 648);
    QTest::newRow("1920 x 900") << QRect(0, 0, 1920, 900) << QSize(1152, 648);
    QTest::newRow("1600 wide: 960 fits") << QRect(0, 0, 1600, 1000) << QSize(960, 540);
    QTest::newRow("too short: height rules") << QRect(0, 0, 1920, 500) << QSize(888, 500);
}

void MainWindowTest::sizeFollowsTheScreen()
{
    QFETCH(QRect, available);
    QFETCH(QSize, expected);
    QCOMPARE(UI::WindowGeometry::centralSize(available), expected);
    QCOMPARE(UI::WindowGeometry::centralSize(static_cast<const QScreen*>(nullptr)), QSize(960, 540));
}

void MainWindowTest::windowIsFixedToItsScreenSize()
{
    QVERIFY(m_fixture.setUp());
    UI::MainWindow& window = m_fixture.window();
    QCOMPARE(window.centralWidget()->size(),
             UI::WindowGeometry::centralSize(QGuiApplication::primaryScreen()));
    QCOMPARE(window.minimumSize(), window.maximumSize());
    QCOMPARE(window.size(), window.minimumSize());
    QCOMPARE(window.windowTitle(), QStringLiteral("Velmarin"));
}

void MainWindowTest::layoutFacts()
{
    QVERIFY(m_fixture.setUp());
    UI::MainWindow& window = m_fixture.window();

    const auto labels = window.centralWidget()->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly);
    QVERIFY(!labels.isEmpty());
    QCOMPARE(labels.first()->text(), QStringLiteral("Dispositivos USB"));

    QListWidget* devices = m_fixture.deviceList();
    const int listHeight = 3 * (devices->fontMetrics().height() + 8) + 2 * devices->frameWidth();
    QCOMPARE(devices->height(), listHeight);
    QCOMPARE(devices->minimumHeight(), listHeight);
    QCOMPARE(devices->maximumHeight(), listHeight);
    QCOMPARE(devices->verticalScrollBarPolicy(), Qt::ScrollBarAsNeeded);

    QToolButton* lock = m_fixture.lockButton();
    QCOMPARE(lock->size(), QSize(listHeight, listHeight));
    QCOMPARE(lock->iconSize(), QSize(48, 48));
    QVERIFY(lock->isCheckable());
    QVERIFY(!lock->autoRaise());
    QCOMPARE(lock->focusPolicy(), Qt::NoFocus);
    QCOMPARE(
        lock->styleSheet(),
        QStringLiteral("QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }"
                       "QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }"
                       "QToolButton:pressed:enabled { background: #e2e2e2; }"
                       "QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"));

    // Icon, list, button: left to right on one row, the list taking the room.
    QLabel* icon = window.findChild<QLabel*>(QStringLiteral("applicationIcon"));
    QVERIFY(icon);
    QVERIFY(!icon->pixmap().isNull());
    QCOMPARE(icon->pixmap().height(), listHeight);
    QVERIFY(icon->geometry().right() < devices->geometry().left());
    QCOMPARE(devices->geometry().left() - icon->geometry().right() - 1, 10);
    QVERIFY(devices->geometry().right() < lock->geometry().left());
    QCOMPARE(lock->geometry().left() - devices->geometry().right() - 1, 10);

    // Top to bottom: title, device row, vault status, table.
    QLabel* status = m_fixture.label(QStringLiteral("vaultStatusLabel"));
    QTableWidget* table = m_fixture.table();
    QVERIFY(labels.first()->geometry().bottom() < devices->geometry().top());
    QVERIFY(devices->geometry().bottom() < status->geometry().top());
    QVERIFY(status->geometry().bottom() < table->geometry().top());

    // Without detection on this system the list says so.
    QCOMPARE(devices->count(), 1);
    QCOMPARE(devices->item(0)->text(), QStringLiteral("Nenhum dispositivo USB detectado."));
    QCOMPARE(window.statusBar()->currentMessage(), QStringLiteral("Pronto"));
}

void MainWindowTest::fileTableFacts()
{
    QVERIFY(m_fixture.setUp());
    QTableWidget* table = m_fixture.table();
    QCOMPARE(table->columnCount(), 5);
    QStringList headers;
    for (int column = 0; column < 5; ++column) {
        headers.append(table->horizontalHeaderItem(column)->text());
    }
    QCOMPARE(headers, QStringList({QString(), QStringLiteral("Nome do arquivo"), QStringLiteral("Tamanho"),
                                   QStringLiteral("Tipo"), QStringLiteral("Modificado em")}));
    QCOMPARE(table->minimumHeight(), 220);
    QCOMPARE(table->contextMenuPolicy(), Qt::CustomContextMenu);
    QCOMPARE(table->editTriggers(), QAbstractItemView::NoEditTriggers);
    QCOMPARE(table->focusPolicy(), Qt::NoFocus);
    QCOMPARE(table->selectionBehavior(), QAbstractItemView::SelectRows);
    QCOMPARE(table->selectionMode(), QAbstractItemView::SingleSelection);
    QVERIFY(table->alternatingRowColors());
    QVERIFY(!table->showGrid());
    QCOMPARE(table->iconSize(), QSize(18, 18));
    QCOMPARE(table->horizontalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
    QCOMPARE(table->verticalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
    QVERIFY(!table->verticalHeader()->isVisible());

    QHeaderView* header = table->horizontalHeader();
    QVERIFY(!header->stretchLastSection());
    QVERIFY(header->sectionsClickable());
    QVERIFY(header->isSortIndicatorShown());
    QCOMPARE(header->sortIndicatorSection(), 1);
    QCOMPARE(header->sortIndicatorOrder(), Qt::AscendingOrder);
    QCOMPARE(header->sectionResizeMode(0), QHeaderView::Fixed);
    QCOMPARE(header->sectionResizeMode(1), QHeaderView::Stretch);
    QCOMPARE(header->sectionResizeMode(2), QHeaderView::Fixed);
    QCOMPARE(header->sectionResizeMode(3), QHeaderView::Fixed);
    QCOMPARE(header->sectionResizeMode(4), QHeaderView::Fixed);
    QCOMPARE(table->columnWidth(0), 28);
    QCOMPARE(table->columnWidth(2), 110);
    QCOMPARE(table->columnWidth(3), 70);
    QCOMPARE(table->columnWidth(4), 140);
    QCOMPARE(table->styleSheet(),
             QStringLiteral("QTableWidget::item { border-bottom: 1px solid #d8d8d8; }"
                            "QTableWidget::item:focus { outline: none; }"
                            "QTableWidget::item:selected { background-color: palette(highlight); "
                            "color: palette(highlighted-text); }"));
    QCOMPARE(table->rowCount(), 0);
}

void MainWindowTest::statusBarFields()
{
    QVERIFY(m_fixture.setUp());
    UI::MainWindow& window = m_fixture.window();
    const QString small =
        QStringLiteral("QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }");

    QWidget* box = window.findChild<QWidget*>(QStringLiteral("containerBox"));
    QVERIFY(box);
    QCOMPARE(box->width(), 180);
    QCOMPARE(box->layout()->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(box->layout()->spacing(), 0);
    auto* separator = box->findChild<QFrame*>(QString(), Qt::FindDirectChildrenOnly);
    QVERIFY(separator);
    QCOMPARE(separator->width(), 1);
    QCOMPARE(separator->styleSheet(), QStringLiteral("QFrame { background-color: #c8c8c8; }"));

    QLabel* container = m_fixture.label(QStringLiteral("containerLabel"));
    QCOMPARE(container->text(), QStringLiteral("Container: nenhum"));
    QCOMPARE(container->toolTip(), QStringLiteral("Container: nenhum"));
    QCOMPARE(container->alignment(), Qt::AlignCenter);
    QCOMPARE(container->styleSheet(), small);

    QLabel* version = m_fixture.label(QStringLiteral("versionLabel"));
    QCOMPARE(version->text(), QStringLiteral("Versão 1.0.5"));
    QCOMPARE(version->width(), 180);
    QCOMPARE(version->alignment(), Qt::AlignCenter);
    QCOMPARE(version->styleSheet(), small);

    QLabel* date = m_fixture.label(QStringLiteral("dateLabel"));
    QCOMPARE(date->text(), QDate::currentDate().toString(QStringLiteral("dd/MM/yyyy")));
    QCOMPARE(date->width(), 78);
    QCOMPARE(date->alignment(), Qt::AlignCenter);
    QCOMPARE(date->styleSheet(), QStringLiteral("QLabel { font-size: 11px; }"));

    QLabel* badge = m_fixture.label(QStringLiteral("vaultBadge"));
    QCOMPARE(badge->text(), QStringLiteral("COFRE"));
    QCOMPARE(badge->width(), 50);
    QCOMPARE(badge->alignment(), Qt::AlignCenter);

    // Left to right: container, version, date, badge.
    const auto left = [&](QWidget* widget) { return widget->mapTo(&window, QPoint(0, 0)).x(); };
    QVERIFY(left(box) < left(version));
    QVERIFY(left(version) < left(date));
    QVERIFY(left(date) < left(badge));
}

void MainWindowTest::menusAndShortcuts()
{
    QVERIFY(m_fixture.setUp());
    QStringList menus;
    for (QAction* top : m_fixture.window().menuBar()->actions()) {
        describeMenu(top->menu(), top->text() + QStringLiteral(" > "), menus);
    }
    const QStringList expected = {
        QStringLiteral("Arquivo > Sair [Ctrl+Q]"),
        QStringLiteral("USB > Dispositivos > Atualizar lista [Ctrl+F5]"),
        QStringLiteral("USB > Container > Escolher container... [Ctrl+O]"),
        QStringLiteral("USB > Container > Criar novo cofre... [Ctrl+N]"),
        QStringLiteral("USB > Container > ---"),
        QStringLiteral("USB > Container > Fazer backup... [Ctrl+B]"),
        QStringLiteral("USB > Container > Alterar senha... [Ctrl+P]"),
        QStringLiteral("USB > Acesso ao cofre > Desbloquear [Ctrl+L]"),
        QStringLiteral("USB > Acesso ao cofre > Bloquear [Ctrl+Shift+L]"),
        QStringLiteral("USB > Acesso ao cofre > ---"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Nova pasta... [Ctrl+Shift+N]"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > ---"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Importar... [Ctrl+I]"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Importar pasta..."),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Exportar... [Ctrl+E]"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Exportar pasta..."),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Abrir [Return]"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > ---"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Renomear pasta..."),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Excluir pasta vazia"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > ---"),
        QStringLiteral("USB > Acesso ao cofre > Arquivos protegidos > Excluir... [Del]"),
        QStringLiteral("USB > Acesso ao cofre > ---"),
        QStringLiteral("USB > Acesso ao cofre > Compactar cofre... [F6]"),
        QStringLiteral("USB > Acesso ao cofre > Verificar cofre..."),
        QStringLiteral("Sobre > Ajuda"),
        QStringLiteral("Sobre > Visitar a página oficial do Velmarin"),
        QStringLiteral("Sobre > ---"),
        QStringLiteral("Sobre > Sobre o Velmarin"),
    };
    QCOMPARE(menus, expected);
}

void MainWindowTest::contextMenuOnlyActionsStayOutOfTheMenuBar()
{
    QVERIFY(m_fixture.setUp());
    QStringList menus;
    for (QAction* top : m_fixture.window().menuBar()->actions()) {
        describeMenu(top->menu(), QString(), menus);
    }
    for (const QString& text :
         {QStringLiteral("Mover para pasta..."), QStringLiteral("Renomear arquivo...")}) {
        QAction* action = m_fixture.action(text);
        QVERIFY2(action, qPrintable(text));
        QCOMPARE(action->parent(), &m_fixture.window());
        QVERIFY(!menus.join(QLatin1Char('\n')).contains(text));
    }
}

void MainWindowTest::enableRules_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<bool>("withFolder");
    QTest::addColumn<QString>("selection");
    QTest::addColumn<QStringList>("expected");

    const QStringList locked =
        plus(Always, {QStringLiteral("Atualizar lista"), QStringLiteral("Escolher container..."),
                      QStringLiteral("Criar novo cofre...")});
    const QStringList container =
        plus(locked, {QStringLiteral("Fazer backup..."), QStringLiteral("Alterar senha..."),
                      QStringLiteral("Desbloquear")});
    const QStringList unlocked = plus(
        Always, {QStringLiteral("Bloquear"), QStringLiteral("Nova pasta..."), QStringLiteral("Importar..."),
                 QStringLiteral("Compactar cofre..."), QStringLiteral("Verificar cofre...")});
    const QStringList fileActions = {QStringLiteral("Exportar..."), QStringLiteral("Abrir"),
                                     QStringLiteral("Renomear arquivo..."), QStringLiteral("Excluir...")};
    const QStringList folderActions = {QStringLiteral("Renomear pasta..."),
                                       QStringLiteral("Excluir pasta vazia")};

    for (const bool folder : {false, true}) {
        const char* suffix = folder ? " with a folder" : " without folders";
        QTest::addRow("no container%s", suffix) << "none" << folder << "none" << locked;
        QTest::addRow("container locked%s", suffix) << "locked" << folder << "none" << container;
        QTest::addRow("unlocked, nothing selected%s", suffix) << "unlocked" << folder << "none" << unlocked;
        QTest::addRow("unlocked, file selected%s", suffix)
            << "unlocked" << folder << "file"
            << plus(plus(unlocked, fileActions),
                    folder ? QStringList{QStringLiteral("Mover para pasta...")} : QStringList{});
    }
    QTest::addRow("unlocked, folder selected")
        << "unlocked" << true << "folder" << plus(unlocked, folderActions);
    QTest::addRow("unlocked, parent row selected") << "unlocked" << true << "parent" << unlocked;
    QTest::addRow("unlocked, file inside a folder")
        << "unlocked" << true << "inner file"
        << plus(plus(unlocked, fileActions), {QStringLiteral("Mover para pasta...")});
}

void MainWindowTest::enableRules()
{
    QFETCH(QString, state);
    QFETCH(bool, withFolder);
    QFETCH(QString, selection);
    QFETCH(QStringList, expected);

    const QStringList folders = withFolder ? QStringList{QStringLiteral("Docs")} : QStringList{};
    QList<WindowFixture::Entry> files = {{QStringLiteral("a.txt"), "a"}};
    if (withFolder) {
        files.append({QStringLiteral("Docs/b.txt"), "b"});
    }
    QVERIFY(m_fixture.setUp(folders, files));

    if (state == QLatin1String("locked")) {
        m_fixture.chooseContainer(m_fixture.container());
    } else if (state == QLatin1String("unlocked")) {
        QVERIFY(m_fixture.unlock());
    }
    if (selection == QLatin1String("file")) {
        QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    } else if (selection == QLatin1String("folder")) {
        QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    } else if (selection == QLatin1String("parent") || selection == QLatin1String("inner file")) {
        QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
        QCOMPARE(m_fixture.window().currentFolder(), QStringLiteral("Docs"));
        QVERIFY(m_fixture.selectRow(selection == QLatin1String("parent") ? QStringLiteral("..")
                                                                         : QStringLiteral("b.txt")));
    }

    const QStringList enabled = enabledActions(m_fixture);
    const std::set<QString> actual(enabled.cbegin(), enabled.cend());
    const std::set<QString> wanted(expected.cbegin(), expected.cend());
    QStringList missing;
    QStringList extra;
    for (const QString& text : AllActions) {
        if (wanted.count(text) && !actual.count(text)) {
            missing.append(text);
        }
        if (!wanted.count(text) && actual.count(text)) {
            extra.append(text);
        }
    }
    QVERIFY2(missing.isEmpty() && extra.isEmpty(),
             qPrintable(QStringLiteral("disabled but expected: %1; enabled but not expected: %2")
                            .arg(missing.join(QStringLiteral(", ")), extra.join(QStringLiteral(", ")))));

    // The selection queries agree with the row kinds.
    UI::MainWindow& window = m_fixture.window();
    QCOMPARE(!window.selectedFilePath().isEmpty(), selection.endsWith(QLatin1String("file")));
    QCOMPARE(window.isFolderSelected(), selection == QLatin1String("folder"));
    QCOMPARE(window.isNavigationRowSelected(), selection == QLatin1String("parent"));
    // The parent row of a first-level folder carries the root, the empty path.
    QCOMPARE(window.selectedFolderPath(),
             selection == QLatin1String("folder") ? QStringLiteral("Docs") : QString());
}

void MainWindowTest::lockButtonFollowsTheState()
{
    QVERIFY(m_fixture.setUp());
    QToolButton* button = m_fixture.lockButton();
    QVERIFY(!button->isEnabled());
    QVERIFY(!button->isChecked());
    QCOMPARE(button->toolTip(), QStringLiteral("Selecione um container para desbloquear o cofre."));
    QCOMPARE(enabledActions(m_fixture),
             QStringList({QStringLiteral("Sair"), QStringLiteral("Atualizar lista"),
                          QStringLiteral("Escolher container..."), QStringLiteral("Criar novo cofre..."),
                          QStringLiteral("Ajuda"), QStringLiteral("Visitar a página oficial do Velmarin"),
                          QStringLiteral("Sobre o Velmarin")}));

    m_fixture.chooseContainer(m_fixture.container());
    QVERIFY(button->isEnabled());
    QVERIFY(!button->isChecked());
    QCOMPARE(button->toolTip(), QStringLiteral("Desbloquear cofre"));

    QVERIFY(m_fixture.unlock());
    QVERIFY(button->isEnabled());
    QVERIFY(button->isChecked());
    QCOMPARE(button->toolTip(), QStringLiteral("Bloquear cofre"));

    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(button->isEnabled());
    QVERIFY(!button->isChecked());
    QCOMPARE(button->toolTip(), QStringLiteral("Desbloquear cofre"));
}

void MainWindowTest::lockButtonUnlocksAndLocks()
{
    QVERIFY(m_fixture.setUp());
    QToolButton* button = m_fixture.lockButton();
    // Disabled: a click does nothing and asks nothing.
    QTest::mouseClick(button, Qt::LeftButton);
    QVERIFY(!button->isChecked());

    m_fixture.chooseContainer(m_fixture.container());
    Tests::InputRecord prompt;
    m_fixture.driver().expectInput(QString::fromUtf8(Tests::TestFiles::password()), &prompt);
    QTest::mouseClick(button, Qt::LeftButton);
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(prompt.title, QStringLiteral("Senha do cofre"));
    QCOMPARE(prompt.label, QStringLiteral("Senha:"));
    QVERIFY(prompt.masked);
    QVERIFY(!prompt.hasParent);
    QVERIFY(button->isChecked());

    QTest::mouseClick(button, Qt::LeftButton);
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(!button->isChecked());
    QCOMPARE(m_fixture.window().statusBar()->currentMessage(), QStringLiteral("Cofre bloqueado."));

    // A cancelled prompt leaves the button unchecked and the vault locked.
    m_fixture.driver().expectInput(QString(), nullptr, false);
    QTest::mouseClick(button, Qt::LeftButton);
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(!button->isChecked());
}

void MainWindowTest::padlockTellsItsFourStatesApart()
{
    QList<QImage> images;
    for (const bool unlocked : {false, true}) {
        for (const bool enabled : {false, true}) {
            const QIcon icon = UI::PadlockIcon::create(unlocked, enabled);
            QVERIFY(!icon.isNull());
            // Our own drawing shows in both modes, so a disabled button is not greyed twice.
            QCOMPARE(iconImage(icon, QIcon::Disabled), iconImage(icon, QIcon::Normal));
            images.append(iconImage(icon));
        }
    }
    for (int a = 0; a < images.size(); ++a) {
        for (int b = a + 1; b < images.size(); ++b) {
            QVERIFY2(images.at(a) != images.at(b), qPrintable(QStringLiteral("%1 vs %2").arg(a).arg(b)));
        }
    }

    QVERIFY(m_fixture.setUp());
    QCOMPARE(iconImage(m_fixture.lockButton()->icon()), images.at(0));
    m_fixture.chooseContainer(m_fixture.container());
    QCOMPARE(iconImage(m_fixture.lockButton()->icon()), images.at(1));
    QVERIFY(m_fixture.unlock());
    QCOMPARE(iconImage(m_fixture.lockButton()->icon()), images.at(3));
}

void MainWindowTest::badgeStyleFollowsTheState()
{
    QVERIFY(m_fixture.setUp());
    QLabel* badge = m_fixture.label(QStringLiteral("vaultBadge"));
    const QString red = QStringLiteral("QLabel { background-color: #f06a6a; color: #000000; font-size: 11px; "
                                       "font-weight: 600; padding-left: 4px; padding-right: 4px; }");
    const QString green =
        QStringLiteral("QLabel { background-color: #7bd88f; color: #000000; font-size: 11px; "
                       "font-weight: 600; padding-left: 4px; padding-right: 4px; }");
    QCOMPARE(badge->styleSheet(), red);
    m_fixture.chooseContainer(m_fixture.container());
    QCOMPARE(badge->styleSheet(), red);
    QVERIFY(m_fixture.unlock());
    QCOMPARE(badge->styleSheet(), green);
    QCOMPARE(badge->text(), QStringLiteral("COFRE"));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QCOMPARE(badge->styleSheet(), red);
}

void MainWindowTest::containerLabel_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("expected");
    QTest::newRow("usual name in capitals") << "VELMARIN.VLTX"
                                            << "Container: Velmarin";
    QTest::newRow("usual name") << "velmarin.vltx"
                                << "Container: Velmarin";
    QTest::newRow("another name") << "backup.vltx"
                                  << "Container: backup.vltx";
}

void MainWindowTest::containerLabel()
{
    QFETCH(QString, fileName);
    QFETCH(QString, expected);
    QVERIFY(m_fixture.setUp());
    m_fixture.chooseContainer(m_fixture.path(fileName));
    QLabel* label = m_fixture.label(QStringLiteral("containerLabel"));
    QCOMPARE(label->text(), expected);
    QCOMPARE(label->toolTip(), expected);
    QCOMPARE(m_fixture.window().statusBar()->currentMessage(), QStringLiteral("Container selecionado."));
}

void MainWindowTest::longContainerNameIsElidedInTheMiddle()
{
    QVERIFY(m_fixture.setUp());
    const QString name = QStringLiteral("copia-de-seguranca-do-cofre-da-familia-em-novembro.vltx");
    m_fixture.chooseContainer(m_fixture.path(name));
    QLabel* label = m_fixture.label(QStringLiteral("containerLabel"));
    const QString full = QStringLiteral("Container: ") + name;
    QCOMPARE(label->toolTip(), full);
    QCOMPARE(label->text(), label->fontMetrics().elidedText(full, Qt::ElideMiddle, label->width() - 8));
    QVERIFY(label->text().startsWith(QStringLiteral("Contai")));
    QVERIFY(label->text().endsWith(QStringLiteral(".vltx")));
    QVERIFY(label->text().contains(QChar(0x2026)));
}

void MainWindowTest::vaultStatusCountsEveryFile_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty") << 0 << "Arquivos protegidos | Pasta: Raiz | O cofre está vazio.";
    QTest::newRow("one") << 1 << "Arquivos protegidos | Pasta: Raiz | 1 arquivo no cofre.";
    QTest::newRow("seven, some in a folder")
        << 7 << "Arquivos protegidos | Pasta: Raiz | 7 arquivos no cofre.";
}

void MainWindowTest::vaultStatusCountsEveryFile()
{
    QFETCH(int, count);
    QFETCH(QString, expected);
    QList<WindowFixture::Entry> files;
    for (int i = 0; i < count; ++i) {
        // Files inside the folder count too: the line counts the whole vault.
        files.append({(i % 2 ? QStringLiteral("Docs/f%1.txt") : QStringLiteral("f%1.txt")).arg(i), "x"});
    }
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, files));
    QLabel* status = m_fixture.label(QStringLiteral("vaultStatusLabel"));
    QCOMPARE(status->text(), QStringLiteral("Nenhum cofre em uso (aberto)"));
    QVERIFY(m_fixture.unlock());
    QCOMPARE(status->text(), expected);
}

void MainWindowTest::vaultStatusNamesTheFolder()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs"), QStringLiteral("Docs/Notas")},
                            {{QStringLiteral("Docs/Notas/a.txt"), "a"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Notas")));
    QCOMPARE(m_fixture.label(QStringLiteral("vaultStatusLabel"))->text(),
             QStringLiteral("Arquivos protegidos | Pasta: Docs/Notas | 1 arquivo no cofre."));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QCOMPARE(m_fixture.label(QStringLiteral("vaultStatusLabel"))->text(),
             QStringLiteral("Nenhum cofre em uso (aberto)"));
}

void MainWindowTest::progressAdaptersDisagreeOnAZeroTotal()
{
    QCOMPARE(UI::ProgressDialogs::compactionValue(0, 0), 1000);
    QCOMPARE(UI::ProgressDialogs::importValue(0, 0), 0);
    QCOMPARE(UI::ProgressDialogs::compactionValue(1, 4), 250);
    QCOMPARE(UI::ProgressDialogs::importValue(1, 4), 250);
    // 64-bit arithmetic: 40 GiB of 80 GiB is half, not an overflow.
    const qint64 gib = qint64(1) << 30;
    QCOMPARE(UI::ProgressDialogs::importValue(40 * gib, 80 * gib), 500);
    QCOMPARE(UI::ProgressDialogs::compactionValue(80 * gib, 80 * gib), 1000);
}

void MainWindowTest::progressAdapterTexts()
{
    QVERIFY(m_fixture.setUp());
    const auto dialog =
        UI::ProgressDialogs::open(&m_fixture.window(), QStringLiteral("Título"), QStringLiteral("Início"));
    QCOMPARE(dialog->windowTitle(), QStringLiteral("Título"));
    QCOMPARE(dialog->labelText(), QStringLiteral("Início"));
    QCOMPARE(dialog->minimum(), 0);
    QCOMPARE(dialog->maximum(), 1000);
    QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);
    QCOMPARE(dialog->minimumDuration(), 0);
    QVERIFY(!dialog->autoClose());
    QVERIFY(!dialog->autoReset());
    QVERIFY(dialog->isVisible());
    QVERIFY(dialog->findChildren<QPushButton*>().isEmpty());

    // The engine reports the swap onto the drive with an empty label; the dialog names it.
    UI::ProgressDialogs::compactionAdapter(dialog.get())(1536, 3 * 1024 * 1024, QString());
    QCOMPARE(dialog->value(), 0);
    QCOMPARE(dialog->labelText(), QStringLiteral("Substituindo container no USB...\n1,5 kB de 3,0 MB"));
    UI::ProgressDialogs::compactionAdapter(dialog.get())(1536, 3 * 1024 * 1024,
                                                         QStringLiteral("Fotos/a.jpg"));
    QCOMPARE(dialog->labelText(), QStringLiteral("Fotos/a.jpg...\n1,5 kB de 3,0 MB"));
    UI::ProgressDialogs::compactionAdapter(dialog.get())(0, 0, QStringLiteral("Verificando"));
    QCOMPARE(dialog->value(), 1000);

    const QString note = QStringLiteral("A velocidade depende da taxa de leitura e escrita da unidade USB.\n"
                                        "Dispositivos USB 3 ou superiores tendem a ser mais rápidos.");
    dialog->reset();
    UI::ProgressDialogs::importAdapter(dialog.get(), note)(512, 1024, QStringLiteral("Docs/a.txt"));
    QCOMPARE(dialog->value(), 500);
    QCOMPARE(dialog->labelText(), QStringLiteral("Importando Docs/a.txt...\n512 bytes de 1,0 kB\n\n") + note);
    UI::ProgressDialogs::importAdapter(dialog.get(), note)(0, 0, QStringLiteral("vazio.txt"));
    QCOMPARE(dialog->value(), 0);
}

void MainWindowTest::closingLockedClosesAtOnce()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.chooseContainer(m_fixture.container());
    QVERIFY(m_fixture.window().close());
    QVERIFY(!m_fixture.window().isVisible());
}

void MainWindowTest::closingUnlockedLocksFirst()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("a.txt"), "a"}}));
    QVERIFY(m_fixture.unlock());
    const QString workspace = m_fixture.path(QStringLiteral("workspaces"));
    QVERIFY(m_fixture.window().close());
    QVERIFY(!m_fixture.window().isVisible());
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    // The workspace went with the lock.
    QVERIFY(
        QDir(workspace + QStringLiteral("/Velmarin")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
}

void MainWindowTest::closingKeepsTheWindowWhenLockingFails()
{
    QVERIFY(FailureInjection::isAvailable());
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("notas.txt"), "antes"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("notas.txt")));
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(m_fixture.fakes().urls->opened.size(), 1);
    const QString workingCopy = m_fixture.fakes().urls->opened.first().toLocalFile();
    QTest::qWait(1100); // a changed copy is told by its modification time
    QVERIFY(Tests::TestFiles::write(workingCopy, "depois, editado"));

    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The edit cannot be written back: the drive refuses every write to the container.
        const FailureInjection injection(m_fixture.container(), "write");
        QVERIFY(!m_fixture.window().close());
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível bloquear o cofre."));
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QVERIFY(warning.hasParent);
    QVERIFY(m_fixture.window().isVisible());
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QVERIFY(QFile::exists(workingCopy));

    // With the drive back, closing writes the edit home and closes.
    QVERIFY(m_fixture.window().close());
    QVERIFY(!m_fixture.window().isVisible());
    Core::VaultManager vault(m_fixture.path(QStringLiteral("workspaces")));
    QVERIFY(vault.unlock(m_fixture.container(), Tests::TestFiles::password()));
    QBuffer exported;
    exported.open(QIODevice::WriteOnly);
    QVERIFY(vault.exportFile(QStringLiteral("notas.txt"), &exported));
    QCOMPARE(exported.data(), QByteArray("depois, editado"));
    QVERIFY(vault.lock());
}

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
