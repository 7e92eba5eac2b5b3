#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Velmarin"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.5"));
    QCoreApplication::setOrganizationName(QStringLiteral("Velmarin"));

    // Until the window lands, the engine is reachable only through its tests.
    QTextStream(stdout) << QCoreApplication::translate("main",
                                                       "A janela do Velmarin ainda não está disponível "
                                                       "nesta versão; o motor do cofre está pronto e "
                                                       "testado (make test).")
                        << Qt::endl;
    return 0;
}
