#include "core/crypto/ProcessProtection.h"
#include "ui/MainWindow.h"
#include "ui/ProductInfo.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char* argv[])
{
    // Before any argument is read: from here on a crash leaves no core file behind.
    Velmarin::Core::ProcessProtection::disableCoreDumps();
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Velmarin"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(Velmarin::UI::ProductVersion));
    // The same text as the application name: together they place the per-user standard locations.
    QCoreApplication::setOrganizationName(QStringLiteral("Velmarin"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/Velmarin.ico")));

    Velmarin::UI::MainWindow window;
    window.show();
    return QApplication::exec();
}
