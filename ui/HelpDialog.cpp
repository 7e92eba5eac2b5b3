#include "ui/HelpDialog.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace Velmarin::UI {

HelpDialog::HelpDialog(QWidget* parent, const QString& pagePath)
    : QDialog(parent)
{
    setWindowTitle(tr("Ajuda do Velmarin"));
    setModal(true);
    resize(760, 560);

    m_browser = new QTextBrowser(this);
    m_browser->setOpenExternalLinks(true);

    QFile page(pagePath);
    if (page.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m_browser->setHtml(QString::fromUtf8(page.readAll()));
    } else {
        m_browser->setHtml(tr("<h1>Ajuda indisponível</h1><p>Não foi possível carregar o arquivo de ajuda do "
                              "Velmarin.</p>"));
    }

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setText(tr("Fechar"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_browser);
    layout->addWidget(buttons);
}

} // namespace Velmarin::UI
