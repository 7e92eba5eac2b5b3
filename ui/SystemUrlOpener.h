#pragma once

#include "ui/UrlOpener.h"

namespace Velmarin::UI {

class SystemUrlOpener : public UrlOpener
{
public:
    bool openUrl(const QUrl& url) override;
};

} // namespace Velmarin::UI
