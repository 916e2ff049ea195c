// Times a hot key press until the panel it opens is on screen, as a user would see it: presses
// the keys through the XTEST extension (a real key event, which the window manager and Pindle's
// key grab treat like a keyboard's), then reads back one screen pixel until the panel's paint
// has reached the X server. Only libxcb is needed: the two XTEST requests are written out here.
//
//     panel_latency_probe KEY X Y RUNS
//
// KEY is the letter pressed with Alt (u or i); (X, Y) a screen pixel that the open panel covers
// and that shows something else while it is closed. Prints one line per run: "<ms>".

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

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5 || std::strlen(argv[1]) != 1) {
        std::fprintf(stderr, "usage: %s KEY X Y RUNS\n", argv[0]);
        return 2;
    }
    const auto x = std::int16_t(std::atoi(argv[2]));
    const auto y = std::int16_t(std::atoi(argv[3]));
    const int runs = std::atoi(argv[4]);

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
    const xcb_keycode_t key = keycodeFor(symbols, std::uint32_t(argv[1][0]));
    const xcb_keycode_t escape = keycodeFor(symbols, keysymEscape);

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
