#include "ui/FailureText.h"

#include "core/vault/VaultManager.h"

namespace Velmarin::UI {

QString FailureText::why(const Core::Failure& failure)
{
    QString text = sentence(failure.reason, failure.path);
    if (failure.cause != Core::Failure::Reason::None) {
        text += QLatin1Char(' ') + sentence(failure.cause, QString());
    }
    if (!failure.systemError.isEmpty()) {
        text += QLatin1String("\n\n") + tr("O sistema informou: %1").arg(failure.systemError);
    }
    return text;
}

QString FailureText::nameRefusal(const Core::Failure& failure, bool folder)
{
    if (failure.reason != Core::Failure::Reason::NameNotAllowed) {
        return sentence(failure.reason, failure.path);
    }
    return folder ? tr("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.")
                  : tr("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo.");
}

QString FailureText::sentence(Core::Failure::Reason reason, const QString& path)
{
    using Reason = Core::Failure::Reason;
    switch (reason) {
    case Reason::None:
        return {};
    case Reason::NotUnlocked:
        return tr("O cofre não está desbloqueado.");
    case Reason::AlreadyUnlocked:
        return tr("Bloqueie o cofre aberto antes de continuar.");
    case Reason::ReadOnly:
        return tr("O cofre foi aberto somente para leitura.");
    case Reason::ContainerMissing:
        return tr("O arquivo do container não foi encontrado.");
    case Reason::NotAContainer:
        return tr("O arquivo não é um container Velmarin válido.");
    case Reason::NotARegularFile:
        return tr("O caminho do container não é um arquivo comum: é uma pasta, um pipe, um dispositivo ou um "
                  "link. Ele não foi aberto.");
    case Reason::KeyCostTooHigh:
        return tr(
            "O cabeçalho deste container pede um cálculo de chave tão demorado que travaria o programa por "
            "horas. O container não foi aberto: o cabeçalho pode ter sido alterado.");
    case Reason::NewerFormat:
        return tr("Este container foi criado por uma versão mais nova do Velmarin. Atualize o programa para "
                  "abri-lo.");
    case Reason::WrongPassword:
        return tr("A senha não abre este cofre.");
    case Reason::InUse:
        return tr("Este cofre já está aberto em outra janela ou programa do Velmarin.");
    case Reason::InterruptedChange:
        return tr("Uma alteração interrompida deixou o container incompleto, e ela não pôde ser desfeita.");
    case Reason::PasswordTooShort:
        return tr("A senha deve ter pelo menos %1 caracteres.")
            .arg(Core::VaultManager::MinimumPasswordLength);
    case Reason::NotEnoughMemory:
        return tr("O computador não tem memória livre suficiente para esta operação.");
    case Reason::EditNotSaved:
        return tr("As alterações em %1 não puderam ser gravadas no cofre.").arg(path);
    case Reason::WorkspaceUnavailable:
        return tr("A pasta de trabalho do Velmarin neste computador não pôde ser usada.");
    case Reason::NoSpace:
        return tr("Não há espaço livre suficiente na unidade do container.");
    case Reason::IndexFull:
        return tr("O cofre chegou ao número máximo de itens que o seu índice comporta.");
    case Reason::FileTooLargeForFileSystem:
        return tr(
            "O container ficaria maior que 4 GB, o limite de tamanho de arquivo do sistema de arquivos FAT32 "
            "desta unidade.\n\nFormate a unidade como exFAT ou NTFS para guardar mais de 4 GB no cofre, "
            "depois de copiar o container para outro lugar: "
            "formatar apaga tudo o que está na unidade.");
    case Reason::SourceUnreadable:
        return tr("Não foi possível ler %1.").arg(path);
    case Reason::SourceChanged:
        return tr("%1 mudou enquanto era lido.").arg(path);
    case Reason::DriveRead:
        return tr("Não foi possível ler a unidade do container.");
    case Reason::DriveWrite:
        return tr("Não foi possível gravar na unidade do container.");
    case Reason::DestinationUnwritable:
        return tr("Não foi possível gravar %1.").arg(path);
    case Reason::Damaged:
        return tr("Os dados de %1 estão danificados: não conferem com o que foi gravado.").arg(path);
    case Reason::NameNotAllowed:
        return tr("Esse nome não é permitido no cofre.");
    case Reason::AlreadyExists:
        return tr("Já existe um item com esse nome nesta pasta.");
    case Reason::NotFound:
        return tr("%1 não existe no cofre.").arg(path);
    case Reason::FolderNotEmpty:
        return tr("A pasta não está vazia.");
    case Reason::OpenForEditing:
        return tr("%1 está aberto para edição.").arg(path);
    case Reason::SamePlace:
        return tr("O item já está nesse lugar.");
    case Reason::IrregularEntry:
        return tr("O índice do cofre registra %1 de forma irregular (por exemplo, outro arquivo com o mesmo "
                  "nome em outras maiúsculas e minúsculas), e uma cópia editada não poderia voltar a ele com "
                  "segurança. O arquivo pode ser exportado, mas não aberto para edição. Use \"Verificar "
                  "cofre...\" para ver os detalhes.")
            .arg(path);
    }
    return {};
}

QString FailureText::indexCapacity(int fitting, int selected)
{
    return tr("O índice do cofre comporta mais %1 dos %2 arquivos selecionados. Importe em partes menores.")
        .arg(fitting)
        .arg(selected);
}

} // namespace Velmarin::UI
