#pragma once

#include <QDialog>
#include <QString>

class QTextBrowser;

namespace Velmarin::UI {

// The embedded help page. A page that cannot be read is not an error: a short notice takes its place.
class HelpDialog : public QDialog
{
    Q_OBJECT

public:
    static constexpr const char* DefaultPage = ":/help/pt_BR/index.html";

    explicit HelpDialog(QWidget* parent = nullptr,
                        const QString& pagePath = QString::fromLatin1(DefaultPage));

private:
    QTextBrowser* m_browser = nullptr;
};

} // namespace Velmarin::UI
