// The change-password, help and about dialogs, and the dense list rows of the about dialog.
#include "DialogDriver.h"
#include "FakeWindowServices.h"
#include "ui/AboutDialog.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/CompactListItemDelegate.h"
#include "ui/HelpDialog.h"
#include "ui/ProductInfo.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLibraryInfo>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSysInfo>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>

#include <sodium.h>

using namespace Velmarin;
using Velmarin::Tests::DialogDriver;
using Velmarin::Tests::MessageRecord;

namespace {

QPushButton* buttonWithText(QWidget* parent, const QString& text)
{
    for (QPushButton* button : parent->findChildren<QPushButton*>()) {
        if (button->text() == text) {
            return button;
        }
    }
    return nullptr;
}

QList<QLineEdit*> passwordFields(UI::ChangePasswordDialog& dialog)
{
    auto* form = dialog.findChild<QFormLayout*>();
    QList<QLineEdit*> fields;
    for (int row = 0; row < form->rowCount(); ++row) {
        fields.append(qobject_cast<QLineEdit*>(form->itemAt(row, QFormLayout::FieldRole)->widget()));
    }
    return fields;
}

} // namespace

class DialogsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void changePasswordLayout();
    void changePasswordValidation_data();
    void changePasswordValidation();
    void changePasswordAcceptsAndHandsOverUtf8();
    void changePasswordCancelRejects();

    void helpShowsThePage();
    void helpCoversEveryAction();
    void helpFallsBackWhenThePageIsMissing();

    void aboutLayoutAndTexts();
    void aboutComponents();
    void aboutLinkOpensThroughTheDesktop();
    void compactDelegateGivesDenseRows();

private:
    DialogDriver m_driver;
};

void DialogsTest::changePasswordLayout()
{
    UI::ChangePasswordDialog dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Alterar senha do cofre"));
    QVERIFY(dialog.isModal());
    auto* form = dialog.findChild<QFormLayout*>();
    QVERIFY(form);
    QCOMPARE(form->rowCount(), 3);
    QStringList labels;
    for (int row = 0; row < 3; ++row) {
        labels.append(qobject_cast<QLabel*>(form->itemAt(row, QFormLayout::LabelRole)->widget())->text());
    }
    QCOMPARE(labels, QStringList({QStringLiteral("Senha atual:"), QStringLiteral("Nova senha:"),
                                  QStringLiteral("Confirmar nova senha:")}));
    for (QLineEdit* field : passwordFields(dialog)) {
        QCOMPARE(field->echoMode(), QLineEdit::Password);
    }
    auto* buttons = dialog.findChild<QDialogButtonBox*>();
    QCOMPARE(buttons->button(QDialogButtonBox::Ok)->text(), QStringLiteral("Alterar"));
    QCOMPARE(buttons->button(QDialogButtonBox::Cancel)->text(), QStringLiteral("Cancelar"));
    QCOMPARE(buttons->buttons().size(), 2);
}

void DialogsTest::changePasswordValidation_data()
{
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<QString>("confirmation");
    QTest::addColumn<QString>("message");
    QTest::newRow("empty current is reported before a short new password") << ""
                                                                           << "curta"
                                                                           << "curta"
                                                                           << "Informe a senha atual.";
    QTest::newRow("11 characters") << "antiga-senha"
                                   << "onze-caract"
                                   << "onze-caract"
                                   << "Use uma nova senha com pelo menos 12 caracteres.";
    QTest::newRow("confirmation differs in the case of one letter")
        << "antiga-senha"
        << "nova-senha-boa"
        << "nova-senha-Boa"
        << "A confirmação não coincide com a nova senha.";
    QTest::newRow("empty confirmation") << "antiga-senha"
                                        << "nova-senha-boa"
                                        << ""
                                        << "A confirmação não coincide com a nova senha.";
}

void DialogsTest::changePasswordValidation()
{
    QFETCH(QString, current);
    QFETCH(QString, replacement);
    QFETCH(QString, confirmation);
    QFETCH(QString, message);

    UI::ChangePasswordDialog dialog;
    dialog.show();
    const QList<QLineEdit*> fields = passwordFields(dialog);
    fields.at(0)->setText(current);
    fields.at(1)->setText(replacement);
    fields.at(2)->setText(confirmation);

    MessageRecord warning;
    m_driver.expectMessage(QStringLiteral("OK"), &warning);
    QTest::mouseClick(buttonWithText(&dialog, QStringLiteral("Alterar")), Qt::LeftButton);
    QVERIFY(m_driver.allHandled());
    QCOMPARE(warning.title, QStringLiteral("Alterar senha"));
    QCOMPARE(warning.text, message);
    QCOMPARE(warning.icon, QMessageBox::Warning);
    // The dialog stays open with what was typed.
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QCOMPARE(fields.at(0)->text(), current);
    QCOMPARE(fields.at(1)->text(), replacement);
    QCOMPARE(fields.at(2)->text(), confirmation);
    QVERIFY(m_driver.unexpected().isEmpty());
}

void DialogsTest::changePasswordAcceptsAndHandsOverUtf8()
{
    UI::ChangePasswordDialog dialog;
    dialog.show();
    const QList<QLineEdit*> fields = passwordFields(dialog);
    const QString twelve = QStringLiteral("açaí-e-maçã!"); // 12 UTF-16 code units, 16 UTF-8 bytes
    QCOMPARE(twelve.size(), 12);
    fields.at(0)->setText(QStringLiteral("senha-antiga"));
    fields.at(1)->setText(twelve);
    fields.at(2)->setText(twelve);
    QTest::mouseClick(buttonWithText(&dialog, QStringLiteral("Alterar")), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.currentPassword(), QByteArray("senha-antiga"));
    QCOMPARE(dialog.newPassword(), twelve.toUtf8());
    QCOMPARE(dialog.newPassword().size(), 16);
    // The same password as before is not the dialog's business.
    dialog.show();
    fields.at(0)->setText(twelve);
    QTest::mouseClick(buttonWithText(&dialog, QStringLiteral("Alterar")), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    dialog.clearPasswords();
    QVERIFY(dialog.currentPassword().isEmpty());
    QVERIFY(dialog.newPassword().isEmpty());
    QVERIFY(m_driver.unexpected().isEmpty());
}

void DialogsTest::changePasswordCancelRejects()
{
    UI::ChangePasswordDialog dialog;
    dialog.show();
    passwordFields(dialog).at(0)->setText(QStringLiteral("qualquer"));
    QTest::mouseClick(buttonWithText(&dialog, QStringLiteral("Cancelar")), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY(!dialog.isVisible());
    QVERIFY(m_driver.unexpected().isEmpty());
}

void DialogsTest::helpShowsThePage()
{
    UI::HelpDialog dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Ajuda do Velmarin"));
    QVERIFY(dialog.isModal());
    QCOMPARE(dialog.size(), QSize(760, 560));
    auto* browser = dialog.findChild<QTextBrowser*>();
    QVERIFY(browser);
    QVERIFY(browser->openExternalLinks());
    QVERIFY(browser->toPlainText().startsWith(QStringLiteral("Ajuda do Velmarin")));
    // Decoded as UTF-8: accents arrive intact.
    QVERIFY(browser->toPlainText().contains(QStringLiteral("Cuidados de segurança")));

    auto* buttons = dialog.findChild<QDialogButtonBox*>();
    QCOMPARE(buttons->buttons().size(), 1);
    QCOMPARE(buttons->buttons().first()->text(), QStringLiteral("Fechar"));
    dialog.show();
    QTest::mouseClick(qobject_cast<QPushButton*>(buttons->buttons().first()), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY(!dialog.isVisible());
}

void DialogsTest::helpCoversEveryAction()
{
    UI::HelpDialog dialog;
    const QString page = dialog.findChild<QTextBrowser*>()->toPlainText();
    for (const char* action :
         {"Atualizar lista", "Escolher container...", "Criar novo cofre...", "Fazer backup...",
          "Alterar senha...", "Desbloquear", "Bloquear", "Nova pasta...", "Importar...", "Exportar...",
          "Abrir", "Mover para pasta...", "Renomear arquivo...", "Renomear pasta...", "Excluir pasta vazia",
          "Excluir...", "Compactar cofre...", "Sair"}) {
        QVERIFY2(page.contains(QString::fromUtf8(action)), action);
    }
    QVERIFY(
        page.contains(QStringLiteral("o backup abre com a senha que o container tinha no momento em que a "
                                     "cópia foi feita")));
    QVERIFY(page.contains(QStringLiteral("Compactar cofre")));
    // Compaction checks what it copies, and a damaged file stops it with nothing changed.
    QVERIFY(page.contains(QStringLiteral(
        "A autenticação de cada bloco é conferida enquanto ele é copiado, e o novo container é "
        "conferido antes de substituir o antigo. Se algum arquivo estiver danificado, o cofre "
        "não é compactado: o Velmarin mostra quais arquivos estão danificados, e o container "
        "continua como estava.")));
    // The journal is the one other file ever written on the drive, and the page says so.
    QVERIFY(
        page.contains(QStringLiteral("O Velmarin só grava o container na unidade USB, e ao lado dele, apenas "
                                     "enquanto uma alteração está sendo gravada, um pequeno diário "
                                     "(velmarin.vltx.journal).")));
    QVERIFY(page.contains(QStringLiteral("Na linha de comando, velmarin-cli recover faz o mesmo.")));
    // Where copies opened for editing go, and what becomes of them after a crash.
    QVERIFY(page.contains(
        QStringLiteral("As cópias de arquivos abertos para edição ficam numa pasta particular do "
                       "seu usuário, nunca numa pasta compartilhada com outras contas, e são "
                       "apagadas ao bloquear o cofre.")));
    QVERIFY(page.contains(
        QStringLiteral("Se o Velmarin for encerrado sem bloquear o cofre (uma queda de energia, "
                       "por exemplo), as alterações ficam guardadas nessa pasta e são oferecidas "
                       "de volta no próximo desbloqueio do mesmo cofre.")));
    QVERIFY(page.contains(QStringLiteral(
        "Bloqueio automático: enquanto o cofre está desbloqueado, o Velmarin o bloqueia sozinho "
        "quando o computador vai entrar em suspensão, quando a sessão é bloqueada (ou a proteção "
        "de tela é ativada) e quando o container deixa de estar acessível, por exemplo porque a "
        "unidade USB foi retirada. Antes de bloquear, as alterações salvas em arquivos abertos "
        "para edição são gravadas no cofre; sem a unidade, ou se alguma delas não puder ser gravada, "
        "as alterações ficam neste computador e são oferecidas de volta no próximo desbloqueio. Uma "
        "operação em andamento termina antes do bloqueio, e a barra de estado informa o motivo. Arquivos "
        "que continuarem abertos em outros programas não serão mais salvos no cofre: salve e "
        "feche seus arquivos antes de se afastar do computador.")));
}

void DialogsTest::helpFallsBackWhenThePageIsMissing()
{
    UI::HelpDialog dialog(nullptr, QStringLiteral(":/help/pt_BR/nao-existe.html"));
    QCOMPARE(dialog.findChild<QTextBrowser*>()->toPlainText(),
             QStringLiteral("Ajuda indisponível\nNão foi possível carregar o arquivo de ajuda do Velmarin."));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Ajuda do Velmarin"));
}

void DialogsTest::aboutLayoutAndTexts()
{
    Tests::FakeUrlOpener opener;
    UI::AboutDialog dialog(opener);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Sobre o Velmarin"));
    QVERIFY(dialog.isModal());
    QCOMPARE(dialog.size(), QSize(760, 520));

    QLabel* title = nullptr;
    QLabel* information = nullptr;
    QLabel* runtime = nullptr;
    QLabel* notice = nullptr;
    for (QLabel* label : dialog.findChildren<QLabel*>()) {
        if (label->text() == QStringLiteral("Velmarin")) {
            title = label;
        } else if (label->text().startsWith(QStringLiteral("Velmarin<br>"))) {
            information = label;
        } else if (label->text().startsWith(QStringLiteral("Ambiente de execução"))) {
            runtime = label;
        } else if (label->text().startsWith(QStringLiteral("Aviso:"))) {
            notice = label;
        }
    }
    QVERIFY(title && information && runtime && notice);
    QCOMPARE(title->font().pointSize(), dialog.font().pointSize() + 16);
    QCOMPARE(title->font().weight(), QFont::DemiBold);
    QCOMPARE(title->styleSheet(), QStringLiteral("color: #0B4F8A;"));

    // The application's version when it has one, else the product's.
    QCOMPARE(
        information->text(),
        QStringLiteral("Velmarin<br>Versão 1.0.5<br>Copyright © 2026 <a href=\"%1\">Equipe Velmarin</a><br>"
                       "Todos os direitos reservados.")
            .arg(QString::fromLatin1(UI::ProductPageUrl)));
    QCOMPARE(information->textFormat(), Qt::RichText);
    QVERIFY(!information->openExternalLinks());
    QCOMPARE(information->textInteractionFlags(),
             Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    QVERIFY(information->alignment() & Qt::AlignTop);
    QVERIFY(runtime->alignment() & Qt::AlignTop);
    QCOMPARE(runtime->text(), QStringLiteral("Ambiente de execução\n%1\nQt %2\n%3")
                                  .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                                       QSysInfo::currentCpuArchitecture()));
    QVERIFY(notice->wordWrap());
    QCOMPARE(notice->text(),
             QStringLiteral(
                 "Aviso: este programa de computador é protegido por leis de direitos autorais e tratados "
                 "internacionais. A reprodução ou distribuição não autorizada deste programa, ou de "
                 "qualquer parte dele, poderá resultar em severas punições civis e criminais, e os "
                 "infratores serão punidos dentro do máximo rigor permitido por lei."));
    for (const char* text : {"Componentes e bibliotecas relevantes:", "Detalhes do componente:"}) {
        bool found = false;
        for (QLabel* label : dialog.findChildren<QLabel*>()) {
            found = found || label->text() == QString::fromUtf8(text);
        }
        QVERIFY2(found, text);
    }

    QCoreApplication::setApplicationVersion(QStringLiteral("9.9.9"));
    UI::AboutDialog versioned(opener);
    bool showsVersion = false;
    for (QLabel* label : versioned.findChildren<QLabel*>()) {
        showsVersion = showsVersion || label->text().contains(QStringLiteral("<br>Versão 9.9.9<br>"));
    }
    QCoreApplication::setApplicationVersion(QString());
    QVERIFY(showsVersion);

    auto* buttons = dialog.findChild<QDialogButtonBox*>();
    QCOMPARE(buttons->buttons().size(), 1);
    QCOMPARE(buttons->buttons().first()->text(), QStringLiteral("Fechar"));
    dialog.show();
    QTest::mouseClick(qobject_cast<QPushButton*>(buttons->buttons().first()), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

void DialogsTest::aboutComponents()
{
    Tests::FakeUrlOpener opener;
    UI::AboutDialog dialog(opener);
    auto* list = dialog.findChild<QListWidget*>();
    auto* details = dialog.findChild<QTextEdit*>();
    QVERIFY(list && details);
    QCOMPARE(list->minimumHeight(), 82);
    QCOMPARE(list->spacing(), 0);
    QVERIFY(!list->uniformItemSizes());
    QVERIFY(qobject_cast<UI::CompactListItemDelegate*>(list->itemDelegate()));
    QCOMPARE(list->styleSheet(), QStringLiteral("QListWidget::item { padding: 0px; margin: 0px; }"));
    QVERIFY(details->isReadOnly());
    QCOMPARE(details->minimumHeight(), 104);
    QCOMPARE(details->document()->documentMargin(), 4.0);
    QCOMPARE(details->styleSheet(), QStringLiteral("QTextEdit { padding: 0px; }"));

    QCOMPARE(list->count(), 4);
    QCOMPARE(list->item(0)->text(),
             QStringLiteral("Qt 6 Core/Widgets - %1").arg(QString::fromLatin1(qVersion())));
    QCOMPARE(list->item(1)->text(),
             QStringLiteral("libsodium - %1").arg(QString::fromLatin1(sodium_version_string())));
    QVERIFY(!list->item(2)->text().isEmpty());
    QCOMPARE(list->item(3)->text(), QStringLiteral("Microsoft Windows APIs"));

    QCOMPARE(list->currentRow(), 0);
    const QString qt = details->toPlainText();
    QVERIFY(qt.startsWith(
        QStringLiteral("Qt Framework\nMódulos usados pelo Velmarin: Qt Core e Qt Widgets.\n"
                       "Qt está disponível sob opções de licenciamento comercial e open-source.")));
    QVERIFY(qt.contains(QStringLiteral("\nAvisos do Qt a preservar:\n- ")));
    QVERIFY(qt.contains(
        QStringLiteral("\n- Revise os termos oficiais de licenciamento do Qt e os avisos de terceiros "
                       "dos módulos Qt distribuídos com esta aplicação.\n")));
    QVERIFY(qt.endsWith(QStringLiteral("Prefixo de instalação do Qt detectado em tempo de execução:\n") +
                        QLibraryInfo::path(QLibraryInfo::PrefixPath)));

    list->setCurrentRow(1);
    const QStringList sodium = details->toPlainText().split(QLatin1Char('\n'));
    QCOMPARE(sodium.size(), 5);
    QCOMPARE(sodium.at(0), QStringLiteral("libsodium"));
    QCOMPARE(sodium.at(1),
             QStringLiteral("Biblioteca criptográfica usada para suporte a Argon2id e XChaCha20-Poly1305."));
    QCOMPARE(sodium.at(2), QStringLiteral("Licença: ISC License."));
    QVERIFY(sodium.at(3).contains(QStringLiteral("2013-2026")));
    QCOMPARE(sodium.at(4),
             QStringLiteral("O aviso da licença ISC deve ser preservado ao distribuir binários da "
                            "libsodium com esta aplicação."));

    list->setCurrentRow(2);
    const QStringList runtime = details->toPlainText().split(QLatin1Char('\n'));
    QCOMPARE(runtime.size(), 3);
    QCOMPARE(runtime.at(0), list->item(2)->text());

    list->setCurrentRow(3);
    QCOMPARE(
        details->toPlainText(),
        QStringLiteral("Microsoft Windows APIs\nO Velmarin usa APIs do Windows para detecção de unidades "
                       "removíveis e integração nativa com a área de trabalho no Windows. Essas APIs fazem "
                       "parte da plataforma do sistema operacional."));
}

void DialogsTest::aboutLinkOpensThroughTheDesktop()
{
    Tests::FakeUrlOpener opener;
    UI::AboutDialog dialog(opener);
    QLabel* information = nullptr;
    for (QLabel* label : dialog.findChildren<QLabel*>()) {
        if (label->text().contains(QStringLiteral("<a href="))) {
            information = label;
        }
    }
    QVERIFY(information);
    Q_EMIT information->linkActivated(QString::fromLatin1(UI::ProductPageUrl));
    QCOMPARE(opener.opened, QList<QUrl>({QUrl(QString::fromLatin1(UI::ProductPageUrl))}));
}

void DialogsTest::compactDelegateGivesDenseRows()
{
    QListWidget list;
    list.addItem(QStringLiteral("Uma linha de texto"));
    UI::CompactListItemDelegate delegate;
    QStyledItemDelegate plain;
    QStyleOptionViewItem option;
    option.initFrom(&list);
    QFont big = option.font;
    big.setPointSize(20);
    option.font = big;
    const QModelIndex index = list.model()->index(0, 0);
    const QSize dense = delegate.sizeHint(option, index);
    QCOMPARE(dense.height(), QFontMetrics(big).height() + 3);
    QCOMPARE(dense.width(), plain.sizeHint(option, index).width());
}

QTEST_MAIN(DialogsTest)
#include "tst_dialogs.moc"
