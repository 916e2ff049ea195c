#include "platform/x11/X11Pasteboard.h"

#include "platform/x11/X11Connection.h"

#include <QSocketNotifier>

#include <cstdlib>
#include <utility>

namespace pindle::platform::x11 {
namespace {

// Far above any address worth saving; a larger selection is not one, and is not kept in memory.
constexpr qsizetype maxTextBytes = 64 * 1024 * 1024;
// The property on Pindle's window that owners write the text into.
constexpr char transferProperty[] = "PINDLE_CLIPBOARD";

} // namespace

X11Pasteboard::X11Pasteboard(std::chrono::milliseconds timeout) : m_timeout(timeout)
{
    m_deadline.setSingleShot(true);
    QObject::connect(&m_deadline, &QTimer::timeout, [this] { finish(std::nullopt); });
}

X11Pasteboard::~X11Pasteboard()
{
    disconnect();
}

void X11Pasteboard::requestString(StringHandler done)
{
    if (QtPasteboard::answerOwnText(done))
        return;
    m_waiting.append(std::move(done));
    if (m_stage != Stage::idle)
        return;
    if (!connect()) {
        finish(std::nullopt);
        return;
    }
    m_received.clear();
    m_isLatin1 = false;
    m_deadline.start(m_timeout);
    convert(atom(m_connection, "UTF8_STRING"));
}

bool X11Pasteboard::connect()
{
    if (m_connection != nullptr && xcb_connection_has_error(m_connection) == 0)
        return true;
    disconnect();
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection) != 0) {
        disconnect();
        return false;
    }
    const xcb_window_t root = rootWindow(m_connection);
    m_window = xcb_generate_id(m_connection);
    const std::uint32_t eventMask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, root, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &eventMask);
    xcb_flush(m_connection);
    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection),
                                                   QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { readEvents(); });
    return true;
}

void X11Pasteboard::disconnect()
{
    m_notifier.reset();
    if (m_connection != nullptr)
        xcb_disconnect(m_connection);
    m_connection = nullptr;
    m_window = XCB_WINDOW_NONE;
}

void X11Pasteboard::convert(xcb_atom_t target)
{
    m_stage = Stage::converting;
    m_target = target;
    xcb_convert_selection(m_connection, m_window, atom(m_connection, "CLIPBOARD"), target,
                          atom(m_connection, transferProperty), XCB_CURRENT_TIME);
    xcb_flush(m_connection);
}

void X11Pasteboard::readEvents()
{
    while (m_connection != nullptr) {
        xcb_generic_event_t *event = xcb_poll_for_event(m_connection);
        if (event == nullptr)
            break;
        handle(event);
        std::free(event);
    }
    if (m_connection != nullptr && xcb_connection_has_error(m_connection) != 0) {
        finish(std::nullopt);
        disconnect();
    }
}

void X11Pasteboard::handle(const xcb_generic_event_t *event)
{
    const xcb_atom_t property = atom(m_connection, transferProperty);
    switch (event->response_type & 0x7f) {
    case XCB_SELECTION_NOTIFY: {
        const auto *notify = reinterpret_cast<const xcb_selection_notify_event_t *>(event);
        if (m_stage != Stage::converting || notify->requestor != m_window ||
            notify->target != m_target)
            return;
        if (notify->property == XCB_ATOM_NONE) {
            // Owners from before UTF-8 offer Latin-1 text only.
            if (m_target == atom(m_connection, "UTF8_STRING"))
                convert(XCB_ATOM_STRING);
            else
                finish(std::nullopt);
            return;
        }
        xcb_atom_t type = XCB_ATOM_NONE;
        const std::optional<QByteArray> value = takeProperty(&type);
        if (value && type == atom(m_connection, "INCR")) {
            m_stage = Stage::incremental; // deleting the property asked for the first part
            return;
        }
        if (value && !value->isEmpty()) {
            m_isLatin1 = type == XCB_ATOM_STRING;
            appendPart(*value);
        }
        if (m_stage != Stage::idle)
            appendPart({});
        return;
    }
    case XCB_PROPERTY_NOTIFY: {
        const auto *notify = reinterpret_cast<const xcb_property_notify_event_t *>(event);
        if (m_stage != Stage::incremental || notify->window != m_window ||
            notify->atom != property || notify->state != XCB_PROPERTY_NEW_VALUE)
            return;
        xcb_atom_t type = XCB_ATOM_NONE;
        if (const std::optional<QByteArray> part = takeProperty(&type)) {
            if (!part->isEmpty())
                m_isLatin1 = type == XCB_ATOM_STRING;
            appendPart(*part);
        } else
            finish(std::nullopt);
        return;
    }
    default:
        return;
    }
}

std::optional<QByteArray> X11Pasteboard::takeProperty(xcb_atom_t *type)
{
    // The reply comes from the server, not from the owner, so this wait is short.
    xcb_generic_error_t *error = nullptr;
    xcb_get_property_reply_t *reply = xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 1, m_window, atom(m_connection, transferProperty),
                         XCB_GET_PROPERTY_TYPE_ANY, 0, maxTextBytes / 4 + 1),
        &error);
    std::free(error);
    if (reply == nullptr)
        return std::nullopt;
    *type = reply->type;
    QByteArray value;
    if (reply->format == 8 && reply->bytes_after == 0)
        value = QByteArray(static_cast<const char *>(xcb_get_property_value(reply)),
                           xcb_get_property_value_length(reply));
    const bool whole = reply->format == 8 || reply->type == atom(m_connection, "INCR") ||
                       reply->type == XCB_ATOM_NONE;
    const bool fits = reply->bytes_after == 0;
    std::free(reply);
    if (!whole || !fits)
        return std::nullopt;
    return value;
}

void X11Pasteboard::appendPart(const QByteArray &part)
{
    if (m_stage == Stage::idle)
        return;
    if (part.isEmpty()) {
        // An empty part ends the text, in one piece or in many. Owners answer with the type they
        // have, whatever was asked for: STRING is Latin-1, anything else is taken as UTF-8.
        finish(m_isLatin1 ? QString::fromLatin1(m_received) : QString::fromUtf8(m_received));
        return;
    }
    if (m_received.size() + part.size() > maxTextBytes) {
        finish(std::nullopt);
        return;
    }
    m_received.append(part);
}

void X11Pasteboard::finish(std::optional<QString> text)
{
    m_deadline.stop();
    m_stage = Stage::idle;
    m_received.clear();
    if (text && text->isEmpty())
        text.reset();
    for (const StringHandler &done : std::exchange(m_waiting, {}))
        done(text);
}

} // namespace pindle::platform::x11
