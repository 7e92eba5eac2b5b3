#pragma once

#include <QString>
#include <QStringList>

class QWidget;

namespace Velmarin::UI {

// The native file pickers the window asks. An empty answer means the user cancelled.
class FileDialogs
{
public:
    virtual ~FileDialogs() = default;
    virtual QString openFileName(QWidget* parent, const QString& caption, const QString& directory,
                                 const QString& filter) = 0;
    virtual QStringList openFileNames(QWidget* parent, const QString& caption, const QString& directory,
                                      const QString& filter) = 0;
    virtual QString saveFileName(QWidget* parent, const QString& caption, const QString& directory,
                                 const QString& filter) = 0;
    virtual QString existingDirectory(QWidget* parent, const QString& caption, const QString& directory) = 0;
};

} // namespace Velmarin::UI
