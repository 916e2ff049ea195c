#pragma once

// The clipboard on X11, read without Qt's blocking wait: Pindle asks for the CLIPBOARD selection
// on a connection of its own and collects the answer from the event loop, giving up after a
// bound. An owner that never answers, or dies halfway through a transfer, costs Alt+I its effect
// and nothing else.

#include "platform/QtServices.h"

#include <QByteArray>
#include <QList>
#include <QTimer>

#include <chrono>
#include <memory>

#include <xcb/xcb.h>

class QSocketNotifier;

namespace pindle::platform::x11 {

class X11Pasteboard final : public Pasteboard
{
public:
    // How long an owner may take to hand over the text, counting every part of a long one.
    explicit X11Pasteboard(std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));
    ~X11Pasteboard() override;

    void requestString(StringHandler done) override;
    bool isReadableWithoutFocus() override { return true; }
    void clearContents() override { m_qt.clearContents(); }
    void setString(const QString &text) override { m_qt.setString(text); }

private:
    enum class Stage
    {
        idle,
        converting,  // waiting for SelectionNotify
        incremental, // the owner sends the text in parts, one property change each
    };

    bool connect();
    void disconnect();
    void convert(xcb_atom_t target);
    void readEvents();
    void handle(const xcb_generic_event_t *event);
    // Takes the property's value off the window (deleting it, which asks an incremental sender
    // for its next part). Nothing when the connection failed.
    std::optional<QByteArray> takeProperty(xcb_atom_t *type);
    void appendPart(const QByteArray &part);
    void finish(std::optional<QString> text);

    std::chrono::milliseconds m_timeout;
    QtPasteboard m_qt;
    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_window = XCB_WINDOW_NONE;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_deadline;
    Stage m_stage = Stage::idle;
    xcb_atom_t m_target = XCB_ATOM_NONE;
    QByteArray m_received;
    bool m_isLatin1 = false;
    QList<StringHandler> m_waiting;
};

} // namespace pindle::platform::x11
