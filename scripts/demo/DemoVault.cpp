// Builds a vault with folders and files of several kinds, for screenshots and demonstrations:
//   velmarin-demo-vault <container> <password>
#include "core/vault/VaultManager.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QTextStream err(stderr);
    if (arguments.size() != 3) {
        err << "uso: velmarin-demo-vault <container> <senha>\n";
        return 2;
    }
    const QString container = arguments.at(1);
    QByteArray password = arguments.at(2).toUtf8();

    Velmarin::Core::VaultManager vault;
    if (!vault.createVault(container, password) || !vault.unlock(container, password)) {
        err << "Não foi possível criar o cofre de demonstração.\n";
        return 1;
    }
    QTemporaryDir scratch;
    const struct
    {
        const char* path;
        int size;
        int daysAgo;
    } files[] = {
        {"Documentos/contrato-aluguel.pdf", 184320, 40},
        {"Documentos/declaracao-irpf-2026.pdf", 412000, 12},
        {"Documentos/notas.txt", 2300, 1},
        {"Fotos/passaporte.jpg", 2480000, 90},
        {"Fotos/rg-frente.png", 930000, 90},
        {"Chaves/servidor.pem", 3243, 200},
        {"Chaves/assinatura.asc", 881, 200},
        {"senhas-wifi.txt", 512, 3},
        {"recibo-condominio.encrypted", 66000, 25},
        {"certificado-digital.crt", 2100, 300},
        {"audio-reuniao.m4a", 5200000, 7},
        {"planilha-gastos.xlsx", 48200, 2},
        {"LEIA-ME", 1200, 60},
    };
    for (const auto& file : files) {
        const QString local = scratch.filePath(QStringLiteral("arquivo"));
        QFile out(local);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            out.write(QByteArray(file.size, 'v')) != file.size) {
            return 1;
        }
        out.setFileTime(QDateTime::currentDateTime().addDays(-file.daysAgo),
                        QFileDevice::FileModificationTime);
        out.close();
        if (!vault.importFile(local, QString::fromUtf8(file.path))) {
            err << "Não foi possível importar " << file.path << ".\n";
            return 1;
        }
    }
    vault.createFolder(QStringLiteral("Backup antigo"));
    password.fill('\0');
    return vault.lock() ? 0 : 1;
}
