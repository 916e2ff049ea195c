// A plain native window for the Wayland end-to-end tests: the window a user comes from. Its line
// edit writes each line typed into it, and the window its focus changes, to a log, since a
// Wayland client cannot ask which window has the focus:
//
//     wayland_window TITLE LOG [--hung-copy]
//
// LOG gets "shown", "focus in", "focus out" and "typed TEXT" (on Return) lines, flushed at once.
//
// With --hung-copy, Ctrl+C takes the clipboard and the window then hangs when anyone asks for
// the text, as a stuck program would; LOG gets "copied", and "asked TYPE" when a reader asks.
// The clipboard also offers hungOwnerType, by which a reader that never asks for data
// (wl-paste --list-types) can tell that the compositor took this window's selection. The copy
// answers a key press because a compositor takes a selection only with the serial of the input
// that caused it: KWin 6 cancels one set with no such serial (Qt then sends 0) while another
// client's selection stands.

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int windowWidth = 400;
constexpr int windowHeight = 120;
constexpr const char *hungOwnerType = "application/x-pindle-test-hung-owner";

void writeLine(QFile &log, const QString &line)
{
    log.write((line + QLatin1Char('\n')).toUtf8());
    log.flush();
}

class HungMimeData : public QMimeData
{
public:
    explicit HungMimeData(QFile &log) : m_log(log) {}
    QStringList formats() const override
    {
        return {QStringLiteral("text/plain;charset=utf-8"), QStringLiteral("text/plain"),
                QString::fromLatin1(hungOwnerType)};
    }

protected:
    QVariant retrieveData(const QString &type, QMetaType) const override
    {
        writeLine(m_log, QStringLiteral("asked ") + type);
        for (;;)
            pause();
    }

private:
    QFile &m_log;
};

class LoggedWindow : public QWidget
{
public:
    LoggedWindow(const QString &title, QFile &log, bool hangsOnCopy) : m_log(log)
    {
        setWindowTitle(title);
        resize(windowWidth, windowHeight);
        auto *layout = new QVBoxLayout(this);
        m_edit = new QLineEdit(this);
        layout->addWidget(m_edit);
        connect(m_edit, &QLineEdit::returnPressed, this, [this] {
            writeLine(m_log, QStringLiteral("typed ") + m_edit->text());
            m_edit->clear();
        });
        if (hangsOnCopy)
            m_edit->installEventFilter(this);
    }

protected:
    bool event(QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::WindowActivate:
            writeLine(m_log, QStringLiteral("focus in"));
            break;
        case QEvent::WindowDeactivate:
            writeLine(m_log, QStringLiteral("focus out"));
            break;
        case QEvent::Show:
            writeLine(m_log, QStringLiteral("shown"));
            break;
        default:
            break;
        }
        return QWidget::event(event);
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() != QEvent::KeyPress ||
            !static_cast<QKeyEvent *>(event)->matches(QKeySequence::Copy))
            return false;
        QGuiApplication::clipboard()->setMimeData(new HungMimeData(m_log));
        writeLine(m_log, QStringLiteral("copied"));
        return true;
    }

private:
    QFile &m_log;
    QLineEdit *m_edit;
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const bool hangsOnCopy = argc == 4 && qstrcmp(argv[3], "--hung-copy") == 0;
    if (argc != 3 && !hangsOnCopy) {
        std::fprintf(stderr, "usage: wayland_window TITLE LOG [--hung-copy]\n");
        return 2;
    }
    QFile log(QString::fromLocal8Bit(argv[2]));
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append)) {
        std::fprintf(stderr, "wayland_window: cannot write %s\n", argv[2]);
        return 1;
    }
    LoggedWindow window(QString::fromLocal8Bit(argv[1]), log, hangsOnCopy);
    window.show();
    return app.exec();
}
