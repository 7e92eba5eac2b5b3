#pragma once

class QUrl;

namespace Velmarin::UI {

// Hands a file or web address to the system's default application.
class UrlOpener
{
public:
    virtual ~UrlOpener() = default;
    virtual bool openUrl(const QUrl& url) = 0;
};

} // namespace Velmarin::UI
