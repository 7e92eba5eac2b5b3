#pragma once

#include <QString>

#include <optional>

class QWidget;

namespace Velmarin::UI {

// The "Substituir arquivo" question of an operation that may meet many existing files: with more
// than one file to go, it offers "Sim para todos" and "Não para todos", and an answer for all stands
// for the rest of the operation without asking again.
class ReplaceQuestion
{
public:
    ReplaceQuestion(QWidget* parent, bool offerForAll);

    // Whether the file that text names is to be replaced.
    bool replace(const QString& text);

private:
    QWidget* m_parent;
    bool m_offerForAll;
    // Set once "Sim para todos" or "Não para todos" was answered.
    std::optional<bool> m_standing;
};

} // namespace Velmarin::UI
