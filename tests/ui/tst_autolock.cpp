// Locking on its own: the real window on a private D-Bus, where a stand-in for logind and the screen
// savers announces sleep and locked sessions, and a container whose folder goes away.
#include "FailureInjection.h"
#include "SessionBusFixture.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"
#include "platform/linux/LogindSessionEvents.h"

#include <QAbstractButton>
#include <QAction>
#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTest>

using namespace Velmarin;
using Velmarin::Tests::DialogDriver;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::FakeSessionBus;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;

namespace {

const QString FileName = QStringLiteral("notas.txt");
const QByteArray Original = "Primeira versão das notas.\n";
const QByteArray Edited = "Notas revistas antes de fechar o portátil, bem mais longas do que eram.\n";

const QString Sleep = QStringLiteral("O cofre foi bloqueado porque o computador vai entrar em suspensão.");
const QString Session = QStringLiteral("O cofre foi bloqueado junto com a sessão do computador.");
const QString Gone = QStringLiteral("O cofre foi bloqueado porque o container não está mais acessível (a "
                                    "unidade USB pode ter sido retirada).");
const QString Kept = QStringLiteral("As alterações ainda não gravadas no cofre ficaram neste computador e "
                                    "serão oferecidas de volta no próximo desbloqueio.");
const QString OpenFiles =
    QStringLiteral("Arquivos ainda abertos em outros programas não serão mais salvos no cofre.");

QString sentences(const QStringList& parts)
{
    return parts.join(QLatin1Char(' '));
}

} // namespace

class AutoLockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void sleepDelayIsHeldOnlyWhileUnlocked();
    void locksAndBringsTheEditHome_data();
    void locksAndBringsTheEditHome();
    void announcementsThatSomethingEndedDoNotLock();
    void anEditThatCannotComeHomeStaysOnThisComputer_data();
    void anEditThatCannotComeHomeStaysOnThisComputer();
    void aVanishedContainerLocksWithinSeconds();
    void aLockDuringAnOperationWaitsForItsEnd();
    void withoutLogindNothingHappens_data();
    void withoutLogindNothingHappens();

private:
    // A window, still locked, whose session events use bus, with notas.txt in its vault.
    void setUpWindow(const QDBusConnection& bus);
    // The stand-in for logind, then the window on the private bus, unlocked and holding its sleep delay.
    void openWindow();
    // Opens notas.txt for editing and saves Edited into the working copy, as an editor would.
    void editTheFile();
    // What SessionBusFixture::announce sends, once the window listens for it.
    void announce(const QString& announcement);
    // Locked and refreshed as after "Bloquear", text in the status bar, the sleep delay given back.
    void verifyLockedWith(const QString& text);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }
    // What the container holds at vaultPath, read with a session of the test's own.
    QByteArray storedContents(const QString& vaultPath);
    bool workspaceHolds(const QByteArray& contents) const;

    Tests::SessionBusFixture m_bus;
    Platform::Linux::LogindSessionEvents* m_events = nullptr;
    Tests::WindowFixture m_fixture;
};

void AutoLockTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    QVERIFY(FailureInjection::isAvailable());
    QString whyNot;
    if (!m_bus.start(&whyNot)) {
        // Not QSKIP: clang's -Wpedantic rejects its empty variadic argument in C++17.
        QTest::qSkip(qPrintable(whyNot), __FILE__, __LINE__);
        return;
    }
}

void AutoLockTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
    m_events = nullptr;
    m_bus.stopLogind();
}

void AutoLockTest::cleanupTestCase()
{
    m_bus.stop();
}

void AutoLockTest::setUpWindow(const QDBusConnection& bus)
{
    auto events = std::make_unique<Platform::Linux::LogindSessionEvents>(bus, bus);
    m_events = events.get();
    m_fixture.useSessionEvents(std::move(events));
    QVERIFY(m_fixture.setUp({}, {{FileName, Original}}));
}

void AutoLockTest::openWindow()
{
    QVERIFY(m_bus.startLogind());
    setUpWindow(m_bus.windowBus());
    // Without a window there is nothing to unlock.
    if (QTest::currentTestFailed()) {
        return;
    }
    QVERIFY(m_fixture.unlock());
    QTRY_COMPARE(m_bus.logind().heldInhibitors(), 1);
}

void AutoLockTest::editTheFile()
{
    QVERIFY(m_fixture.selectRow(FileName));
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(m_fixture.fakes().urls->opened.size(), 1);
    const QString copy = m_fixture.fakes().urls->opened.first().toLocalFile();
    QVERIFY(TestFiles::write(copy, Edited));
    // An editor saves later than the copy was written; within the same millisecond it would not count.
    QFile file(copy);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime));
}

void AutoLockTest::announce(const QString& announcement)
{
    if (announcement == QLatin1String("lock")) {
        // logind's session is asked for when the window opens; its Lock is watched once it answered.
        QTRY_COMPARE(m_events->sessionPath(), FakeSessionBus::SessionPath);
    }
    QVERIFY(m_bus.announce(announcement));
}

void AutoLockTest::verifyLockedWith(const QString& text)
{
    QTRY_VERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(statusMessage(), text);
    // The bar has less room than the text, so the whole of it is the bar's tooltip too.
    QCOMPARE(m_fixture.window().statusBar()->toolTip(), text);
    QVERIFY(m_fixture.names().isEmpty());
    QVERIFY(m_fixture.action(QStringLiteral("Desbloquear"))->isEnabled());
    QVERIFY(!m_fixture.action(QStringLiteral("Bloquear"))->isEnabled());
    QCOMPARE(m_fixture.label(QStringLiteral("vaultStatusLabel"))->text(),
             QStringLiteral("Nenhum cofre em uso (aberto)"));
    QTRY_COMPARE(m_bus.logind().heldInhibitors(), 0);
}

QByteArray AutoLockTest::storedContents(const QString& vaultPath)
{
    Core::VaultManager vault;
    if (!vault.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly)) {
        return QByteArrayLiteral("<the vault does not open>");
    }
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    const bool exported = vault.exportFile(vaultPath, &buffer);
    vault.lock();
    return exported ? buffer.data() : QByteArrayLiteral("<not in the vault>");
}

bool AutoLockTest::workspaceHolds(const QByteArray& contents) const
{
    QDirIterator files(m_fixture.path(QStringLiteral("workspaces")), QDir::Files | QDir::Hidden,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        if (TestFiles::read(files.next()) == contents) {
            return true;
        }
    }
    return false;
}

void AutoLockTest::sleepDelayIsHeldOnlyWhileUnlocked()
{
    QVERIFY(m_bus.startLogind());
    setUpWindow(m_bus.windowBus());
    if (QTest::currentTestFailed()) {
        return;
    }
    // The window finds its logind session by its own process id.
    QTRY_COMPARE(m_bus.logind().askedPids(),
                 QList<uint>{static_cast<uint>(QCoreApplication::applicationPid())});
    QTRY_COMPARE(m_events->sessionPath(), FakeSessionBus::SessionPath);
    // Locked: nothing to wipe before sleep, so no delay is asked for.
    QVERIFY(m_bus.syncWindowBus());
    QTest::qWait(200);
    QVERIFY(m_bus.logind().inhibitCalls().isEmpty());

    QVERIFY(m_fixture.unlock());
    QTRY_COMPARE(m_bus.logind().heldInhibitors(), 1);
    QCOMPARE(m_bus.logind().inhibitCalls().size(), 1);
    const FakeSessionBus::InhibitCall call = m_bus.logind().inhibitCalls().first();
    QCOMPARE(call.what, QStringLiteral("sleep"));
    QCOMPARE(call.who, QStringLiteral("Velmarin"));
    QCOMPARE(call.why, QStringLiteral("Bloquear o cofre aberto antes da suspensão"));
    QCOMPARE(call.mode, QStringLiteral("delay"));

    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QTRY_COMPARE(m_bus.logind().heldInhibitors(), 0);
    QCOMPARE(statusMessage(), QStringLiteral("Cofre bloqueado."));
    // A manual lock says nothing more, so no tooltip repeats anything.
    QCOMPARE(m_fixture.window().statusBar()->toolTip(), QString());

    QVERIFY(m_fixture.unlock());
    QTRY_COMPARE(m_bus.logind().heldInhibitors(), 1);
    QCOMPARE(m_bus.logind().inhibitCalls().size(), 2);
}

void AutoLockTest::locksAndBringsTheEditHome_data()
{
    QTest::addColumn<QString>("announcement");
    QTest::addColumn<QString>("text");
    QTest::newRow("logind: sleep") << "sleep" << sentences({Sleep, OpenFiles});
    QTest::newRow("logind: session locked") << "lock" << sentences({Session, OpenFiles});
    QTest::newRow("freedesktop screen saver")
        << "org.freedesktop.ScreenSaver /org/freedesktop/ScreenSaver" << sentences({Session, OpenFiles});
    QTest::newRow("KDE's older screen saver path")
        << "org.freedesktop.ScreenSaver /ScreenSaver" << sentences({Session, OpenFiles});
    QTest::newRow("GNOME screen saver")
        << "org.gnome.ScreenSaver /org/gnome/ScreenSaver" << sentences({Session, OpenFiles});
}

void AutoLockTest::locksAndBringsTheEditHome()
{
    QFETCH(QString, announcement);
    QFETCH(QString, text);
    openWindow();
    editTheFile();
    if (QTest::currentTestFailed()) {
        return;
    }
    announce(announcement);
    verifyLockedWith(text);
    // The edit went into the vault while the drive was there, and its working copy is gone.
    QCOMPARE(storedContents(FileName), Edited);
    QVERIFY(!workspaceHolds(Edited));
}

void AutoLockTest::announcementsThatSomethingEndedDoNotLock()
{
    openWindow();
    if (QTest::currentTestFailed()) {
        return;
    }
    QVERIFY(m_bus.syncWindowBus());
    QSignalSpy sleeps(m_events, &Platform::SessionEvents::sleepImminent);
    QSignalSpy locks(m_events, &Platform::SessionEvents::sessionLocked);
    m_bus.logind().sendPrepareForSleep(false);
    m_bus.logind().sendActiveChanged(QStringLiteral("org.freedesktop.ScreenSaver"),
                                     QStringLiteral("/org/freedesktop/ScreenSaver"), false);
    m_bus.logind().sendActiveChanged(QStringLiteral("org.gnome.ScreenSaver"),
                                     QStringLiteral("/org/gnome/ScreenSaver"), false);
    // One sender's signals arrive in order: by the time this one locks, the others were seen.
    m_bus.logind().sendPrepareForSleep(true);
    verifyLockedWith(sentences({Sleep, OpenFiles}));
    QCOMPARE(sleeps.count(), 1);
    QCOMPARE(locks.count(), 0);
    // Waking up with the delay still held asks for no second one.
    QCOMPARE(m_bus.logind().inhibitCalls().size(), 1);
}

void AutoLockTest::anEditThatCannotComeHomeStaysOnThisComputer_data()
{
    QTest::addColumn<QString>("announcement");
    QTest::addColumn<QString>("text");
    QTest::newRow("sleep") << "sleep" << sentences({Sleep, Kept, OpenFiles});
    QTest::newRow("session locked") << "lock" << sentences({Session, Kept, OpenFiles});
}

void AutoLockTest::anEditThatCannotComeHomeStaysOnThisComputer()
{
    QFETCH(QString, announcement);
    QFETCH(QString, text);
    openWindow();
    editTheFile();
    if (QTest::currentTestFailed()) {
        return;
    }
    {
        // The drive refuses every write, so the edit cannot be stored; the keys go all the same.
        const FailureInjection injection(m_fixture.container(), "open-write,write");
        announce(announcement);
        verifyLockedWith(text);
    }
    QCOMPARE(storedContents(FileName), Original);
    QVERIFY(workspaceHolds(Edited));
}

void AutoLockTest::aVanishedContainerLocksWithinSeconds()
{
    openWindow();
    editTheFile();
    if (QTest::currentTestFailed()) {
        return;
    }
    const QString moved = m_fixture.path(QStringLiteral("usb-retirado"));
    QVERIFY(QDir().rename(m_fixture.driveRoot(), moved));
    QElapsedTimer clock;
    clock.start();
    QTRY_VERIFY_WITH_TIMEOUT(!m_fixture.window().isVaultUnlocked(), 5000);
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
    verifyLockedWith(sentences({Gone, Kept, OpenFiles}));
    // Nothing could be written: the edit waits on this computer and the container is as it was.
    QVERIFY(workspaceHolds(Edited));
    QVERIFY(QDir().rename(moved, m_fixture.driveRoot()));
    QCOMPARE(storedContents(FileName), Original);
}

void AutoLockTest::aLockDuringAnOperationWaitsForItsEnd()
{
    openWindow();
    if (QTest::currentTestFailed()) {
        return;
    }
    QVERIFY(m_bus.syncWindowBus());
    QVERIFY(m_fixture.selectRow(FileName));
    QSignalSpy sleeps(m_events, &Platform::SessionEvents::sleepImminent);
    MessageRecord question;
    bool announced = false;
    bool unlockedWhileAsked = false;
    int heldWhileAsked = -1;
    m_fixture.driver().expect([&](QWidget* widget) {
        auto* box = qobject_cast<QMessageBox*>(widget);
        if (!box) {
            widget->close();
            return;
        }
        question = DialogDriver::describe(box);
        m_bus.logind().sendPrepareForSleep(true);
        announced = sleeps.wait(5000);
        // Room for a lock that would come too early.
        QTest::qWait(100);
        unlockedWhileAsked = m_fixture.window().isVaultUnlocked();
        heldWhileAsked = m_bus.logind().heldInhibitors();
        for (QAbstractButton* button : box->buttons()) {
            if (button->text() == QLatin1String("Sim")) {
                button->click();
            }
        }
    });
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    QCOMPARE(question.title, QStringLiteral("Excluir arquivo"));
    QVERIFY(announced);
    QVERIFY(unlockedWhileAsked);
    QCOMPARE(heldWhileAsked, 1);
    // The lock came as soon as the action ended, not later.
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    verifyLockedWith(sentences({Sleep, OpenFiles}));
    // The answer was carried out with the keys still there.
    QCOMPARE(storedContents(FileName), QByteArrayLiteral("<not in the vault>"));
}

void AutoLockTest::withoutLogindNothingHappens_data()
{
    QTest::addColumn<bool>("connected");
    // Nobody owns logind's or the screen savers' names there.
    QTest::newRow("a bus without logind") << true;
    QTest::newRow("no bus at all") << false;
}

void AutoLockTest::withoutLogindNothingHappens()
{
    QFETCH(bool, connected);
    const QDBusConnection bus = connected ? m_bus.windowBus() : m_bus.nowhere();
    QCOMPARE(bus.isConnected(), connected);
    setUpWindow(bus);
    if (QTest::currentTestFailed()) {
        return;
    }
    QVERIFY(m_fixture.unlock());
    // The calls to nobody come back as errors, which end quietly.
    QTest::qWait(300);
    QVERIFY(m_events->sessionPath().isEmpty());
    QVERIFY(m_fixture.window().isVaultUnlocked());
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(statusMessage(), QStringLiteral("Cofre bloqueado."));
    // cleanup checks that no message box appeared.
}

QTEST_MAIN(AutoLockTest)

#include "tst_autolock.moc"
