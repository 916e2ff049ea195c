#pragma once

// The clipboard on Wayland, read without Qt's blocking wait. Qt's own read waits for the owner in
// the main thread, a second of silence at a time, however long the owner trickles. Here Pindle
// keeps a data device of its own on Qt's connection, with an event queue of its own that the main
// thread dispatches without ever waiting on the socket (Qt's event thread reads it), and reads
// the owner's pipe from the event loop, giving up after a bound.

#include "platform/QtServices.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QList>
#include <QTimer>

#include <chrono>
#include <map>
#include <memory>

class QSocketNotifier;
struct wl_callback;
struct wl_data_device;
struct wl_data_device_manager;
struct wl_data_offer;
struct wl_display;
struct wl_event_queue;
struct wl_registry;
struct wl_seat;

namespace pindle::platform::wayland {

class WaylandPasteboard final : public Pasteboard
{
public:
    // How long an owner may take to hand over the whole text.
    explicit WaylandPasteboard(std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));
    ~WaylandPasteboard() override;
    WaylandPasteboard(const WaylandPasteboard &) = delete;
    WaylandPasteboard &operator=(const WaylandPasteboard &) = delete;

    void requestString(StringHandler done) override;
    bool isReadableWithoutFocus() override { return false; }
    void clearContents() override { m_qt.clearContents(); }
    void setString(const QString &text) override { m_qt.setString(text); }

    // Called from the protocol listeners.
    void announceGlobal(wl_registry *registry, std::uint32_t name, const char *interface,
                        std::uint32_t version);
    void addOffer(wl_data_offer *offer);
    void addOfferType(wl_data_offer *offer, const char *mimeType);
    void setSelection(wl_data_offer *offer);
    void dropOffer(wl_data_offer *offer);
    void synced();

private:
    void dispatch();
    void startRead();
    void readPipe();
    void finish(std::optional<QString> text);
    void updatePump();
    void tearDown();

    std::chrono::milliseconds m_timeout;
    QtPasteboard m_qt{false};
    wl_display *m_display = nullptr; // Qt's
    wl_seat *m_seat = nullptr;       // Qt's
    wl_event_queue *m_queue = nullptr;
    wl_display *m_displayOnQueue = nullptr; // a wrapper whose new objects land on m_queue
    wl_registry *m_registry = nullptr;
    wl_data_device_manager *m_manager = nullptr;
    wl_data_device *m_device = nullptr;
    // Every offer the compositor introduced and not yet withdrawn, with its MIME types.
    std::map<wl_data_offer *, QByteArrayList> m_offers;
    wl_data_offer *m_selection = nullptr;
    wl_callback *m_sync = nullptr;
    QTimer m_pump;
    QTimer m_deadline;
    int m_pipe = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QByteArray m_received;
    bool m_isLatin1 = false;
    QList<StringHandler> m_waiting;
};

} // namespace pindle::platform::wayland
