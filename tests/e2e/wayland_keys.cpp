// Real key presses and pointer moves on a Wayland session, which the compositor takes as a
// keyboard's and a mouse's, so global shortcuts fire and the focused window gets the keys: on KWin
// through its fake-input protocol (open to every client when KWin runs with
// KWIN_WAYLAND_NO_PERMISSION_CHECKS=1), on mutter (--mutter) through its remote-desktop service.
//
// It reads one action a line and answers each with "ok" once the compositor has it, or "failed":
//     key CHORD       a chord such as alt+u, ctrl+c, Return, Escape
//     timed CHORD     the same, answering "ok MS": when its last key went down, in ms since 1970
//     type TEXT       letters, digits and "-" (capitals with Shift)
//     pointer X,Y     moves the pointer in the compositor's global coordinates (KWin only)
// One process serves a whole test: mutter gives the seat a keyboard only while a remote-desktop
// session runs, and a window loses its focus each time that keyboard comes or goes.

#include "fake-input-client-protocol.h"

#include <linux/input-event-codes.h>
#include <wayland-client.h>

#include <QCoreApplication>
#include <QDBusInterface>
#include <QDBusReply>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

// Time between two key events: a client reading a chord needs its modifier press to arrive
// before the letter's.
constexpr auto keyEventGap = std::chrono::milliseconds(8);
constexpr std::uint32_t fakeInputVersion = 4;

// A character on a US layout: its key, and whether Shift is held.
struct Stroke
{
    std::uint32_t code;
    bool isShifted;
};

std::optional<Stroke> strokeFor(char c)
{
    // The keys of each row have consecutive codes.
    constexpr std::pair<std::string_view, std::uint32_t> rows[] = {
        {"1234567890-", KEY_1}, {"qwertyuiop", KEY_Q}, {"asdfghjkl", KEY_A}, {"zxcvbnm", KEY_Z}};
    const bool isShifted = c >= 'A' && c <= 'Z';
    const char key = isShifted ? char(c - 'A' + 'a') : c;
    for (const auto &[row, first] : rows) {
        if (const auto at = row.find(key); at != std::string_view::npos)
            return Stroke{std::uint32_t(first + at), isShifted};
    }
    return std::nullopt;
}

std::optional<std::vector<std::uint32_t>> parseChord(std::string_view chord)
{
    constexpr std::pair<std::string_view, std::uint32_t> named[] = {{"alt", KEY_LEFTALT},
                                                                    {"ctrl", KEY_LEFTCTRL},
                                                                    {"shift", KEY_LEFTSHIFT},
                                                                    {"Return", KEY_ENTER},
                                                                    {"Escape", KEY_ESC}};
    std::vector<std::uint32_t> codes;
    while (!chord.empty()) {
        const auto plus = chord.find('+');
        const auto part = chord.substr(0, plus);
        chord = plus == std::string_view::npos ? std::string_view() : chord.substr(plus + 1);
        const auto stroke = part.size() == 1 ? strokeFor(part[0]) : std::nullopt;
        if (stroke && !stroke->isShifted) {
            codes.push_back(stroke->code);
            continue;
        }
        const auto found = std::find_if(std::begin(named), std::end(named),
                                        [&](const auto &key) { return key.first == part; });
        if (found == std::end(named))
            return std::nullopt;
        codes.push_back(found->second);
    }
    return codes;
}

class InputSink
{
public:
    virtual ~InputSink() = default;
    virtual void key(std::uint32_t code, bool isPressed) = 0;
    virtual bool pointerTo(double, double) { return false; }
    // Returns once the compositor has handled every event sent so far.
    virtual void flush() {}

    // Presses the chord's keys in order and releases them in reverse; returns the wall-clock time
    // in ms at which its last key went down: the moment a shortcut fires.
    double tap(const std::vector<std::uint32_t> &chord)
    {
        double lastDown = 0;
        for (const std::uint32_t code : chord) {
            lastDown = std::chrono::duration<double, std::milli>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
            sendKey(code, true);
        }
        for (auto it = chord.rbegin(); it != chord.rend(); ++it)
            sendKey(*it, false);
        return lastDown;
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
        org_kde_kwin_fake_input *input = nullptr;
        const wl_registry_listener listener = {
            [](void *data, wl_registry *registry, std::uint32_t name, const char *interface,
               std::uint32_t version) {
                if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 &&
                    version >= fakeInputVersion)
                    *static_cast<org_kde_kwin_fake_input **>(data) =
                        static_cast<org_kde_kwin_fake_input *>(wl_registry_bind(
                            registry, name, &org_kde_kwin_fake_input_interface, fakeInputVersion));
            },
            [](void *, wl_registry *, std::uint32_t) {}};
        wl_registry *registry = wl_display_get_registry(display);
        wl_registry_add_listener(registry, &listener, &input);
        wl_display_roundtrip(display);
        wl_registry_destroy(registry);
        if (input == nullptr) {
            wl_display_disconnect(display);
            return nullptr;
        }
        org_kde_kwin_fake_input_authenticate(input, "wayland_keys", "end-to-end tests");
        return std::unique_ptr<FakeInputSink>(new FakeInputSink(display, input));
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

// mutter ties a remote-desktop session to the bus connection that made it.
class MutterSink final : public InputSink
{
public:
    static std::unique_ptr<MutterSink> connect()
    {
        const QString service = QStringLiteral("org.gnome.Mutter.RemoteDesktop");
        QDBusInterface desktop(service, QStringLiteral("/org/gnome/Mutter/RemoteDesktop"), service);
        const QDBusReply<QDBusObjectPath> path = desktop.call(QStringLiteral("CreateSession"));
        if (!path.isValid())
            return nullptr;
        auto sink = std::unique_ptr<MutterSink>(new MutterSink(path.value().path()));
        if (!QDBusReply<void>(sink->m_session.call(QStringLiteral("Start"))).isValid())
            return nullptr;
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
        m_session.call(QDBus::NoBlock, QStringLiteral("NotifyKeyboardKeycode"), code, isPressed);
    }

    void flush() override
    {
        m_session.call(QStringLiteral("NotifyKeyboardKeycode"), std::uint32_t{KEY_LEFTSHIFT},
                       false);
    }

private:
    explicit MutterSink(const QString &path)
        : m_session(QStringLiteral("org.gnome.Mutter.RemoteDesktop"), path,
                    QStringLiteral("org.gnome.Mutter.RemoteDesktop.Session"))
    {}

    QDBusInterface m_session;
};

// Runs one action and gives its answer.
std::string run(InputSink &sink, std::string_view action, std::string_view argument)
{
    double lastDown = 0;
    if (action == "key" || action == "timed") {
        const auto chord = parseChord(argument);
        if (!chord)
            return "failed";
        lastDown = sink.tap(*chord);
    } else if (action == "type") {
        std::vector<Stroke> strokes;
        for (const char c : argument) {
            const auto stroke = strokeFor(c);
            if (!stroke)
                return "failed";
            strokes.push_back(*stroke);
        }
        for (const Stroke &stroke : strokes)
            sink.tap(stroke.isShifted ? std::vector<std::uint32_t>{KEY_LEFTSHIFT, stroke.code}
                                      : std::vector<std::uint32_t>{stroke.code});
    } else if (double x, y; action == "pointer") {
        if (std::sscanf(std::string(argument).c_str(), "%lf,%lf", &x, &y) != 2 ||
            !sink.pointerTo(x, y))
            return "failed";
    } else {
        return "failed";
    }
    sink.flush();
    return action == "timed" ? "ok " + std::to_string(lastDown) : "ok";
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const bool isMutter = argc > 1 && std::string_view(argv[1]) == "--mutter";
    std::unique_ptr<InputSink> sink;
    if (isMutter)
        sink = MutterSink::connect();
    else
        sink = FakeInputSink::connect();
    if (!sink) {
        std::fprintf(stderr, "wayland_keys: the compositor offers no way to send input\n");
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        const auto space = line.find(' ');
        const std::string_view rest = space == std::string::npos
                                          ? std::string_view()
                                          : std::string_view(line).substr(space + 1);
        std::cout << run(*sink, std::string_view(line).substr(0, space), rest) << std::endl;
    }
    return 0;
}
