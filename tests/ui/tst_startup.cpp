// The program's start-up as it ships: the real entry point runs in a child process, where a probe
// registered for the application's construction reports what the user would see, then ends the
// event loop the way the test asks.
#include "FakeWindowServices.h"
#include "ui/AboutDialog.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/HelpDialog.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QMessageBox>
#include <QProcess>
#include <QStatusBar>
#include <QTest>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

int velmarinMain(int argc, char* argv[]);

namespace {

const char* const ProbeVariable = "VELMARIN_STARTUP_PROBE";

QImage iconImage(const QIcon& icon)
{
    return icon.pixmap(QSize(32, 32)).toImage().convertToFormat(QImage::Format_ARGB32);
}

// Runs inside the child, once the entry point has built its window.
void reportAndFinish()
{
    Velmarin::UI::MainWindow* window = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        window = window ? window : qobject_cast<Velmarin::UI::MainWindow*>(widget);
    }
    QTextStream out(stdout);
    if (!window) {
        out << "window: none\n";
        QCoreApplication::exit(99);
        return;
    }
    const QImage resource = iconImage(QIcon(QStringLiteral(":/icons/Velmarin.ico")));
    Velmarin::Tests::FakeUrlOpener opener;
    Velmarin::UI::AboutDialog about(opener, window);
    Velmarin::UI::HelpDialog help(window);
    Velmarin::UI::ChangePasswordDialog password(window);
    QMessageBox box(QMessageBox::Information, QStringLiteral("Velmarin"), QStringLiteral("texto"),
                    QMessageBox::Ok, window);
    QWidget orphan;
    bool sameIcon = !resource.isNull() && iconImage(QApplication::windowIcon()) == resource;
    for (QWidget* widget :
         {static_cast<QWidget*>(window), static_cast<QWidget*>(&about), static_cast<QWidget*>(&help),
          static_cast<QWidget*>(&password), static_cast<QWidget*>(&box), &orphan}) {
        sameIcon = sameIcon && iconImage(widget->windowIcon()) == resource;
    }

    out << "name: " << QCoreApplication::applicationName() << '\n'
        << "version: " << QCoreApplication::applicationVersion() << '\n'
        << "organization: " << QCoreApplication::organizationName() << '\n'
        << "title: " << window->windowTitle() << '\n'
        << "visible: " << window->isVisible() << '\n'
        << "status: " << window->statusBar()->currentMessage() << '\n'
        << "container: " << window->containerPath() << '\n'
        << "unlocked: " << window->isVaultUnlocked() << '\n'
        << "same icon everywhere: " << sameIcon << '\n';
    out.flush();

    const QByteArray finish = qgetenv(ProbeVariable);
    if (finish == "close") {
        window->close();
    } else {
        QCoreApplication::exit(finish.toInt());
    }
}

void installProbe()
{
    if (qEnvironmentVariableIsSet(ProbeVariable)) {
        QTimer::singleShot(0, &reportAndFinish);
    }
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(installProbe)

class StartupTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsWithItsIdentityAndIcon();
    void extraArgumentsChangeNothing();
    void exitCodeIsTheEventLoops_data();
    void exitCodeIsTheEventLoops();

private:
    // Runs the entry point in a child; returns its standard output, and its exit code in exitCode.
    static QString run(const QByteArray& finish, const QStringList& arguments, int* exitCode);
};

QString StartupTest::run(const QByteArray& finish, const QStringList& arguments, int* exitCode)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(ProbeVariable), QString::fromLatin1(finish));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), arguments);
    if (!child.waitForFinished(60000) || child.exitStatus() != QProcess::NormalExit) {
        child.kill();
        *exitCode = -1;
        return QString::fromUtf8(child.readAllStandardError());
    }
    *exitCode = child.exitCode();
    return QString::fromUtf8(child.readAllStandardOutput());
}

void StartupTest::startsWithItsIdentityAndIcon()
{
    int exitCode = -1;
    const QString report = run("close", {}, &exitCode);
    QCOMPARE(exitCode, 0);
    QCOMPARE(report,
             QStringLiteral("name: Velmarin\nversion: 1.0.5\norganization: Velmarin\ntitle: Velmarin\n"
                            "visible: 1\nstatus: Pronto\ncontainer: \nunlocked: 0\n"
                            "same icon everywhere: 1\n"));
}

void StartupTest::extraArgumentsChangeNothing()
{
    int plainCode = -1;
    const QString plain = run("close", {}, &plainCode);
    int withArgumentsCode = -1;
    const QString withArguments =
        run("close",
            {QStringLiteral("--senha"), QStringLiteral("segredo"), QStringLiteral("/tmp/velmarin.vltx"),
             QStringLiteral("-x"), QStringLiteral("--help")},
            &withArgumentsCode);
    QCOMPARE(withArgumentsCode, plainCode);
    QCOMPARE(withArguments, plain);
    QVERIFY(withArguments.contains(QStringLiteral("container: \n")));
}

void StartupTest::exitCodeIsTheEventLoops_data()
{
    QTest::addColumn<QByteArray>("finish");
    QTest::addColumn<int>("expected");
    QTest::newRow("normal close") << QByteArray("close") << 0;
    QTest::newRow("loop ended with 3") << QByteArray("3") << 3;
    QTest::newRow("loop ended with 42") << QByteArray("42") << 42;
}

void StartupTest::exitCodeIsTheEventLoops()
{
    QFETCH(QByteArray, finish);
    QFETCH(int, expected);
    int exitCode = -1;
    run(finish, {}, &exitCode);
    QCOMPARE(exitCode, expected);
}

int main(int argc, char* argv[])
{
    if (qEnvironmentVariableIsSet(ProbeVariable)) {
        return velmarinMain(argc, argv);
    }
    QCoreApplication application(argc, argv);
    StartupTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_startup.moc"
