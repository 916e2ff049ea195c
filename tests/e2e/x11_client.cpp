// Another X client, for the end-to-end tests:
//
//     x11_client serve TEXT|silent|dying
//         takes the clipboard and says "owning" once it has it; asked for the text, it answers
//         with TEXT, or never answers (silent), or announces a transfer in parts and sends none
//         (dying); it says "asked" once it has answered, and then ends, or hangs when silent
//     x11_client grab KEYCODE MODIFIERS
//         grabs that one key and modifier mask on the root window, as a program holding a hot
//         key would, and says "grabbed" or "busy"

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

xcb_atom_t intern(xcb_connection_t *c, const char *name)
{
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr);
    const xcb_atom_t atom = reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(reply);
    return atom;
}

void say(const char *line)
{
    std::printf("%s\n", line);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (argc < 2 || (mode == "serve" && argc != 3) || (mode == "grab" && argc != 4) ||
        (mode != "serve" && mode != "grab" && mode != "silent" && mode != "dying")) {
        std::fprintf(stderr, "usage: x11_client serve TEXT|silent|dying|grab KEYCODE MODIFIERS\n");
        return 2;
    }
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c) != 0)
        return 1;
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (mode == "grab") {
        xcb_generic_error_t *error = xcb_request_check(
            c, xcb_grab_key_checked(c, 0, screen->root, std::uint16_t(std::atoi(argv[3])),
                                    xcb_keycode_t(std::atoi(argv[2])), XCB_GRAB_MODE_ASYNC,
                                    XCB_GRAB_MODE_ASYNC));
        say(error == nullptr ? "grabbed" : "busy");
        std::free(error);
        while (xcb_generic_event_t *event = xcb_wait_for_event(c))
            std::free(event);
        return 0;
    }
    const xcb_window_t window = xcb_generate_id(c);
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    const xcb_atom_t clipboard = intern(c, "CLIPBOARD");
    const xcb_atom_t incr = intern(c, "INCR");
    xcb_set_selection_owner(c, window, clipboard, XCB_CURRENT_TIME);
    xcb_get_selection_owner_reply_t *owner =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, clipboard), nullptr);
    const bool owning = owner != nullptr && owner->owner == window;
    std::free(owner);
    if (!owning)
        return 1;
    say("owning");

    while (xcb_generic_event_t *event = xcb_wait_for_event(c)) {
        if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST) {
            const auto *request = reinterpret_cast<xcb_selection_request_event_t *>(event);
            if (mode != "silent") {
                const std::uint32_t announcedSize = 1 << 20;
                if (mode == "dying")
                    xcb_change_property(c, XCB_PROP_MODE_REPLACE, request->requestor,
                                        request->property, incr, 32, 1, &announcedSize);
                else
                    xcb_change_property(c, XCB_PROP_MODE_REPLACE, request->requestor,
                                        request->property, request->target, 8,
                                        std::uint32_t(std::strlen(argv[2])), argv[2]);
                xcb_selection_notify_event_t notify{};
                notify.response_type = XCB_SELECTION_NOTIFY;
                notify.time = request->time;
                notify.requestor = request->requestor;
                notify.selection = request->selection;
                notify.target = request->target;
                notify.property = request->property;
                xcb_send_event(c, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT,
                               reinterpret_cast<const char *>(&notify));
                xcb_flush(c);
            }
            say("asked");
            if (mode != "silent")
                std::_Exit(0);
        }
        std::free(event);
    }
    return 0;
}
