// Times a hot key press until the panel it opens is on screen, as a user would see it: presses
// the keys through the XTEST extension (a real key event, which the window manager and Pindle's
// key grab treat like a keyboard's), then reads back one screen pixel until the panel's paint
// has reached the X server. Only libxcb is needed: the two XTEST requests are written out here.
//
//     panel_latency_probe KEY X Y RUNS
//     panel_latency_probe stall WINDOW KEY X Y
//
// KEY is the letter pressed with Alt (u or i); (X, Y) a screen pixel that the open panel covers
// and that shows something else while it is closed. Prints one line per run: "<ms>".
//
// The second form measures how long the main thread stops answering while a panel opens: it
// pings WINDOW (one of Pindle's windows) with _NET_WM_PING, which Qt answers from its main
// thread, one ping after another, from before the key press until the pixel shows the panel's
// content and a moment after. Prints "<longest answer ms> <pings> <ms until painted>".

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xcbext.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/uio.h>
#include <thread>

namespace {

xcb_extension_t xtestExtension = {"XTEST", 0};

constexpr std::uint8_t fakeKeyPress = 2;
constexpr std::uint8_t fakeKeyRelease = 3;
constexpr std::uint32_t keysymAltL = 0xffe9;
constexpr std::uint32_t keysymEscape = 0xff1b;
constexpr double defaultTimeoutMs = 5000;
constexpr auto pollInterval = std::chrono::microseconds(250);

struct FakeInputRequest
{
    std::uint8_t majorOpcode;
    std::uint8_t minorOpcode;
    std::uint16_t length;
    std::uint8_t type;
    std::uint8_t detail;
    std::uint8_t pad0[2];
    std::uint32_t time;
    std::uint32_t root;
    std::uint8_t pad1[8];
    std::int16_t rootX;
    std::int16_t rootY;
    std::uint8_t pad2[7];
    std::uint8_t deviceid;
};
static_assert(sizeof(FakeInputRequest) == 36);

void fakeKey(xcb_connection_t *c, std::uint8_t type, xcb_keycode_t keycode)
{
    FakeInputRequest request = {};
    request.type = type;
    request.detail = keycode;
    xcb_protocol_request_t protocol = {2, &xtestExtension, 2, 1};
    iovec parts[4] = {};
    parts[2].iov_base = &request;
    parts[2].iov_len = sizeof request;
    parts[3].iov_base = nullptr;
    parts[3].iov_len = 0;
    xcb_send_request(c, 0, parts + 2, &protocol);
}

xcb_keycode_t keycodeFor(xcb_key_symbols_t *symbols, std::uint32_t keysym)
{
    xcb_keycode_t *codes = xcb_key_symbols_get_keycode(symbols, keysym);
    if (codes == nullptr || codes[0] == XCB_NO_SYMBOL) {
        std::fprintf(stderr, "no key for keysym 0x%x\n", keysym);
        std::exit(2);
    }
    const xcb_keycode_t code = codes[0];
    std::free(codes);
    return code;
}

std::uint32_t pixelAt(xcb_connection_t *c, xcb_window_t root, std::int16_t x, std::int16_t y)
{
    xcb_get_image_reply_t *reply = xcb_get_image_reply(
        c, xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, root, x, y, 1, 1, ~0u), nullptr);
    std::uint32_t value = 0;
    if (reply != nullptr) {
        const int length = xcb_get_image_data_length(reply);
        std::memcpy(&value, xcb_get_image_data(reply), std::min<int>(length, sizeof value));
        std::free(reply);
    }
    return value & 0xffffff;
}

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

// Waits until the pixel is (or, with differs false, is again) other than background.
bool waitForPixel(xcb_connection_t *c, xcb_window_t root, std::int16_t x, std::int16_t y,
                  std::uint32_t background, bool differs, double timeoutMs = defaultTimeoutMs)
{
    const auto start = std::chrono::steady_clock::now();
    while (millisecondsSince(start) < timeoutMs) {
        if ((pixelAt(c, root, x, y) != background) == differs)
            return true;
        // Polling flat out would take a CPU from Pindle and the X server on a small machine.
        std::this_thread::sleep_for(pollInterval);
    }
    return false;
}

void pressChord(xcb_connection_t *c, xcb_keycode_t alt, xcb_keycode_t key)
{
    fakeKey(c, fakeKeyPress, alt);
    fakeKey(c, fakeKeyPress, key);
    fakeKey(c, fakeKeyRelease, key);
    fakeKey(c, fakeKeyRelease, alt);
    xcb_flush(c);
}

xcb_atom_t atomNamed(xcb_connection_t *c, const char *name)
{
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, std::uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t atom = reply != nullptr ? reply->atom : XCB_ATOM_NONE;
    std::free(reply);
    return atom;
}

// Keeps pinging after the panel is painted, so that work done just after painting counts too.
constexpr double afterPaintMs = 500;
constexpr double stallTimeoutMs = 120000;

int measureStall(xcb_connection_t *c, xcb_window_t root, xcb_window_t window, xcb_keycode_t alt,
                 xcb_keycode_t key, std::int16_t x, std::int16_t y)
{
    const xcb_atom_t protocols = atomNamed(c, "WM_PROTOCOLS");
    const xcb_atom_t ping = atomNamed(c, "_NET_WM_PING");
    // Qt sends its answers to the root window, to the clients that watch its structure.
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, root, XCB_CW_EVENT_MASK, &mask);
    const std::uint32_t background = pixelAt(c, root, x, y);

    double longest = 0;
    int pings = 0;
    double paintedAt = -1;
    const auto start = std::chrono::steady_clock::now();
    for (std::uint32_t serial = 1;; ++serial) {
        const double now = millisecondsSince(start);
        if (now > stallTimeoutMs) {
            std::fprintf(stderr, "the panel was not painted in time\n");
            return 1;
        }
        if (paintedAt >= 0 && now > paintedAt + afterPaintMs)
            break;
        if (serial == 3)
            pressChord(c, alt, key);

        xcb_client_message_event_t event = {};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = protocols;
        event.data.data32[0] = ping;
        event.data.data32[1] = serial;
        event.data.data32[2] = window;
        const auto sent = std::chrono::steady_clock::now();
        xcb_send_event(c, 0, window, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char *>(&event));
        xcb_flush(c);
        for (bool answered = false; !answered;) {
            xcb_generic_event_t *reply = xcb_poll_for_event(c);
            if (reply == nullptr) {
                if (xcb_connection_has_error(c) || millisecondsSince(sent) > stallTimeoutMs) {
                    std::fprintf(stderr, "no answer to a ping\n");
                    return 1;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(50));
                continue;
            }
            if ((reply->response_type & 0x7f) == XCB_CLIENT_MESSAGE) {
                const auto *message = reinterpret_cast<xcb_client_message_event_t *>(reply);
                answered = message->data.data32[0] == ping && message->data.data32[1] == serial;
            }
            std::free(reply);
        }
        longest = std::max(longest, millisecondsSince(sent));
        ++pings;
        if (paintedAt < 0 && serial > 3 && pixelAt(c, root, x, y) != background)
            paintedAt = millisecondsSince(start);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::printf("%.2f %d %.2f\n", longest, pings, paintedAt);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const bool isStall = argc == 6 && std::strcmp(argv[1], "stall") == 0;
    if (!isStall && (argc != 5 || std::strlen(argv[1]) != 1)) {
        std::fprintf(stderr, "usage: %s KEY X Y RUNS | stall WINDOW KEY X Y\n", argv[0]);
        return 2;
    }
    // The stall form's arguments after the window are those of the timing form.
    char **args = isStall ? argv + 2 : argv;
    if (std::strlen(args[1]) != 1)
        return 2;
    const auto x = std::int16_t(std::atoi(args[2]));
    const auto y = std::int16_t(std::atoi(args[3]));
    const int runs = isStall ? 0 : std::atoi(args[4]);

    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "cannot open the display\n");
        return 2;
    }
    const xcb_query_extension_reply_t *xtest = xcb_get_extension_data(c, &xtestExtension);
    if (xtest == nullptr || !xtest->present) {
        std::fprintf(stderr, "the X server has no XTEST extension\n");
        return 2;
    }
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    xcb_key_symbols_t *symbols = xcb_key_symbols_alloc(c);
    const xcb_keycode_t alt = keycodeFor(symbols, keysymAltL);
    const xcb_keycode_t key = keycodeFor(symbols, std::uint32_t(args[1][0]));
    const xcb_keycode_t escape = keycodeFor(symbols, keysymEscape);
    if (isStall) {
        const auto window = xcb_window_t(std::strtoul(argv[2], nullptr, 0));
        const int status = measureStall(c, root, window, alt, key, x, y);
        xcb_key_symbols_free(symbols);
        xcb_disconnect(c);
        return status;
    }

    for (int run = 0; run < runs; ++run) {
        const std::uint32_t background = pixelAt(c, root, x, y);
        const auto start = std::chrono::steady_clock::now();
        pressChord(c, alt, key);
        if (!waitForPixel(c, root, x, y, background, true)) {
            std::fprintf(stderr, "run %d: the panel did not appear\n", run + 1);
            return 1;
        }
        std::printf("%.2f\n", millisecondsSince(start));
        std::fflush(stdout);

        // The panel may be painted before the window manager has given it the focus, so Escape
        // is repeated until it takes.
        bool isClosed = false;
        for (int attempt = 0; attempt < 20 && !isClosed; ++attempt) {
            fakeKey(c, fakeKeyPress, escape);
            fakeKey(c, fakeKeyRelease, escape);
            xcb_flush(c);
            isClosed = waitForPixel(c, root, x, y, background, false, 250);
        }
        if (!isClosed) {
            std::fprintf(stderr, "run %d: the panel did not close\n", run + 1);
            return 1;
        }
        // Lets the window manager settle the focus before the next press.
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
    xcb_key_symbols_free(symbols);
    xcb_disconnect(c);
    return 0;
}
