// A native Wayland window that takes the clipboard once it has the focus and then hangs when
// anyone asks for the text, as a stuck program would:
//
//     wayland_hung_owner LOG
//
// LOG gets "owns" once the clipboard is set and "asked TYPE" when a reader asks, flushed at once.

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QPainter>
#include <QRasterWindow>

#include <cstdio>
#include <unistd.h>

namespace {

class HungMimeData : public QMimeData
{
public:
    explicit HungMimeData(FILE *log) : m_log(log) {}
    QStringList formats() const override
    {
        return {QStringLiteral("text/plain;charset=utf-8"), QStringLiteral("text/plain")};
    }

protected:
    QVariant retrieveData(const QString &type, QMetaType) const override
    {
        std::fprintf(m_log, "asked %s\n", qPrintable(type));
        std::fflush(m_log);
        for (;;)
            pause();
    }

private:
    FILE *m_log;
};

class Window : public QRasterWindow
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter(this).fillRect(QRect(QPoint(), size()), Qt::darkCyan);
    }
};

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: wayland_hung_owner LOG\n");
        return 2;
    }
    FILE *log = std::fopen(argv[1], "a");
    if (log == nullptr) {
        std::fprintf(stderr, "wayland_hung_owner: cannot write %s\n", argv[1]);
        return 1;
    }
    Window window;
    window.resize(300, 100);
    // Only a focused client may set the selection.
    QObject::connect(&app, &QGuiApplication::focusWindowChanged, [log](QWindow *focused) {
        if (focused == nullptr || QGuiApplication::clipboard()->ownsClipboard())
            return;
        QGuiApplication::clipboard()->setMimeData(new HungMimeData(log));
        std::fprintf(log, "owns\n");
        std::fflush(log);
    });
    window.show();
    return app.exec();
}
