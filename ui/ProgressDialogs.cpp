#include "ui/ProgressDialogs.h"

#include "core/index/ByteCount.h"
#include "core/index/DisplayFormat.h"

#include <QCoreApplication>
#include <QProgressDialog>

namespace Velmarin::UI {

namespace {

constexpr int Maximum = 1000;

QString tr(const char* text)
{
    return QCoreApplication::translate("Velmarin::UI::MainWindow", text);
}

} // namespace

std::unique_ptr<QProgressDialog> ProgressDialogs::open(QWidget* parent, const QString& title,
                                                       const QString& label)
{
    auto dialog = std::make_unique<QProgressDialog>(parent);
    dialog->setWindowTitle(title);
    dialog->setLabelText(label);
    dialog->setCancelButton(nullptr);
    dialog->setRange(0, Maximum);
    dialog->setWindowModality(Qt::ApplicationModal);
    dialog->setMinimumDuration(0);
    dialog->setAutoClose(false);
    dialog->setAutoReset(false);
    dialog->setValue(0);
    dialog->show();
    QCoreApplication::processEvents();
    return dialog;
}

int ProgressDialogs::compactionValue(qint64 done, qint64 total)
{
    return total >= 1 ? Core::scaledProgress(done, total, Maximum) : Maximum;
}

int ProgressDialogs::importValue(qint64 done, qint64 total)
{
    return total >= 1 ? Core::scaledProgress(done, total, Maximum) : 0;
}

Core::ProgressCallback ProgressDialogs::compactionAdapter(QProgressDialog* dialog)
{
    return [dialog](qint64 done, qint64 total, const QString& label) {
        // The engine reports the container swap without words; the window says what it is.
        const QString phase = Core::isContainerSwap(label) ? tr("Substituindo container no USB") : label;
        dialog->setValue(compactionValue(done, total));
        dialog->setLabelText(
            tr("%1...\n%2 de %3").arg(phase, Core::formatDataSize(done), Core::formatDataSize(total)));
        QCoreApplication::processEvents();
    };
}

Core::ProgressCallback ProgressDialogs::importAdapter(QProgressDialog* dialog, const QString& speedNote)
{
    return [dialog, speedNote](qint64 done, qint64 total, const QString& label) {
        dialog->setValue(importValue(done, total));
        dialog->setLabelText(
            tr("Importando %1...\n%2 de %3\n\n%4")
                .arg(label, Core::formatDataSize(done), Core::formatDataSize(total), speedNote));
        QCoreApplication::processEvents();
    };
}

Core::ProgressCallback ProgressDialogs::exportAdapter(QProgressDialog* dialog)
{
    return [dialog](qint64 done, qint64 total, const QString& label) {
        dialog->setValue(compactionValue(done, total));
        dialog->setLabelText(tr("Exportando %1...\n%2 de %3")
                                 .arg(label, Core::formatDataSize(done), Core::formatDataSize(total)));
        QCoreApplication::processEvents();
    };
}

std::function<void(qint64, qint64)> ProgressDialogs::backupAdapter(QProgressDialog* dialog)
{
    return [dialog](qint64 done, qint64 total) {
        dialog->setValue(compactionValue(done, total));
        dialog->setLabelText(tr("Copiando backup criptografado...\n%1 de %2")
                                 .arg(Core::formatDataSize(done), Core::formatDataSize(total)));
        QCoreApplication::processEvents();
    };
}

} // namespace Velmarin::UI
