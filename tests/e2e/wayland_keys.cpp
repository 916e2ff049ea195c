// Real key presses and pointer moves on a Wayland session, which the compositor treats as a
// keyboard's and a mouse's, so global shortcuts fire and the focused window gets the keys:
//   - on KWin through its fake-input protocol, which KWin honours only for trusted clients, or for
//     all when it runs with KWIN_WAYLAND_NO_PERMISSION_CHECKS=1;
//   - on mutter (--mutter) through its remote-desktop D-Bus service (keys only).
//
//     wayland_keys [--mutter] [ACTION...]
//
// Each ACTION is one of
//     key CHORD       a chord such as alt+u, ctrl+c, ctrl+Delete, Return, Escape
//     timed CHORD     the same, printing when its last key went down (ms since the epoch)
//     type TEXT       letters, digits, space and . / : - _ (capitals with Shift)
//     pointer X Y     moves the pointer to (X, Y) in the compositor's global coordinates
// and they run in order. Without actions, it reads one action a line from its standard input and
// answers each: mutter gives the seat a keyboard only while a remote-desktop session runs, and a
// window loses its focus each time that keyboard comes or goes, so a test keeps one session open.
// Exits 1 when the compositor offers no way to send input, 2 on a bad argument.

#include "fake-input-client-protocol.h"

#include <linux/input-event-codes.h>
#include <wayland-client.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

// Time between two key events: KWin handles them in order, but a client reading a chord needs
// its modifier press to arrive before the letter's.
constexpr auto keyEventGap = std::chrono::milliseconds(8);
constexpr std::uint32_t fakeInputVersion = 4;

struct Globals
{
    org_kde_kwin_fake_input *fakeInput = nullptr;
};

void onGlobal(void *data, wl_registry *registry, std::uint32_t name, const char *interface,
              std::uint32_t version)
{
    auto *globals = static_cast<Globals *>(data);
    if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 &&
        version >= fakeInputVersion) {
        globals->fakeInput = static_cast<org_kde_kwin_fake_input *>(
            wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, fakeInputVersion));
    }
}

void onGlobalRemove(void *, wl_registry *, std::uint32_t) {}

const wl_registry_listener registryListener = {onGlobal, onGlobalRemove};

struct NamedKey
{
    std::string_view name;
    std::uint32_t code;
};

constexpr NamedKey namedKeys[] = {
    {"alt", KEY_LEFTALT},
    {"ctrl", KEY_LEFTCTRL},
    {"shift", KEY_LEFTSHIFT},
    {"super", KEY_LEFTMETA},
    {"Return", KEY_ENTER},
    {"Escape", KEY_ESC},
    {"Delete", KEY_DELETE},
    {"BackSpace", KEY_BACKSPACE},
    {"Tab", KEY_TAB},
    {"Up", KEY_UP},
    {"Down", KEY_DOWN},
    {"space", KEY_SPACE},
    {"Caps_Lock", KEY_CAPSLOCK},
};

constexpr std::uint32_t letterKeys[26] = {
    KEY_A, KEY_B, KEY_C, KEY_D, KEY_E, KEY_F, KEY_G, KEY_H, KEY_I, KEY_J, KEY_K, KEY_L, KEY_M,
    KEY_N, KEY_O, KEY_P, KEY_Q, KEY_R, KEY_S, KEY_T, KEY_U, KEY_V, KEY_W, KEY_X, KEY_Y, KEY_Z,
};

constexpr std::uint32_t digitKeys[10] = {KEY_0, KEY_1, KEY_2, KEY_3, KEY_4,
                                         KEY_5, KEY_6, KEY_7, KEY_8, KEY_9};

// A character of TEXT on a US layout: its key and whether Shift is held.
struct Stroke
{
    std::uint32_t code;
    bool isShifted;
};

std::optional<Stroke> strokeFor(char c)
{
    if (c >= 'a' && c <= 'z')
        return Stroke{letterKeys[c - 'a'], false};
    if (c >= 'A' && c <= 'Z')
        return Stroke{letterKeys[c - 'A'], true};
    if (c >= '0' && c <= '9')
        return Stroke{digitKeys[c - '0'], false};
    switch (c) {
    case ' ':
        return Stroke{KEY_SPACE, false};
    case '.':
        return Stroke{KEY_DOT, false};
    case '/':
        return Stroke{KEY_SLASH, false};
    case '-':
        return Stroke{KEY_MINUS, false};
    case ':':
        return Stroke{KEY_SEMICOLON, true};
    case '_':
        return Stroke{KEY_MINUS, true};
    default:
        return std::nullopt;
    }
}

std::optional<std::uint32_t> keyNamed(std::string_view name)
{
    for (const NamedKey &key : namedKeys) {
        if (key.name == name)
            return key.code;
    }
    if (name.size() == 1) {
        if (const auto stroke = strokeFor(name[0]); stroke && !stroke->isShifted)
            return stroke->code;
    }
    return std::nullopt;
}

// Where the key events go: press or release an evdev key code, move the pointer.
class InputSink
{
public:
    virtual ~InputSink() = default;
    virtual void key(std::uint32_t code, bool isPressed) = 0;
    virtual bool pointerTo(double x, double y) = 0;
    // Returns once the compositor has handled every event sent so far.
    virtual void flush() {}

    // With isTimed, prints the wall-clock time in milliseconds at which the chord's last key
    // went down: the moment a shortcut fires, for timing what it does.
    void tap(const std::vector<std::uint32_t> &chord, bool isTimed = false)
    {
        for (std::size_t i = 0; i < chord.size(); ++i) {
            if (isTimed && i + 1 == chord.size()) {
                const auto now = std::chrono::system_clock::now().time_since_epoch();
                std::printf("%.3f\n", std::chrono::duration<double, std::milli>(now).count());
                std::fflush(stdout);
            }
            sendKey(chord[i], true);
        }
        for (auto it = chord.rbegin(); it != chord.rend(); ++it)
            sendKey(*it, false);
    }

private:
    void sendKey(std::uint32_t code, bool isPressed)
    {
        key(code, isPressed);
        std::this_thread::sleep_for(keyEventGap);
    }
};

class FakeInputSink final : public InputSink
{
public:
    // Null when the compositor does not offer the protocol.
    static std::unique_ptr<FakeInputSink> connect()
    {
        wl_display *display = wl_display_connect(nullptr);
        if (display == nullptr)
            return nullptr;
        Globals globals;
        wl_registry *registry = wl_display_get_registry(display);
        wl_registry_add_listener(registry, &registryListener, &globals);
        wl_display_roundtrip(display);
        wl_registry_destroy(registry);
        if (globals.fakeInput == nullptr) {
            wl_display_disconnect(display);
            return nullptr;
        }
        org_kde_kwin_fake_input_authenticate(globals.fakeInput, "wayland_keys", "end-to-end tests");
        return std::unique_ptr<FakeInputSink>(new FakeInputSink(display, globals.fakeInput));
    }

    ~FakeInputSink() override
    {
        org_kde_kwin_fake_input_destroy(m_input);
        wl_display_disconnect(m_display);
    }

    void key(std::uint32_t code, bool isPressed) override
    {
        org_kde_kwin_fake_input_keyboard_key(m_input, code,
                                             isPressed ? WL_KEYBOARD_KEY_STATE_PRESSED
                                                       : WL_KEYBOARD_KEY_STATE_RELEASED);
        wl_display_roundtrip(m_display);
    }

    bool pointerTo(double x, double y) override
    {
        org_kde_kwin_fake_input_pointer_motion_absolute(m_input, wl_fixed_from_double(x),
                                                        wl_fixed_from_double(y));
        wl_display_roundtrip(m_display);
        return true;
    }

private:
    FakeInputSink(wl_display *display, org_kde_kwin_fake_input *input)
        : m_display(display), m_input(input)
    {}

    wl_display *m_display;
    org_kde_kwin_fake_input *m_input;
};

// mutter ties a remote-desktop session to the bus connection that made it, so one process
// creates, starts and stops it around all the actions.
class MutterSink final : public InputSink
{
public:
    static std::unique_ptr<MutterSink> connect()
    {
        QDBusInterface desktop(QStringLiteral("org.gnome.Mutter.RemoteDesktop"),
                               QStringLiteral("/org/gnome/Mutter/RemoteDesktop"),
                               QStringLiteral("org.gnome.Mutter.RemoteDesktop"));
        const QDBusReply<QDBusObjectPath> path = desktop.call(QStringLiteral("CreateSession"));
        if (!path.isValid()) {
            std::fprintf(stderr, "wayland_keys: %s\n", qPrintable(path.error().message()));
            return nullptr;
        }
        auto sink = std::unique_ptr<MutterSink>(new MutterSink(path.value().path()));
        const QDBusReply<void> started = sink->m_session.call(QStringLiteral("Start"));
        if (!started.isValid()) {
            std::fprintf(stderr, "wayland_keys: %s\n", qPrintable(started.error().message()));
            return nullptr;
        }
        // mutter drops the first key of a new session, seemingly while it sets up the
        // session's keyboard: a lone Shift tap takes that loss.
        sink->tap({KEY_LEFTSHIFT});
        sink->flush();
        return sink;
    }

    ~MutterSink() override { m_session.call(QStringLiteral("Stop")); }

    // Not waiting for each answer: mutter answers a key only after a frame or so, which made
    // typing a line take seconds. It handles the calls in order, so flush() waits on one more.
    void key(std::uint32_t code, bool isPressed) override
    {
        m_session.connection().send(
            QDBusMessage::createMethodCall(m_session.service(), m_session.path(),
                                           m_session.interface(),
                                           QStringLiteral("NotifyKeyboardKeycode"))
            << code << isPressed);
    }

    void flush() override
    {
        m_session.call(QStringLiteral("NotifyKeyboardKeycode"), std::uint32_t{KEY_LEFTSHIFT},
                       false);
    }

    bool pointerTo(double, double) override { return false; }

private:
    explicit MutterSink(const QString &path)
        : m_session(QStringLiteral("org.gnome.Mutter.RemoteDesktop"), path,
                    QStringLiteral("org.gnome.Mutter.RemoteDesktop.Session"))
    {}

    QDBusInterface m_session;
};

std::optional<std::vector<std::uint32_t>> parseChord(std::string_view chord)
{
    std::vector<std::uint32_t> codes;
    while (!chord.empty()) {
        const auto plus = chord.find('+', 1);
        const auto part = chord.substr(0, plus);
        const auto code = keyNamed(part);
        if (!code)
            return std::nullopt;
        codes.push_back(*code);
        chord = plus == std::string_view::npos ? std::string_view() : chord.substr(plus + 1);
    }
    return codes;
}

// Runs one action; false, with a message, when it cannot.
bool run(InputSink &sink, std::string_view action, const std::vector<std::string> &arguments)
{
    const auto fail = [](const char *message, std::string_view argument) {
        std::fprintf(stderr, "wayland_keys: %s: %.*s\n", message, static_cast<int>(argument.size()),
                     argument.data());
        return false;
    };
    if ((action == "key" || action == "timed") && arguments.size() == 1) {
        const auto chord = parseChord(arguments[0]);
        if (!chord)
            return fail("unknown key in chord", arguments[0]);
        sink.tap(*chord, action == "timed");
    } else if (action == "type" && arguments.size() == 1) {
        std::vector<Stroke> strokes;
        for (const char c : arguments[0]) {
            const auto stroke = strokeFor(c);
            if (!stroke)
                return fail("cannot type", std::string_view(&c, 1));
            strokes.push_back(*stroke);
        }
        for (const Stroke &stroke : strokes) {
            if (stroke.isShifted)
                sink.tap({KEY_LEFTSHIFT, stroke.code});
            else
                sink.tap({stroke.code});
        }
    } else if (action == "pointer" && arguments.size() == 2) {
        if (!sink.pointerTo(std::atof(arguments[0].c_str()), std::atof(arguments[1].c_str())))
            return fail("this compositor cannot move the pointer", action);
    } else {
        return fail("unknown action or wrong arguments", action);
    }
    sink.flush();
    return true;
}

// The actions of the command line, in order: ACTION ARGUMENT [ARGUMENT].
int runArguments(InputSink &sink, int first, int argc, char **argv)
{
    for (int i = first; i < argc; ++i) {
        const std::string_view action = argv[i];
        const int count = action == "pointer" ? 2 : 1;
        if (i + count >= argc)
            return run(sink, action, {}) ? 0 : 2;
        std::vector<std::string> arguments(argv + i + 1, argv + i + 1 + count);
        if (!run(sink, action, arguments))
            return 2;
        i += count;
    }
    return 0;
}

// One action a line ("type" takes the rest of its line as it stands); each answered with "ok"
// or "failed" once done, so that a caller can wait for its keys to have gone out.
int runLines(InputSink &sink)
{
    std::string line;
    while (std::getline(std::cin, line)) {
        const auto space = line.find(' ');
        const std::string action = line.substr(0, space);
        const std::string rest =
            space == std::string::npos ? std::string() : line.substr(space + 1);
        std::vector<std::string> arguments;
        if (action == "type") {
            arguments.push_back(rest);
        } else {
            std::istringstream words(rest);
            for (std::string word; words >> word;)
                arguments.push_back(word);
        }
        std::cout << (run(sink, action, arguments) ? "ok" : "failed") << std::endl;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int first = 1;
    std::unique_ptr<InputSink> sink;
    if (argc > 1 && std::string_view(argv[1]) == "--mutter") {
        first = 2;
        sink = MutterSink::connect();
    } else {
        sink = FakeInputSink::connect();
    }
    if (!sink) {
        std::fprintf(stderr, "wayland_keys: the compositor offers no way to send input\n");
        return 1;
    }
    return first < argc ? runArguments(*sink, first, argc, argv) : runLines(*sink);
}
