#include "ui/SystemFileDialogs.h"

#include <QFileDialog>

namespace Velmarin::UI {

QString SystemFileDialogs::openFileName(QWidget* parent, const QString& caption, const QString& directory,
                                        const QString& filter)
{
    return QFileDialog::getOpenFileName(parent, caption, directory, filter);
}

QStringList SystemFileDialogs::openFileNames(QWidget* parent, const QString& caption,
                                             const QString& directory, const QString& filter)
{
    return QFileDialog::getOpenFileNames(parent, caption, directory, filter);
}

QString SystemFileDialogs::saveFileName(QWidget* parent, const QString& caption, const QString& directory,
                                        const QString& filter)
{
    return QFileDialog::getSaveFileName(parent, caption, directory, filter);
}

QString SystemFileDialogs::existingDirectory(QWidget* parent, const QString& caption,
                                             const QString& directory)
{
    return QFileDialog::getExistingDirectory(parent, caption, directory);
}

} // namespace Velmarin::UI
