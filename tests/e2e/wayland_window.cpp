// A plain native window for the Wayland end-to-end tests, the window a user comes from:
//
//     wayland_window TITLE
//
// A Wayland client cannot ask which window has the focus, so this one says on its output when it
// gets and loses it ("focus in", "focus out") and what is typed into it ("typed TEXT" on Return).
//
// It is also a clipboard owner that hangs, as a stuck program would: Ctrl+C takes the clipboard
// (a compositor takes a selection only with the serial of the input that caused it), offering
// text and hungOwnerType, by which wl-paste --list-types can tell that it has it; a reader asking
// for the text gets no answer ("asked TYPE").

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int windowWidth = 400;
constexpr int windowHeight = 120;
constexpr const char *hungOwnerType = "application/x-pindle-test-hung-owner";

void say(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

class HungMimeData : public QMimeData
{
public:
    QStringList formats() const override
    {
        return {QStringLiteral("text/plain;charset=utf-8"), QStringLiteral("text/plain"),
                QString::fromLatin1(hungOwnerType)};
    }

protected:
    QVariant retrieveData(const QString &type, QMetaType) const override
    {
        say(QStringLiteral("asked ") + type);
        for (;;)
            pause();
    }
};

class LoggedWindow : public QLineEdit
{
public:
    explicit LoggedWindow(const QString &title)
    {
        setWindowTitle(title);
        resize(windowWidth, windowHeight);
        connect(this, &QLineEdit::returnPressed, this, [this] {
            say(QStringLiteral("typed ") + text());
            clear();
        });
    }

protected:
    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::WindowActivate)
            say(QStringLiteral("focus in"));
        else if (event->type() == QEvent::WindowDeactivate)
            say(QStringLiteral("focus out"));
        return QLineEdit::event(event);
    }

    void keyPressEvent(QKeyEvent *event) override
    {
        if (event->matches(QKeySequence::Copy))
            QGuiApplication::clipboard()->setMimeData(new HungMimeData);
        else
            QLineEdit::keyPressEvent(event);
    }
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: wayland_window TITLE\n");
        return 2;
    }
    LoggedWindow window(QString::fromLocal8Bit(argv[1]));
    window.show();
    return app.exec();
}
