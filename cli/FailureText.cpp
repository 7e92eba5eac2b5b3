#include "cli/FailureText.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "core/vault/VaultManager.h"

#include <QDir>

namespace Velmarin::Cli {

using Reason = Core::Failure::Reason;

namespace {

// Damage with no path is in the index, which the header holds: the vault cannot be opened at all.
bool isInHeader(const Core::Failure& failure)
{
    return failure.reason == Reason::Damaged && failure.path.isEmpty();
}

} // namespace

QString FailureText::sentence(Reason reason, const QString& path)
{
    Core::Failure failure;
    failure.reason = reason;
    failure.path = path;
    return sentence(failure);
}

QString FailureText::sentence(const Core::Failure& failure)
{
    const QString& path = failure.path;
    // Files on this computer or the drive are shown as the system writes paths; vault paths are not.
    const QString local = QDir::toNativeSeparators(path);
    QString text;
    switch (failure.reason) {
    case Reason::None:
        return QString();
    case Reason::NotUnlocked:
        text = tr("O cofre não está desbloqueado.");
        break;
    case Reason::AlreadyUnlocked:
        text = tr("O cofre já está desbloqueado.");
        break;
    case Reason::ReadOnly:
        text = tr("O cofre foi aberto somente para leitura e não pode ser alterado.");
        break;
    case Reason::ContainerMissing:
        text = tr("O arquivo do container não foi encontrado.");
        break;
    case Reason::NotAContainer:
        text = tr("%1 não é um container Velmarin válido.").arg(path);
        break;
    case Reason::NotARegularFile:
        text = tr("%1 não é um arquivo comum: é uma pasta, um pipe, um dispositivo ou um link. Ele não foi "
                  "aberto.")
                   .arg(local);
        break;
    case Reason::KeyCostTooHigh:
        text = tr("O cabeçalho deste container pede um cálculo de chave tão demorado que travaria o programa "
                  "por horas. O container não foi aberto: o cabeçalho pode ter sido alterado.");
        break;
    case Reason::NewerFormat:
        text = tr("Este container foi criado por uma versão mais nova do Velmarin. Atualize o programa para "
                  "abri-lo.");
        break;
    case Reason::WrongPassword:
        text = tr("A senha está incorreta ou o cabeçalho do container foi alterado.");
        break;
    case Reason::InUse:
        text = tr("Este cofre já está aberto em outra janela ou programa do Velmarin.");
        break;
    case Reason::InterruptedChange:
        text = tr("Uma alteração no cofre foi interrompida e não pôde ser desfeita.");
        break;
    case Reason::PasswordTooShort:
        text =
            tr("A senha deve ter pelo menos %1 caracteres.").arg(Core::VaultManager::MinimumPasswordLength);
        break;
    case Reason::NotEnoughMemory:
        text = tr("Não há memória livre suficiente para derivar a chave da senha.");
        break;
    case Reason::EditNotSaved:
        text = tr("A cópia editada de %1 não pôde ser guardada no cofre.").arg(path);
        break;
    case Reason::WorkspaceUnavailable:
        text = tr("A área temporária do cofre em %1 não pode ser usada com segurança.").arg(local);
        break;
    case Reason::NoSpace:
        text = tr("Não há espaço livre suficiente na unidade do container.");
        break;
    case Reason::IndexFull:
        text = tr("O cofre chegou ao limite de itens que o container comporta.");
        break;
    case Reason::FileTooLargeForFileSystem:
        text = tr(
            "O container ficaria maior que 4 GB, o limite de tamanho de arquivo do sistema de arquivos FAT32 "
            "desta unidade.\n\nFormate a unidade como exFAT ou NTFS para guardar mais de 4 GB no cofre, "
            "depois de copiar o container para outro lugar: "
            "formatar apaga tudo o que está na unidade.");
        break;
    case Reason::SourceUnreadable:
        text = tr("Não foi possível ler o arquivo %1.").arg(local);
        break;
    case Reason::SourceChanged:
        text = tr("O arquivo %1 mudou de tamanho enquanto era lido.").arg(local);
        break;
    case Reason::DriveRead:
        text = tr("Não foi possível ler o container %1.").arg(local);
        break;
    case Reason::DriveWrite:
        text = tr("Não foi possível gravar em %1.").arg(local);
        break;
    case Reason::DestinationUnwritable:
        // Standard output has no path.
        text = path.isEmpty() ? tr("Não foi possível gravar a cópia exportada.")
                              : tr("Não foi possível gravar a cópia exportada em %1.").arg(local);
        break;
    case Reason::Damaged:
        text = isInHeader(failure) ? tr("O índice do cofre está danificado ou foi alterado.")
                                   : tr("O arquivo %1 está danificado no container.").arg(path);
        break;
    case Reason::NameNotAllowed:
        text = tr("O caminho %1 não pode ser usado no cofre.").arg(path);
        break;
    case Reason::AlreadyExists:
        text = tr("Já existe um item com esse nome nesta pasta.");
        break;
    case Reason::NotFound:
        text = tr("%1 não existe no cofre.").arg(path);
        break;
    case Reason::FolderNotEmpty:
        text = tr("A pasta %1 não está vazia.").arg(path);
        break;
    case Reason::OpenForEditing:
        text = tr("%1 está aberto para edição e não pode ser movido nem renomeado agora.").arg(path);
        break;
    case Reason::SamePlace:
        text = tr("%1 já está nesse lugar, ou o destino fica dentro dele.").arg(path);
        break;
    case Reason::IrregularEntry:
        text = tr("O índice do cofre registra %1 de forma irregular e ele não pode ser aberto para edição; "
                  "ainda pode ser exportado. Veja os detalhes com velmarin-cli verify.")
                   .arg(path);
        break;
    }
    if (failure.systemError.isEmpty()) {
        return text;
    }
    // The system's words go inside the sentence, before its final period.
    text.chop(1);
    return tr("%1 (%2).").arg(text, failure.systemError);
}

int FailureText::exitCode(const Core::Failure& failure, Damage damage)
{
    switch (failure.reason) {
    case Reason::NotAContainer:
    case Reason::NotARegularFile:
    case Reason::KeyCostTooHigh:
    case Reason::NewerFormat:
    case Reason::WrongPassword:
        return NoAccess;
    case Reason::Damaged:
        if (isInHeader(failure)) {
            return NoAccess;
        }
        return damage == Damage::IsFinding ? DamageFound : Failed;
    case Reason::InUse:
        return InUse;
    case Reason::NameNotAllowed:
    case Reason::PasswordTooShort:
        return UsageError;
    default:
        return Failed;
    }
}

int FailureText::report(Console& console, const Core::Failure& failure, int fallback, Damage damage)
{
    if (failure.reason == Reason::None) {
        return fallback;
    }
    console.message(sentence(failure));
    return exitCode(failure, damage);
}

QString FailureText::missingFile(const QString& path)
{
    return tr("O arquivo %1 não existe no cofre.").arg(path);
}

QString FailureText::missingFolder(const QString& path)
{
    return tr("A pasta %1 não existe no cofre.").arg(path);
}

QString FailureText::outsideDestination(const QString& path)
{
    return tr("O caminho %1 levaria para fora da pasta de destino; nada foi gravado para ele.").arg(path);
}

QString FailureText::fileNameRule()
{
    return tr("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo.");
}

QString FailureText::folderNameRule()
{
    return tr("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.");
}

QString FailureText::indexCapacity(int fitting, int selected)
{
    return tr("O índice do cofre comporta mais %1 dos %2 arquivos selecionados. Importe em partes menores.")
        .arg(fitting)
        .arg(selected);
}

} // namespace Velmarin::Cli
