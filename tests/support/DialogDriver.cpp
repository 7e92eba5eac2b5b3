#include "DialogDriver.h"

#include <QAbstractButton>
#include <QApplication>
#include <QInputDialog>
#include <QLineEdit>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>

namespace Velmarin::Tests {

DialogDriver::DialogDriver()
{
    m_timer.setInterval(10);
    connect(&m_timer, &QTimer::timeout, this, &DialogDriver::poll);
    m_timer.start();
    qApp->installEventFilter(this);
}

DialogDriver::~DialogDriver()
{
    qApp->removeEventFilter(this);
}

bool DialogDriver::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Show) {
        if (auto* dialog = qobject_cast<QProgressDialog*>(watched)) {
            m_progressTitles.append(dialog->windowTitle());
            auto* bar = dialog->findChild<QProgressBar*>();
            if (bar && !m_watchedBars.contains(bar)) {
                m_watchedBars.append(bar);
                connect(bar, &QProgressBar::valueChanged, this,
                        [this](int value) { m_progressValues.append(value); });
            }
        }
    }
    return QObject::eventFilter(watched, event);
}

void DialogDriver::expect(Handler handler)
{
    m_handlers.push_back(std::move(handler));
}

MessageRecord DialogDriver::describe(QMessageBox* box)
{
    MessageRecord record;
    record.title = box->windowTitle();
    record.text = box->text();
    record.informativeText = box->informativeText();
    for (QAbstractButton* button : box->buttons()) {
        record.buttons.append(button->text());
    }
    record.defaultButton = box->defaultButton() ? box->defaultButton()->text() : QString();
    record.icon = box->icon();
    record.textFormat = box->textFormat();
    record.hasParent = box->parentWidget() != nullptr;
    return record;
}

void DialogDriver::expectMessage(const QString& buttonText, MessageRecord* record)
{
    expect([buttonText, record](QWidget* widget) {
        auto* box = qobject_cast<QMessageBox*>(widget);
        if (!box) {
            widget->close();
            return;
        }
        if (record) {
            *record = describe(box);
        }
        for (QAbstractButton* button : box->buttons()) {
            if (button->text() == buttonText || (buttonText.isEmpty() && box->buttons().size() == 1)) {
                button->click();
                return;
            }
        }
        box->reject();
    });
}

void DialogDriver::expectInput(const QString& text, InputRecord* record, bool accept)
{
    expect([text, record, accept](QWidget* widget) {
        auto* dialog = qobject_cast<QInputDialog*>(widget);
        if (!dialog) {
            widget->close();
            return;
        }
        if (record) {
            record->title = dialog->windowTitle();
            record->label = dialog->labelText();
            record->initialText = dialog->textValue();
            record->masked = dialog->textEchoMode() == QLineEdit::Password;
            record->hasParent = dialog->parentWidget() != nullptr;
        }
        dialog->setTextValue(text);
        if (accept) {
            dialog->accept();
        } else {
            dialog->reject();
        }
    });
}

void DialogDriver::poll()
{
    QWidget* modal = QApplication::activeModalWidget();
    if (!modal || qobject_cast<QProgressDialog*>(modal) || !modal->isVisible()) {
        return;
    }
    for (const QPointer<QWidget>& handled : m_handled) {
        if (handled == modal) {
            return;
        }
    }
    m_handled.append(modal);
    if (m_handlers.empty()) {
        auto* box = qobject_cast<QMessageBox*>(modal);
        m_unexpected.append(modal->windowTitle() + QStringLiteral(": ") + (box ? box->text() : QString()));
        if (auto* dialog = qobject_cast<QDialog*>(modal)) {
            dialog->reject();
        } else {
            modal->close();
        }
        return;
    }
    Handler handler = std::move(m_handlers.front());
    m_handlers.pop_front();
    handler(modal);
}

} // namespace Velmarin::Tests
