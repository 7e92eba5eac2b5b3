#pragma once

#include <QCoreApplication>
#include <QMessageBox>
#include <QString>
#include <QStringList>

class QWidget;

namespace Velmarin::UI {

// The window's message boxes. Every question defaults to its safe answer, and closing the box
// counts as that answer, so a stray Enter or Esc never deletes or overwrites anything. Texts are
// shown as plain text: they carry names from the vault, and a name such as "<b>" is not markup.
class MessageBoxes
{
    Q_DECLARE_TR_FUNCTIONS(MessageBoxes)

public:
    static void information(QWidget* parent, const QString& title, const QString& text);
    static void warning(QWidget* parent, const QString& title, const QString& text);
    // The same with why, in a paragraph of its own below the text (see FailureText).
    static void warning(QWidget* parent, const QString& title, const QString& text, const QString& why);
    // "Sim" / "Não"; true only for "Sim".
    static bool askYesNo(QWidget* parent, const QString& title, const QString& text);
    // "Continuar" / "Cancelar"; true only for "Continuar".
    static bool askContinue(QWidget* parent, const QString& title, const QString& text);
    // "Sim" / "Não" when "Sim" is what keeps the user's work: "Sim" is the default, and Esc or
    // closing the box answers neither, so nothing is decided by accident.
    enum class Answer
    {
        Yes,
        No,
        Neither
    };
    static Answer askKeepingWork(QWidget* parent, const QString& title, const QString& text);
    // "Sim", "Sim para todos", "Não", "Não para todos", for a question met many times in one
    // operation; "Não" is the default and the answer to Esc.
    enum class ForAll
    {
        Yes,
        YesToAll,
        No,
        NoToAll
    };
    static ForAll askYesNoForAll(QWidget* parent, const QString& title, const QString& text);

    // Paths for a box's list, one a line in order, so a name and its twin stand together; past a
    // screenful the rest are counted.
    static QString nameList(QStringList paths);

    // A single-line text prompt with "OK" and "Cancelar"; accepted is false when cancelled.
    static QString askText(QWidget* parent, const QString& title, const QString& label, const QString& text,
                           bool* accepted);

private:
    static void tell(QMessageBox::Icon icon, QWidget* parent, const QString& title, const QString& text,
                     const QString& why = QString());
    static bool ask(QWidget* parent, const QString& title, const QString& text, const QString& accept,
                    const QString& reject);
};

} // namespace Velmarin::UI
