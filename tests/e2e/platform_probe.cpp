// A small X client for the end-to-end tests of the X11 backend. It reads one command per line
// on stdin and answers on stdout, one line each; hot-key presses print "fired NAME" whenever
// they arrive. hotkeys.sh and clipboard.sh drive it.

#include "platform/HotKeyManager.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Services.h"

#include <QCryptographicHash>
#include <QGuiApplication>
#include <QSocketNotifier>
#include <QStringList>
#include <QTextStream>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

void say(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

// The X keycodes of the letter keysym, in the current mapping.
QList<xcb_keycode_t> keycodesOf(xcb_connection_t *c, xcb_keysym_t keysym)
{
    QList<xcb_keycode_t> result;
    xcb_key_symbols_t *symbols = xcb_key_symbols_alloc(c);
    xcb_keycode_t *codes = xcb_key_symbols_get_keycode(symbols, keysym);
    for (const xcb_keycode_t *k = codes; k != nullptr && *k != XCB_NO_SYMBOL; ++k)
        result << *k;
    std::free(codes);
    xcb_key_symbols_free(symbols);
    return result;
}

// Grabs one exact modifier combination of a letter on the root, as another program might.
bool grabRaw(xcb_keysym_t keysym, std::uint16_t modifiers)
{
    xcb_connection_t *c = platform::x11::connection();
    bool isGrabbed = true;
    for (const xcb_keycode_t keycode : keycodesOf(c, keysym)) {
        xcb_generic_error_t *error = xcb_request_check(
            c, xcb_grab_key_checked(c, 0, platform::x11::rootWindow(c), modifiers, keycode,
                                    XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        isGrabbed = isGrabbed && error == nullptr;
        std::free(error);
    }
    return isGrabbed;
}

// Moves a letter to another keycode, leaving its old key without symbols.
bool remap(xcb_keysym_t keysym, xcb_keycode_t target)
{
    xcb_connection_t *c = platform::x11::connection();
    const xcb_setup_t *setup = xcb_get_setup(c);
    xcb_get_keyboard_mapping_reply_t *mapping = xcb_get_keyboard_mapping_reply(
        c,
        xcb_get_keyboard_mapping(c, setup->min_keycode,
                                 setup->max_keycode - setup->min_keycode + 1),
        nullptr);
    if (mapping == nullptr)
        return false;
    const int perKeycode = mapping->keysyms_per_keycode;
    std::free(mapping);
    const QList<xcb_keycode_t> old = keycodesOf(c, keysym);
    QList<xcb_keysym_t> none(perKeycode, XCB_NO_SYMBOL);
    for (const xcb_keycode_t keycode : old)
        xcb_change_keyboard_mapping(c, 1, keycode, perKeycode, none.constData());
    QList<xcb_keysym_t> letter(perKeycode, XCB_NO_SYMBOL);
    letter[0] = keysym;
    if (perKeycode > 1)
        letter[1] = keysym - 0x20; // the capital
    xcb_void_cookie_t cookie =
        xcb_change_keyboard_mapping_checked(c, 1, target, perKeycode, letter.constData());
    xcb_generic_error_t *error = xcb_request_check(c, cookie);
    std::free(error);
    return error == nullptr;
}

class Probe : public QObject
{
public:
    Probe() : m_stdin(STDIN_FILENO, QSocketNotifier::Read)
    {
        connect(&m_stdin, &QSocketNotifier::activated, this, &Probe::readCommand);
    }

private:
    void readCommand()
    {
        char buffer[512];
        if (std::fgets(buffer, sizeof buffer, stdin) == nullptr) {
            m_stdin.setEnabled(false);
            QCoreApplication::quit();
            return;
        }
        run(QString::fromLocal8Bit(buffer).trimmed().split(QLatin1Char(' '), Qt::SkipEmptyParts));
    }

    // Each command prints one answer line; "quit" ends the probe.
    void run(const QStringList &words)
    {
        const QString command = words.value(0), arg1 = words.value(1), arg2 = words.value(2);
        platform::Services &services = platform::services();
        xcb_connection_t *c = platform::x11::connection();
        if (command == u"register") { // register KEYS NAME, the keys as "Alt+U"
            const QString name = arg2;
            const bool ok = m_hotKeys.registerHotKey(name, name, QKeySequence::fromString(arg1),
                                                     [name] { say(u"fired "_s + name); });
            say((ok ? u"registered "_s : u"failed "_s) + name);
        } else if (command == u"unregister") {
            m_hotKeys.unregisterAll();
            say(u"unregistered"_s);
        } else if (command == u"grab") { // grab LETTER XMODIFIERS, as another client would
            say(grabRaw(arg1.at(0).toLatin1(), std::uint16_t(arg2.toUInt())) ? u"grabbed"_s
                                                                             : u"busy"_s);
        } else if (command == u"remap") { // remap LETTER KEYCODE
            say(remap(arg1.at(0).toLatin1(), xcb_keycode_t(arg2.toUInt())) ? u"remapped"_s
                                                                           : u"remap failed"_s);
        } else if (command == u"locks") {
            xcb_query_pointer_reply_t *pointer = xcb_query_pointer_reply(
                c, xcb_query_pointer(c, platform::x11::rootWindow(c)), nullptr);
            say(u"locks %1"_s.arg(pointer != nullptr ? pointer->mask : 0));
            std::free(pointer);
        } else if (command == u"clipboard") {
            // The answer comes once the owner has handed the text over: its length in
            // characters and the MD5 of its UTF-8, or none.
            services.pasteboard->requestString([](std::optional<QString> text) {
                say(text ? u"clipboard %1 %2"_s.arg(text->size())
                               .arg(QString::fromLatin1(
                                   QCryptographicHash::hash(text->toUtf8(), QCryptographicHash::Md5)
                                       .toHex()))
                         : u"clipboard none"_s);
            });
        } else if (command == u"quit") {
            QCoreApplication::quit();
        } else if (!command.isEmpty()) {
            say(u"unknown "_s + command);
        }
    }

    QSocketNotifier m_stdin;
    HotKeyManager m_hotKeys;
};

} // namespace

int main(int argc, char **argv)
{
    if (auto ready = platform::x11::displayReachable(); !ready) {
        std::fprintf(stderr, "platform_probe: %s\n", qPrintable(ready.error()));
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    QString error;
    std::optional<platform::Services> backend = platform::x11::createX11Services(&error);
    if (!backend) {
        std::fprintf(stderr, "platform_probe: %s\n", qPrintable(error));
        return 1;
    }
    platform::setServices(std::move(*backend));
    int status = 0;
    {
        Probe probe;
        say(QStringLiteral("ready"));
        status = app.exec();
    }
    platform::setServices({});
    return status;
}
