#include "platform/wayland/WaylandPasteboard.h"

#include <QGuiApplication>
#include <QSocketNotifier>

// Qt names its Wayland objects publicly from 6.5 on, where it was built with Wayland support.
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
#if QT_CONFIG(wayland)
#define PINDLE_QT_WAYLAND_APPLICATION 1
#endif
#endif
#ifndef PINDLE_QT_WAYLAND_APPLICATION
#include <qpa/qplatformnativeinterface.h>
#endif

#include <wayland-client.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace pindle::platform::wayland {
namespace {

// Far above any address worth saving; a larger selection is not one, and is not kept in memory.
constexpr qsizetype maxTextBytes = 64 * 1024 * 1024;
// How often the main thread looks for protocol events while it expects some. Qt's event thread
// reads the socket; this only runs what it has queued for Pindle's own objects.
constexpr std::chrono::milliseconds pumpInterval{5};
// The highest version whose events the listeners below handle.
constexpr std::uint32_t dataDeviceManagerVersion = 3;
// Text types in order of preference; the last is Latin-1, the others are taken as UTF-8.
constexpr std::array<const char *, 5> textTypes = {"text/plain;charset=utf-8", "UTF8_STRING",
                                                   "text/plain", "TEXT", "STRING"};

WaylandPasteboard *self(void *data)
{
    return static_cast<WaylandPasteboard *>(data);
}

const wl_registry_listener registryListener = {
    .global =
        [](void *data, wl_registry *registry, std::uint32_t name, const char *interface,
           std::uint32_t version) {
            self(data)->announceGlobal(registry, name, interface, version);
        },
    .global_remove = [](void *, wl_registry *, std::uint32_t) {},
};

const wl_data_offer_listener offerListener = {
    .offer = [](void *data, wl_data_offer *offer,
                const char *mimeType) { self(data)->addOfferType(offer, mimeType); },
    .source_actions = [](void *, wl_data_offer *, std::uint32_t) {},
    .action = [](void *, wl_data_offer *, std::uint32_t) {},
};

const wl_data_device_listener deviceListener = {
    .data_offer = [](void *data, wl_data_device *,
                     wl_data_offer *offer) { self(data)->addOffer(offer); },
    // Drops are Qt's business; this device only keeps the selection.
    .enter = [](void *data, wl_data_device *, std::uint32_t, wl_surface *, wl_fixed_t, wl_fixed_t,
                wl_data_offer *offer) { self(data)->dropOffer(offer); },
    .leave = [](void *, wl_data_device *) {},
    .motion = [](void *, wl_data_device *, std::uint32_t, wl_fixed_t, wl_fixed_t) {},
    .drop = [](void *, wl_data_device *) {},
    .selection = [](void *data, wl_data_device *,
                    wl_data_offer *offer) { self(data)->setSelection(offer); },
};

const wl_callback_listener syncListener = {
    .done = [](void *data, wl_callback *, std::uint32_t) { self(data)->synced(); },
};

} // namespace

WaylandPasteboard::WaylandPasteboard(std::chrono::milliseconds timeout) : m_timeout(timeout)
{
    m_deadline.setSingleShot(true);
    QObject::connect(&m_deadline, &QTimer::timeout, [this] { finish(std::nullopt); });
    m_pump.setInterval(pumpInterval);
    QObject::connect(&m_pump, &QTimer::timeout, [this] { dispatch(); });
    // Qt closes its connection when the application ends, before this object goes.
    if (QCoreApplication *application = QCoreApplication::instance())
        QObject::connect(application, &QCoreApplication::aboutToQuit, &m_pump,
                         [this] { tearDown(); });

#ifdef PINDLE_QT_WAYLAND_APPLICATION
    if (auto *native = qGuiApp->nativeInterface<QNativeInterface::QWaylandApplication>()) {
        m_display = native->display();
        m_seat = native->seat();
    }
#else
    if (QPlatformNativeInterface *native = QGuiApplication::platformNativeInterface()) {
        m_display = static_cast<wl_display *>(native->nativeResourceForIntegration("wl_display"));
        m_seat = static_cast<wl_seat *>(native->nativeResourceForIntegration("wl_seat"));
    }
#endif
    if (m_display == nullptr || m_seat == nullptr)
        return;
    m_queue = wl_display_create_queue(m_display);
    m_displayOnQueue = static_cast<wl_display *>(wl_proxy_create_wrapper(m_display));
    wl_proxy_set_queue(reinterpret_cast<wl_proxy *>(m_displayOnQueue), m_queue);
    m_registry = wl_display_get_registry(m_displayOnQueue);
    wl_registry_add_listener(m_registry, &registryListener, this);
    wl_display_flush(m_display);
    updatePump();
}

WaylandPasteboard::~WaylandPasteboard()
{
    // Without the application its connection is gone, and with it these objects.
    if (QCoreApplication::instance() != nullptr)
        tearDown();
}

void WaylandPasteboard::tearDown()
{
    // Nobody is left to answer: the application is ending.
    m_waiting.clear();
    finish(std::nullopt);
    m_pump.stop();
    if (m_queue == nullptr)
        return;
    if (m_sync != nullptr)
        wl_callback_destroy(m_sync);
    for (const auto &[offer, types] : m_offers)
        wl_data_offer_destroy(offer);
    m_offers.clear();
    if (m_device != nullptr) {
        if (wl_data_device_get_version(m_device) >= WL_DATA_DEVICE_RELEASE_SINCE_VERSION)
            wl_data_device_release(m_device);
        else
            wl_data_device_destroy(m_device);
    }
    if (m_manager != nullptr)
        wl_data_device_manager_destroy(m_manager);
    if (m_registry != nullptr)
        wl_registry_destroy(m_registry);
    wl_proxy_wrapper_destroy(m_displayOnQueue);
    wl_display_flush(m_display);
    wl_event_queue_destroy(m_queue);
    m_sync = nullptr;
    m_selection = nullptr;
    m_device = nullptr;
    m_manager = nullptr;
    m_registry = nullptr;
    m_displayOnQueue = nullptr;
    m_queue = nullptr;
}

void WaylandPasteboard::requestString(StringHandler done)
{
    if (QtPasteboard::answerOwnText(done))
        return;
    m_waiting.append(std::move(done));
    if (m_deadline.isActive())
        return;
    if (m_queue == nullptr) {
        finish(std::nullopt);
        return;
    }
    m_deadline.start(m_timeout);
    // An answer still on its way from a request that timed out serves this one.
    if (m_sync != nullptr)
        return;
    // The selection may be on its way still, sent with the keyboard focus the panel just got:
    // everything the compositor sent before this answer has arrived once it comes.
    m_sync = wl_display_sync(m_displayOnQueue);
    wl_callback_add_listener(m_sync, &syncListener, this);
    wl_display_flush(m_display);
    updatePump();
}

void WaylandPasteboard::dispatch()
{
    if (m_queue != nullptr && wl_display_dispatch_queue_pending(m_display, m_queue) < 0) {
        // The connection is gone; Qt ends the application.
        finish(std::nullopt);
        m_pump.stop();
    }
}

void WaylandPasteboard::updatePump()
{
    const bool expecting = m_queue != nullptr && (m_device == nullptr || m_sync != nullptr);
    if (expecting && !m_pump.isActive())
        m_pump.start();
    else if (!expecting)
        m_pump.stop();
}

void WaylandPasteboard::announceGlobal(wl_registry *registry, std::uint32_t name,
                                       const char *interface, std::uint32_t version)
{
    if (m_manager != nullptr || qstrcmp(interface, wl_data_device_manager_interface.name) != 0)
        return;
    m_manager = static_cast<wl_data_device_manager *>(
        wl_registry_bind(registry, name, &wl_data_device_manager_interface,
                         std::min(version, dataDeviceManagerVersion)));
    m_device = wl_data_device_manager_get_data_device(m_manager, m_seat);
    wl_data_device_add_listener(m_device, &deviceListener, this);
    wl_display_flush(m_display);
    updatePump();
}

void WaylandPasteboard::addOffer(wl_data_offer *offer)
{
    m_offers.emplace(offer, QByteArrayList());
    wl_data_offer_add_listener(offer, &offerListener, this);
}

void WaylandPasteboard::addOfferType(wl_data_offer *offer, const char *mimeType)
{
    if (auto found = m_offers.find(offer); found != m_offers.end())
        found->second.append(QByteArray(mimeType));
}

void WaylandPasteboard::setSelection(wl_data_offer *offer)
{
    // The previous selection's offer is withdrawn by the new one.
    if (m_selection != nullptr && m_selection != offer)
        dropOffer(m_selection);
    m_selection = offer;
}

void WaylandPasteboard::dropOffer(wl_data_offer *offer)
{
    if (offer == nullptr || offer == m_selection || !m_offers.erase(offer))
        return;
    wl_data_offer_destroy(offer);
}

void WaylandPasteboard::synced()
{
    wl_callback_destroy(m_sync);
    m_sync = nullptr;
    updatePump();
    if (!m_waiting.isEmpty())
        startRead();
}

void WaylandPasteboard::startRead()
{
    const auto offer = m_offers.find(m_selection);
    if (offer == m_offers.end()) {
        finish(std::nullopt);
        return;
    }
    const char *type = nullptr;
    for (const char *candidate : textTypes) {
        if (offer->second.contains(QByteArray(candidate))) {
            type = candidate;
            break;
        }
    }
    std::array<int, 2> fds{};
    if (type == nullptr || pipe2(fds.data(), O_CLOEXEC) != 0) {
        finish(std::nullopt);
        return;
    }
    // Only Pindle's end is non-blocking: the owner writes to the same open file.
    fcntl(fds[0], F_SETFL, fcntl(fds[0], F_GETFL) | O_NONBLOCK);
    wl_data_offer_receive(offer->first, type, fds[1]);
    wl_display_flush(m_display);
    close(fds[1]);
    m_pipe = fds[0];
    m_received.clear();
    m_isLatin1 = qstrcmp(type, "STRING") == 0;
    m_notifier = std::make_unique<QSocketNotifier>(m_pipe, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { readPipe(); });
}

void WaylandPasteboard::readPipe()
{
    std::array<char, 64 * 1024> buffer{};
    for (;;) {
        const ssize_t count = read(m_pipe, buffer.data(), buffer.size());
        if (count > 0) {
            if (m_received.size() + count > maxTextBytes) {
                finish(std::nullopt);
                return;
            }
            m_received.append(buffer.data(), count);
            continue;
        }
        if (count == 0) {
            finish(m_isLatin1 ? QString::fromLatin1(m_received) : QString::fromUtf8(m_received));
            return;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK)
            finish(std::nullopt);
        return;
    }
}

void WaylandPasteboard::finish(std::optional<QString> text)
{
    m_deadline.stop();
    m_notifier.reset();
    if (m_pipe >= 0)
        close(m_pipe);
    m_pipe = -1;
    m_received.clear();
    if (text && text->isEmpty())
        text.reset();
    for (const StringHandler &done : std::exchange(m_waiting, {}))
        done(text);
}

} // namespace pindle::platform::wayland
