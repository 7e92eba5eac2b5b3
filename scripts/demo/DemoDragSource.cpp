// Stands in for a file manager in the screenshots (scripts/screenshots.sh): a small window that
// lists the paths it was given and, when pressed, drags them as file URLs, as a file manager does.
// Usage: velmarin-demo-drag <arquivo-ou-pasta>...
#include <QApplication>
#include <QDir>
#include <QDrag>
#include <QFileInfo>
#include <QLabel>
#include <QMimeData>
#include <QMouseEvent>
#include <QUrl>

#include <cstdio>

namespace {

class DragSource : public QLabel
{
public:
    explicit DragSource(const QStringList& paths)
        : m_paths(paths)
    {
        QStringList names;
        for (const QString& path : paths) {
            names << QFileInfo(path).fileName() + (QFileInfo(path).isDir() ? QStringLiteral("/") : QString());
        }
        setText(names.join(QLatin1Char('\n')));
        setWindowTitle(QStringLiteral("Arquivos"));
        setAlignment(Qt::AlignCenter);
        setMargin(24);
        setMinimumSize(320, 160);
    }

protected:
    void mousePressEvent(QMouseEvent* event) override
    {
        if (event->button() != Qt::LeftButton) {
            return;
        }
        QList<QUrl> urls;
        for (const QString& path : m_paths) {
            urls << QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
        }
        auto* mime = new QMimeData;
        mime->setUrls(urls);
        auto* drag = new QDrag(this);
        drag->setMimeData(mime);
        drag->exec(Qt::CopyAction);
    }

private:
    QStringList m_paths;
};

} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    const QStringList paths = application.arguments().mid(1);
    if (paths.isEmpty()) {
        std::fprintf(stderr, "Uso: velmarin-demo-drag <arquivo-ou-pasta>...\n");
        return 2;
    }
    DragSource source(paths);
    source.show();
    return application.exec();
}
