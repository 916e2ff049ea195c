// A plain native window for the Wayland end-to-end tests: the window a user comes from. Its line
// edit writes each line typed into it, and the window its focus changes, to a log, since a
// Wayland client cannot ask which window has the focus:
//
//     wayland_window TITLE LOG
//
// LOG gets "shown", "focus in", "focus out" and "typed TEXT" (on Return) lines, flushed at once.

#include <QApplication>
#include <QFile>
#include <QLineEdit>
#include <QTextStream>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>

namespace {

constexpr int windowWidth = 400;
constexpr int windowHeight = 120;

class LoggedWindow : public QWidget
{
public:
    LoggedWindow(const QString &title, QFile &log) : m_log(log)
    {
        setWindowTitle(title);
        resize(windowWidth, windowHeight);
        auto *layout = new QVBoxLayout(this);
        m_edit = new QLineEdit(this);
        layout->addWidget(m_edit);
        connect(m_edit, &QLineEdit::returnPressed, this, [this] {
            write(QStringLiteral("typed ") + m_edit->text());
            m_edit->clear();
        });
    }

protected:
    bool event(QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::WindowActivate:
            write(QStringLiteral("focus in"));
            break;
        case QEvent::WindowDeactivate:
            write(QStringLiteral("focus out"));
            break;
        case QEvent::Show:
            write(QStringLiteral("shown"));
            break;
        default:
            break;
        }
        return QWidget::event(event);
    }

private:
    void write(const QString &line)
    {
        m_log.write((line + QLatin1Char('\n')).toUtf8());
        m_log.flush();
    }

    QFile &m_log;
    QLineEdit *m_edit;
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: wayland_window TITLE LOG\n");
        return 2;
    }
    QFile log(QString::fromLocal8Bit(argv[2]));
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append)) {
        std::fprintf(stderr, "wayland_window: cannot write %s\n", argv[2]);
        return 1;
    }
    LoggedWindow window(QString::fromLocal8Bit(argv[1]), log);
    window.show();
    return app.exec();
}
