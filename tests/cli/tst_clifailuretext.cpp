// The engine's reasons as velmarin-cli words them and the exit codes scripts get for them.
#include "TestFiles.h"
#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "core/vault/Failure.h"

#include <QTemporaryFile>
#include <QtTest>

using Velmarin::Cli::FailureText;
using Velmarin::Core::Failure;
using Velmarin::Tests::TestFiles;
using Reason = Velmarin::Core::Failure::Reason;

Q_DECLARE_METATYPE(Reason)

namespace {

Failure failure(Reason reason, const QString& path = QString(), const QString& systemError = QString())
{
    Failure made;
    made.reason = reason;
    made.path = path;
    made.systemError = systemError;
    return made;
}

} // namespace

class TestCliFailureText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyReasonHasItsSentenceAndCode_data();
    void everyReasonHasItsSentenceAndCode();
    void noReasonSaysNothing();
    void everyReasonThereIsHasASentence();
    void theSystemsWordsGoInsideTheSentence();
    void damageInTheIndexIsNoAccessAndInAFileDependsOnTheCommand();
    void reportTellsTheReasonOrNothing();
    void sentencesTheCommandsShare();
};

void TestCliFailureText::everyReasonHasItsSentenceAndCode_data()
{
    QTest::addColumn<Reason>("reason");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<int>("code");
    const QString container = QStringLiteral("/media/usb/velmarin.vltx");
    const QString file = QStringLiteral("Fotos/praia.jpg");
    const QString local = QStringLiteral("/home/ana/praia.jpg");
    const auto row = [](const char* name, Reason reason, const QString& path, const char* sentence,
                        int code) {
        QTest::newRow(name) << reason << path << QString::fromUtf8(sentence) << code;
    };
    using namespace Velmarin::Cli;
    row("NotUnlocked", Reason::NotUnlocked, QString(), "O cofre não está desbloqueado.", Failed);
    row("AlreadyUnlocked", Reason::AlreadyUnlocked, QString(), "O cofre já está desbloqueado.", Failed);
    row("ReadOnly", Reason::ReadOnly, QString(),
        "O cofre foi aberto somente para leitura e não pode ser alterado.", Failed);
    row("ContainerMissing", Reason::ContainerMissing, container, "O arquivo do container não foi encontrado.",
        Failed);
    row("NotAContainer", Reason::NotAContainer, container,
        "/media/usb/velmarin.vltx não é um container Velmarin válido.", NoAccess);
    row("NewerFormat", Reason::NewerFormat, container,
        "Este container foi criado por uma versão mais nova do Velmarin. Atualize o programa para abri-lo.",
        NoAccess);
    row("WrongPassword", Reason::WrongPassword, QString(),
        "A senha está incorreta ou o cabeçalho do container foi alterado.", NoAccess);
    row("InUse", Reason::InUse, container,
        "Este cofre já está aberto em outra janela ou programa do Velmarin.", InUse);
    row("InterruptedChange", Reason::InterruptedChange, container,
        "Uma alteração no cofre foi interrompida e não pôde ser desfeita.", Failed);
    row("PasswordTooShort", Reason::PasswordTooShort, QString(), "A senha deve ter pelo menos 12 caracteres.",
        UsageError);
    row("NotEnoughMemory", Reason::NotEnoughMemory, QString(),
        "Não há memória livre suficiente para derivar a chave da senha.", Failed);
    row("EditNotSaved", Reason::EditNotSaved, file,
        "A cópia editada de Fotos/praia.jpg não pôde ser guardada no cofre.", Failed);
    row("WorkspaceUnavailable", Reason::WorkspaceUnavailable, QStringLiteral("/tmp/velmarin-1000"),
        "A área temporária do cofre em /tmp/velmarin-1000 não pode ser usada com segurança.", Failed);
    row("NoSpace", Reason::NoSpace, container, "Não há espaço livre suficiente na unidade do container.",
        Failed);
    row("IndexFull", Reason::IndexFull, container,
        "O cofre chegou ao limite de itens que o container comporta.", Failed);
    row("FileTooLargeForFileSystem", Reason::FileTooLargeForFileSystem, container,
        "O container ficaria maior que 4 GB, o limite de tamanho de arquivo do sistema de arquivos FAT32 "
        "desta "
        "unidade.\n\nFormate a unidade como exFAT ou NTFS para guardar mais de 4 GB no cofre, depois de "
        "copiar o container para outro lugar: "
        "formatar apaga tudo o que está na unidade.",
        Failed);
    row("SourceUnreadable", Reason::SourceUnreadable, local,
        "Não foi possível ler o arquivo /home/ana/praia.jpg.", Failed);
    row("SourceChanged", Reason::SourceChanged, local,
        "O arquivo /home/ana/praia.jpg mudou de tamanho enquanto era lido.", Failed);
    row("DriveRead", Reason::DriveRead, container,
        "Não foi possível ler o container /media/usb/velmarin.vltx.", Failed);
    row("DriveWrite", Reason::DriveWrite, container, "Não foi possível gravar em /media/usb/velmarin.vltx.",
        Failed);
    row("DestinationUnwritable", Reason::DestinationUnwritable, local,
        "Não foi possível gravar a cópia exportada em /home/ana/praia.jpg.", Failed);
    row("DestinationUnwritable, standard output", Reason::DestinationUnwritable, QString(),
        "Não foi possível gravar a cópia exportada.", Failed);
    row("Damaged, a file", Reason::Damaged, file, "O arquivo Fotos/praia.jpg está danificado no container.",
        Failed);
    row("Damaged, the index", Reason::Damaged, QString(),
        "O índice do cofre está danificado ou foi alterado.", NoAccess);
    row("NameNotAllowed", Reason::NameNotAllowed, QStringLiteral("a/../b"),
        "O caminho a/../b não pode ser usado no cofre.", UsageError);
    row("AlreadyExists", Reason::AlreadyExists, file, "Já existe um item com esse nome nesta pasta.", Failed);
    row("NotFound", Reason::NotFound, file, "Fotos/praia.jpg não existe no cofre.", Failed);
    row("FolderNotEmpty", Reason::FolderNotEmpty, QStringLiteral("Fotos"), "A pasta Fotos não está vazia.",
        Failed);
    row("OpenForEditing", Reason::OpenForEditing, file,
        "Fotos/praia.jpg está aberto para edição e não pode ser movido nem renomeado agora.", Failed);
    row("SamePlace", Reason::SamePlace, QStringLiteral("Fotos"),
        "Fotos já está nesse lugar, ou o destino fica dentro dele.", Failed);
    row("IrregularEntry", Reason::IrregularEntry, QStringLiteral("DUP.txt"),
        "O índice do cofre registra DUP.txt de forma irregular e ele não pode ser aberto para edição; ainda "
        "pode ser exportado. Veja os detalhes com velmarin-cli verify.",
        Failed);
}

void TestCliFailureText::everyReasonHasItsSentenceAndCode()
{
    QFETCH(Reason, reason);
    QFETCH(QString, path);
    QFETCH(QString, sentence);
    QFETCH(int, code);
    QCOMPARE(FailureText::sentence(failure(reason, path)), sentence);
    QCOMPARE(FailureText::sentence(reason, path), sentence);
    QCOMPARE(FailureText::exitCode(failure(reason, path)), code);
    QCOMPARE(FailureText::exitCode(failure(reason, path), FailureText::Damage::Fails), code);
}

void TestCliFailureText::noReasonSaysNothing()
{
    QVERIFY(FailureText::sentence(Failure()).isEmpty());
    // An answer of false that nobody explained is still a failure.
    QCOMPARE(FailureText::exitCode(Failure()), int(Velmarin::Cli::Failed));
}

void TestCliFailureText::everyReasonThereIsHasASentence()
{
    for (int value = int(Reason::None) + 1; value <= int(Reason::IrregularEntry); ++value) {
        const QString text = FailureText::sentence(failure(static_cast<Reason>(value), QStringLiteral("x")));
        QVERIFY2(text.size() > 2 && text.endsWith(QLatin1Char('.')), qPrintable(QString::number(value)));
    }
}

void TestCliFailureText::theSystemsWordsGoInsideTheSentence()
{
    QCOMPARE(
        FailureText::sentence(failure(Reason::NoSpace, QStringLiteral("/media/usb/velmarin.vltx"),
                                      QStringLiteral("No space left on device"))),
        QStringLiteral("Não há espaço livre suficiente na unidade do container (No space left on device)."));
    QCOMPARE(
        FailureText::sentence(failure(Reason::DriveRead, QStringLiteral("/media/usb/velmarin.vltx"),
                                      QStringLiteral("Input/output error"))),
        QStringLiteral("Não foi possível ler o container /media/usb/velmarin.vltx (Input/output error)."));
    // The system's words change nothing about the code.
    QCOMPARE(
        FailureText::exitCode(failure(Reason::NotAContainer, QStringLiteral("c.vltx"), QStringLiteral("x"))),
        int(Velmarin::Cli::NoAccess));
}

void TestCliFailureText::damageInTheIndexIsNoAccessAndInAFileDependsOnTheCommand()
{
    using Velmarin::Cli::DamageFound;
    using Velmarin::Cli::Failed;
    using Velmarin::Cli::NoAccess;
    const Failure block = failure(Reason::Damaged, QStringLiteral("a.bin"));
    const Failure index = failure(Reason::Damaged);
    QCOMPARE(FailureText::exitCode(block), int(Failed));
    QCOMPARE(FailureText::exitCode(block, FailureText::Damage::IsFinding), int(DamageFound));
    QCOMPARE(FailureText::exitCode(index), int(NoAccess));
    QCOMPARE(FailureText::exitCode(index, FailureText::Damage::IsFinding), int(NoAccess));
    // Only damage is a finding: verify and compact still fail for the drive.
    QCOMPARE(FailureText::exitCode(failure(Reason::DriveRead, QStringLiteral("c.vltx")),
                                   FailureText::Damage::IsFinding),
             int(Failed));
}

void TestCliFailureText::reportTellsTheReasonOrNothing()
{
    QTemporaryFile output;
    QTemporaryFile errors;
    QVERIFY(output.open() && errors.open());
    Velmarin::Cli::Console console(output, errors, false);
    // No reason yet: nothing more is said and the command's own code stands.
    QCOMPARE(FailureText::report(console, Failure(), Velmarin::Cli::NoAccess), int(Velmarin::Cli::NoAccess));
    QCOMPARE(
        FailureText::report(console, failure(Reason::InUse, QStringLiteral("c.vltx")), Velmarin::Cli::Failed),
        int(Velmarin::Cli::InUse));
    QCOMPARE(FailureText::report(console, failure(Reason::Damaged, QStringLiteral("a.bin")),
                                 Velmarin::Cli::Failed, FailureText::Damage::IsFinding),
             int(Velmarin::Cli::DamageFound));
    QVERIFY(errors.flush());
    QCOMPARE(QString::fromUtf8(TestFiles::read(errors.fileName())),
             QStringLiteral("Este cofre já está aberto em outra janela ou programa do Velmarin.\n"
                            "O arquivo a.bin está danificado no container.\n"));
    QCOMPARE(output.size(), 0);
}

void TestCliFailureText::sentencesTheCommandsShare()
{
    QCOMPARE(FailureText::missingFile(QStringLiteral("Fotos/praia.jpg")),
             QStringLiteral("O arquivo Fotos/praia.jpg não existe no cofre."));
    QCOMPARE(FailureText::missingFolder(QStringLiteral("Fotos")),
             QStringLiteral("A pasta Fotos não existe no cofre."));
    QCOMPARE(
        FailureText::fileNameRule(),
        QStringLiteral("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo."));
    QCOMPARE(
        FailureText::folderNameRule(),
        QStringLiteral("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo."));
}

QTEST_GUILESS_MAIN(TestCliFailureText)
#include "tst_clifailuretext.moc"
