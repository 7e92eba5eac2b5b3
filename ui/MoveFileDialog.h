#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>

class QComboBox;

namespace Velmarin::UI {

// Asks where a file goes: "Mover <name> para:" over a list of folders ("" is the root).
class MoveFileDialog : public QDialog
{
    Q_OBJECT

public:
    // destinations: (display text, folder path) pairs, in the order shown.
    MoveFileDialog(const QString& fileName, const QList<QPair<QString, QString>>& destinations,
                   QWidget* parent = nullptr);

    QString chosenFolder() const;

private:
    QComboBox* m_destinations = nullptr;
};

} // namespace Velmarin::UI
