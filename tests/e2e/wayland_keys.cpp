// Real key presses and pointer moves on a Wayland session, which the compositor takes as a
// keyboard's and a mouse's, so global shortcuts fire and the focused window gets the keys: through
// KWin's fake-input protocol (open to every client when KWin runs with
// KWIN_WAYLAND_NO_PERMISSION_CHECKS=1), or else mutter's remote-desktop service.
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

#include <chrono>
#include <cstdint>
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

std::optional<std::uint32_t> keyNamed(std::string_view name)
{
    constexpr std::pair<std::string_view, std::uint32_t> named[] = {
        {"alt", KEY_LEFTALT}, {"ctrl", KEY_LEFTCTRL}, {"Return", KEY_ENTER}, {"Escape", KEY_ESC}};
    for (const auto &[key, code] : named) {
        if (key == name)
            return code;
    }
    const auto stroke = name.size() == 1 ? strokeFor(name[0]) : std::nullopt;
    return stroke && !stroke->isShifted ? std::optional(stroke->code) : std::nullopt;
}

std::optional<std::vector<std::uint32_t>> parseChord(std::string_view chord)
{
    std::vector<std::uint32_t> codes;
    for (std::size_t start = 0, plus = 0; plus != std::string_view::npos; start = plus + 1) {
        plus = chord.find('+', start);
        const auto code = keyNamed(chord.substr(start, plus - start));
        if (!code)
            return std::nullopt;
        codes.push_back(*code);
    }
    return codes;
}

// Where the key events go: KWin's fake-input protocol, or else mutter's remote-desktop session.
struct Input
{
    wl_display *display = nullptr;
    org_kde_kwin_fake_input *fakeInput = nullptr;
    std::unique_ptr<QDBusInterface> session;

    void key(std::uint32_t code, bool isPressed)
    {
        if (fakeInput != nullptr) {
            org_kde_kwin_fake_input_keyboard_key(fakeInput, code,
                                                 isPressed ? WL_KEYBOARD_KEY_STATE_PRESSED
                                                           : WL_KEYBOARD_KEY_STATE_RELEASED);
            wl_display_roundtrip(display);
        } else {
            // Not waiting for each answer: mutter answers a key only after a frame or so, which
            // made typing a line take seconds. It handles the calls in order, so flush() waits
            // on one more.
            session->call(QDBus::NoBlock, QStringLiteral("NotifyKeyboardKeycode"), code, isPressed);
        }
        std::this_thread::sleep_for(keyEventGap);
    }

    // Returns once the compositor has handled every event sent so far.
    void flush()
    {
        if (session)
            session->call(QStringLiteral("NotifyKeyboardKeycode"), std::uint32_t{KEY_LEFTSHIFT},
                          false);
    }

    // Presses the chord's keys in order and releases them in reverse; returns the wall-clock time
    // in ms at which its last key went down: the moment a shortcut fires.
    double tap(const std::vector<std::uint32_t> &chord)
    {
        double lastDown = 0;
        for (const std::uint32_t code : chord) {
            lastDown = std::chrono::duration<double, std::milli>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
            key(code, true);
        }
        for (auto it = chord.rbegin(); it != chord.rend(); ++it)
            key(*it, false);
        return lastDown;
    }
};

bool connectKWin(Input &input)
{
    input.display = wl_display_connect(nullptr);
    if (input.display == nullptr)
        return false;
    const wl_registry_listener listener = {
        [](void *data, wl_registry *registry, std::uint32_t name, const char *interface,
           std::uint32_t version) {
            if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 &&
                version >= fakeInputVersion)
                static_cast<Input *>(data)->fakeInput =
                    static_cast<org_kde_kwin_fake_input *>(wl_registry_bind(
                        registry, name, &org_kde_kwin_fake_input_interface, fakeInputVersion));
        },
        [](void *, wl_registry *, std::uint32_t) {}};
    wl_registry *registry = wl_display_get_registry(input.display);
    wl_registry_add_listener(registry, &listener, &input);
    wl_display_roundtrip(input.display);
    wl_registry_destroy(registry);
    if (input.fakeInput != nullptr)
        org_kde_kwin_fake_input_authenticate(input.fakeInput, "wayland_keys", "end-to-end tests");
    return input.fakeInput != nullptr;
}

// mutter ties a remote-desktop session to the bus connection that made it.
bool connectMutter(Input &input)
{
    const QString service = QStringLiteral("org.gnome.Mutter.RemoteDesktop");
    QDBusInterface desktop(service, QStringLiteral("/org/gnome/Mutter/RemoteDesktop"), service);
    const QDBusReply<QDBusObjectPath> path = desktop.call(QStringLiteral("CreateSession"));
    if (!path.isValid())
        return false;
    input.session = std::make_unique<QDBusInterface>(service, path.value().path(),
                                                     service + QStringLiteral(".Session"));
    if (!QDBusReply<void>(input.session->call(QStringLiteral("Start"))).isValid())
        return false;
    // mutter drops the first key of a new session, seemingly while it sets up the session's
    // keyboard: a lone Shift tap takes that loss.
    input.tap({KEY_LEFTSHIFT});
    input.flush();
    return true;
}

// Runs one action and gives its answer.
std::string run(Input &input, std::string_view action, std::string_view argument)
{
    double lastDown = 0;
    if (action == "key" || action == "timed") {
        const auto chord = parseChord(argument);
        if (!chord)
            return "failed";
        lastDown = input.tap(*chord);
    } else if (action == "type") {
        for (const char c : argument) {
            const auto stroke = strokeFor(c);
            if (!stroke)
                return "failed";
            input.tap(stroke->isShifted ? std::vector<std::uint32_t>{KEY_LEFTSHIFT, stroke->code}
                                        : std::vector<std::uint32_t>{stroke->code});
        }
    } else if (double x, y; action == "pointer" && input.fakeInput != nullptr &&
                            std::sscanf(std::string(argument).c_str(), "%lf,%lf", &x, &y) == 2) {
        org_kde_kwin_fake_input_pointer_motion_absolute(input.fakeInput, wl_fixed_from_double(x),
                                                        wl_fixed_from_double(y));
        wl_display_roundtrip(input.display);
    } else {
        return "failed";
    }
    input.flush();
    return action == "timed" ? "ok " + std::to_string(lastDown) : "ok";
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Input input;
    if (!connectKWin(input) && !connectMutter(input)) {
        std::fprintf(stderr, "wayland_keys: the compositor offers no way to send input\n");
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        const auto space = line.find(' ');
        const std::string_view rest = space == std::string::npos
                                          ? std::string_view()
                                          : std::string_view(line).substr(space + 1);
        std::cout << run(input, std::string_view(line).substr(0, space), rest) << std::endl;
    }
    return 0;
}
