#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <deque>
#include <functional>

namespace Velmarin::Tests {

// What a message box showed, read before it was answered.
struct MessageRecord
{
    QString title;
    QString text;
    // The box's second paragraph: why, when the engine said.
    QString informativeText;
    QStringList buttons;
    QString defaultButton;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    Qt::TextFormat textFormat = Qt::AutoText;
    bool hasParent = false;
};

// What an input dialog (password or name prompt) showed.
struct InputRecord
{
    QString title;
    QString label;
    QString initialText;
    bool masked = false;
    bool hasParent = false;
};

// Answers the modal dialogs a window opens, in order, the way a user would: a timer looks at the
// active modal widget and hands each new one to the next expected handler. Progress dialogs are
// left alone. A dialog nobody expected is recorded and rejected, so a test fails instead of hanging.
class DialogDriver : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<void(QWidget*)>;

    DialogDriver();
    ~DialogDriver() override;

    void expect(Handler handler);
    // Clicks the button whose text is buttonText; record (if given) receives what the box showed.
    void expectMessage(const QString& buttonText, MessageRecord* record = nullptr);
    // Types text into a QInputDialog and accepts it; an empty text with accept=false cancels.
    void expectInput(const QString& text, InputRecord* record = nullptr, bool accept = true);

    bool allHandled() const { return m_handlers.empty(); }
    int pending() const { return static_cast<int>(m_handlers.size()); }
    // "title: text" of every dialog that appeared without a handler.
    QStringList unexpected() const { return m_unexpected; }

    static MessageRecord describe(QMessageBox* box);

    // Every value the progress bars of shown progress dialogs took, in order, including the -1 of the
    // reset that closing a progress dialog makes. Recorded as it happens, since that reset loses it.
    QList<int> progressValues() const { return m_progressValues; }
    QStringList progressTitles() const { return m_progressTitles; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void poll();

    QTimer m_timer;
    std::deque<Handler> m_handlers;
    QList<QPointer<QWidget>> m_handled;
    QStringList m_unexpected;
    QList<int> m_progressValues;
    // Guarded, so a new bar at the address of a destroyed one is still watched.
    QList<QPointer<QObject>> m_watchedBars;
    QStringList m_progressTitles;
};

} // namespace Velmarin::Tests
