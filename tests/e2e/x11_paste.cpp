// Reads the X11 clipboard once through Pindle's own reader and writes the text to its standard
// output as UTF-8; exits 1 when there is none. Like xclip -o, for the end-to-end tests.

#include "platform/x11/X11Services.h"

#include <QGuiApplication>

#include <cstdio>

using namespace pindle;

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    QString error;
    std::optional<platform::Services> backend = platform::x11::createX11Services(&error);
    if (!backend) {
        std::fprintf(stderr, "x11_paste: %s\n", qPrintable(error));
        return 2;
    }
    platform::setServices(std::move(*backend));
    int status = 1;
    platform::services().pasteboard->requestString([&status](std::optional<QString> text) {
        if (text) {
            std::fputs(text->toUtf8().constData(), stdout);
            status = 0;
        }
        // Queued: the answer may come before the event loop runs.
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    app.exec();
    platform::setServices({});
    return status;
}
