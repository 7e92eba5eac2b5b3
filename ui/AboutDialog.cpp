#include "ui/AboutDialog.h"

#include "ui/CompactListItemDelegate.h"
#include "ui/ProductInfo.h"
#include "ui/UrlOpener.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLibraryInfo>
#include <QListWidget>
#include <QPushButton>
#include <QSysInfo>
#include <QTextEdit>
#include <QUrl>
#include <QVBoxLayout>

#include <sodium.h>

namespace Velmarin::UI {

AboutDialog::AboutDialog(UrlOpener& urlOpener, QWidget* parent)
    : QDialog(parent)
    , m_urlOpener(urlOpener)
{
    setWindowTitle(tr("Sobre o Velmarin"));
    setModal(true);
    resize(760, 520);

    auto* title = new QLabel(QStringLiteral("Velmarin"), this);
    QFont titleFont = title->font();
    titleFont.setPointSize(font().pointSize() + 16);
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    title->setStyleSheet(QStringLiteral("color: #0B4F8A;"));
    const int iconSize = QFontMetrics(titleFont).height();
    auto* icon = new QLabel(this);
    icon->setPixmap(QIcon(QStringLiteral(":/icons/Velmarin.ico")).pixmap(iconSize, iconSize));

    auto* header = new QHBoxLayout();
    header->setContentsMargins(0, 0, 0, 0);
    header->addWidget(icon);
    header->addWidget(title);
    header->addStretch();

    QString version = QCoreApplication::applicationVersion();
    if (version.isEmpty()) {
        version = QString::fromLatin1(ProductVersion);
    }
    m_information = new QLabel(this);
    m_information->setTextFormat(Qt::RichText);
    m_information->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse |
                                           Qt::LinksAccessibleByKeyboard);
    m_information->setOpenExternalLinks(false);
    m_information->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_information->setText(
        QStringLiteral("Velmarin<br>%1<br>%2<br>%3")
            .arg(tr("Versão %1").arg(version).toHtmlEscaped(),
                 tr("Copyright © 2026 <a href=\"%1\">%2</a>")
                     .arg(QString::fromLatin1(ProductPageUrl), QString::fromLatin1(RightsHolder)),
                 tr("Todos os direitos reservados.")));
    connect(m_information, &QLabel::linkActivated, this,
            [this](const QString& link) { m_urlOpener.openUrl(QUrl(link)); });

    auto* runtime = new QLabel(tr("Ambiente de execução\n%1\nQt %2\n%3")
                                   .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                                        QSysInfo::currentCpuArchitecture()),
                               this);
    runtime->setAlignment(Qt::AlignTop | Qt::AlignLeft);

    auto* grid = new QGridLayout();
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);
    grid->addLayout(header, 0, 0);
    grid->addWidget(m_information, 1, 0, Qt::AlignTop);
    grid->addWidget(runtime, 1, 1, Qt::AlignTop);

    m_components = new QListWidget(this);
    m_components->setMinimumHeight(82);
    m_components->setSpacing(0);
    m_components->setUniformItemSizes(false);
    m_components->setItemDelegate(new CompactListItemDelegate(m_components));
    m_components->setStyleSheet(QStringLiteral("QListWidget::item { padding: 0px; margin: 0px; }"));

    m_details = new QTextEdit(this);
    m_details->setReadOnly(true);
    m_details->setMinimumHeight(104);
    m_details->document()->setDocumentMargin(4);
    m_details->setStyleSheet(QStringLiteral("QTextEdit { padding: 0px; }"));

    auto* notice = new QLabel(
        tr("Aviso: este programa de computador é protegido por leis de direitos autorais e tratados "
           "internacionais. A reprodução ou distribuição não autorizada deste programa, ou de qualquer parte "
           "dele, poderá resultar em severas punições civis e criminais, e os infratores serão punidos "
           "dentro "
           "do máximo rigor permitido por lei."),
        this);
    notice->setWordWrap(true);

    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(tr("Fechar"), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addSpacing(10);
    layout->addWidget(new QLabel(tr("Componentes e bibliotecas relevantes:"), this));
    layout->addWidget(m_components);
    layout->addSpacing(8);
    layout->addWidget(new QLabel(tr("Detalhes do componente:"), this));
    layout->addWidget(m_details);
    layout->addWidget(notice);
    layout->addWidget(buttons);

    const QString qtNotice = tr(
        "Qt está disponível sob opções de licenciamento comercial e open-source. Para distribuição "
        "proprietária/comercial, use uma licença comercial válida do Qt ou cumpra as obrigações aplicáveis "
        "das licenças open-source dos módulos distribuídos, como LGPLv3 ou GPLv3.\nAvisos do Qt a "
        "preservar:\n- Qt é uma marca registrada da The Qt Company Ltd. e/ou de suas subsidiárias.\n- "
        "Copyright (C) The Qt Company Ltd. e outros colaboradores; os módulos Qt são distribuídos sob os "
        "termos das licenças indicadas em seus avisos.\n- Revise os termos oficiais de licenciamento do Qt e "
        "os avisos de terceiros dos módulos Qt distribuídos com esta aplicação.");
    addComponent(
        tr("Qt 6 Core/Widgets - %1").arg(QString::fromLatin1(qVersion())),
        tr("Qt Framework\nMódulos usados pelo Velmarin: Qt Core e Qt Widgets.\n%1\nPrefixo de instalação "
           "do Qt detectado em tempo de execução:\n%2")
            .arg(qtNotice, QLibraryInfo::path(QLibraryInfo::PrefixPath)));
    addComponent(
        tr("libsodium - %1").arg(QString::fromLatin1(sodium_version_string())),
        tr("libsodium\nBiblioteca criptográfica usada para suporte a Argon2id e XChaCha20-Poly1305.\n"
           "Licença: ISC License.\nCopyright (c) 2013-2026 Frank Denis e colaboradores.\nO aviso da "
           "licença ISC deve ser preservado ao distribuir binários da libsodium com esta aplicação."));
    addComponent(
        tr("Microsoft Visual C++ Runtime"),
        tr("Microsoft Visual C++ Runtime\nA compilação do Velmarin para Windows requer estas bibliotecas "
           "de tempo de execução.\nA redistribuição deve seguir os termos de licença do pacote de tempo "
           "de execução distribuído com a aplicação."));
    addComponent(
        tr("Microsoft Windows APIs"),
        tr("Microsoft Windows APIs\nO Velmarin usa APIs do Windows para detecção de unidades removíveis "
           "e integração nativa com a área de trabalho no Windows. Essas APIs fazem parte da plataforma "
           "do sistema operacional."));

    connect(m_components, &QListWidget::currentRowChanged, this, &AboutDialog::showComponent);
    m_components->setCurrentRow(0);
}

void AboutDialog::addComponent(const QString& label, const QString& details)
{
    m_componentTexts.append({label, details});
    m_components->addItem(label);
}

void AboutDialog::showComponent(int row)
{
    if (row >= 0 && row < m_componentTexts.size()) {
        m_details->setPlainText(m_componentTexts.at(row).second);
    }
}

} // namespace Velmarin::UI
