// A native Wayland window that takes the clipboard on Ctrl+C and then hangs when anyone asks for
// the text, as a stuck program would:
//
//     wayland_hung_owner LOG
//
// LOG gets "focus in" once the window has the keyboard, "copied" once Ctrl+C has set the
// clipboard and "asked TYPE" when a reader asks, flushed at once. The clipboard also offers
// hungOwnerType, by which a reader that never asks for data (wl-paste --list-types) can tell that
// the compositor took this window's selection.
//
// The copy answers a key press because a compositor takes a selection only with the serial of
// the input that caused it: KWin 6 cancels one set with no such serial (Qt then sends 0) while
// another client's selection stands.

#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>
#include <QRasterWindow>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr const char *hungOwnerType = "application/x-pindle-test-hung-owner";

void writeLine(FILE *log, const char *line)
{
    std::fprintf(log, "%s\n", line);
    std::fflush(log);
}

class HungMimeData : public QMimeData
{
public:
    explicit HungMimeData(FILE *log) : m_log(log) {}
    QStringList formats() const override
    {
        return {QStringLiteral("text/plain;charset=utf-8"), QStringLiteral("text/plain"),
                QString::fromLatin1(hungOwnerType)};
    }

protected:
    QVariant retrieveData(const QString &type, QMetaType) const override
    {
        writeLine(m_log, qPrintable(QStringLiteral("asked ") + type));
        for (;;)
            pause();
    }

private:
    FILE *m_log;
};

class Window : public QRasterWindow
{
public:
    explicit Window(FILE *log) : m_log(log) {}

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter(this).fillRect(QRect(QPoint(), size()), Qt::darkCyan);
    }
    void focusInEvent(QFocusEvent *) override { writeLine(m_log, "focus in"); }
    void keyPressEvent(QKeyEvent *event) override
    {
        if (!event->matches(QKeySequence::Copy))
            return;
        QGuiApplication::clipboard()->setMimeData(new HungMimeData(m_log));
        writeLine(m_log, "copied");
    }

private:
    FILE *m_log;
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
    Window window(log);
    window.resize(300, 100);
    window.show();
    return app.exec();
}
