#include "ui/MoveFileDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace Velmarin::UI {

MoveFileDialog::MoveFileDialog(const QString& fileName, const QList<QPair<QString, QString>>& destinations,
                               QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(tr("Mover arquivo"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Mover %1 para:").arg(fileName), this));

    m_destinations = new QComboBox(this);
    for (const auto& [text, folder] : destinations) {
        m_destinations->addItem(text, folder);
    }
    layout->addWidget(m_destinations);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Mover"));
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancelar"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

QString MoveFileDialog::chosenFolder() const
{
    return m_destinations->currentData(Qt::UserRole).toString();
}

} // namespace Velmarin::UI
