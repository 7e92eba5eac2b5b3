#pragma once

#include "ui/FileDialogs.h"

namespace Velmarin::UI {

// The system's own pickers, through QFileDialog.
class SystemFileDialogs : public FileDialogs
{
public:
    QString openFileName(QWidget* parent, const QString& caption, const QString& directory,
                         const QString& filter) override;
    QStringList openFileNames(QWidget* parent, const QString& caption, const QString& directory,
                              const QString& filter) override;
    QString saveFileName(QWidget* parent, const QString& caption, const QString& directory,
                         const QString& filter) override;
    QString existingDirectory(QWidget* parent, const QString& caption, const QString& directory) override;
};

} // namespace Velmarin::UI
