#include "ui/ReplaceQuestion.h"

#include "ui/MessageBoxes.h"

namespace Velmarin::UI {

ReplaceQuestion::ReplaceQuestion(QWidget* parent, bool offerForAll)
    : m_parent(parent)
    , m_offerForAll(offerForAll)
{}

bool ReplaceQuestion::replace(const QString& text)
{
    const QString title = MessageBoxes::tr("Substituir arquivo");
    if (!m_offerForAll) {
        return MessageBoxes::askYesNo(m_parent, title, text);
    }
    if (m_standing) {
        return *m_standing;
    }
    const MessageBoxes::ForAll answer = MessageBoxes::askYesNoForAll(m_parent, title, text);
    if (answer == MessageBoxes::ForAll::YesToAll || answer == MessageBoxes::ForAll::NoToAll) {
        m_standing = answer == MessageBoxes::ForAll::YesToAll;
    }
    return answer == MessageBoxes::ForAll::Yes || answer == MessageBoxes::ForAll::YesToAll;
}

} // namespace Velmarin::UI
