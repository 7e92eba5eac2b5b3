#pragma once

#include <QDialog>
#include <QList>
#include <QPair>
#include <QString>

class QLabel;
class QListWidget;
class QTextEdit;

namespace Velmarin::UI {

class UrlOpener;

// The product, its version, where it runs and the components it relies on with their notices.
class AboutDialog : public QDialog
{
    Q_OBJECT

public:
    explicit AboutDialog(UrlOpener& urlOpener, QWidget* parent = nullptr);

private:
    void addComponent(const QString& label, const QString& details);
    void showComponent(int row);

    UrlOpener& m_urlOpener;
    QListWidget* m_components = nullptr;
    QTextEdit* m_details = nullptr;
    QLabel* m_information = nullptr;
    // (list label, details text), in the order shown.
    QList<QPair<QString, QString>> m_componentTexts;
};

} // namespace Velmarin::UI
