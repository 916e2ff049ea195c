#include "platform/fake/FakePlatform.h"

#include <utility>

namespace pindle::platform::fake {

void FakeGlobalShortcuts::bind(const QString &id, const QString &description,
                               const QKeySequence &keys)
{
    requests.append({id, description, keys});
    if (held)
        m_unanswered.append(id);
    else
        answerNow(id);
}

void FakeGlobalShortcuts::answer()
{
    for (const QString &id : std::exchange(m_unanswered, {}))
        answerNow(id);
}

bool FakeGlobalShortcuts::press(const QString &id)
{
    if (!m_bound.contains(id))
        return false;
    Q_EMIT activated(id);
    return true;
}

void FakeGlobalShortcuts::answerNow(const QString &id)
{
    if (const auto found = refuse.constFind(id); found != refuse.constEnd()) {
        Q_EMIT refused(id, *found);
        return;
    }
    m_bound.append(id);
    Q_EMIT bound(id);
}

FakeScreens::FakeScreens()
{
    const Screen screen{QRectF(0, 0, 1440, 900), QRectF(0, 0, 1440, 875)};
    all = {screen};
    main = screen;
    mouse = QPointF(700, 450);
}

QRectF FakeScreens::toWindowSystem(const QRectF &frame)
{
    const qreal height = all.isEmpty() ? 0 : all.first().frame.height();
    return QRectF(frame.x(), height - frame.y() - frame.height(), frame.width(), frame.height());
}

QRectF FakeScreens::fromWindowSystem(const QRectF &geometry)
{
    // The flip is its own inverse.
    return toWindowSystem(geometry);
}

FakePlatform installFakePlatform()
{
    FakePlatform fakes;
    Services backend;
    backend.shortcuts = std::make_unique<FakeGlobalShortcuts>();
    fakes.shortcuts = static_cast<FakeGlobalShortcuts *>(backend.shortcuts.get());
    backend.focus = std::make_unique<FakeFocusService>();
    fakes.focus = static_cast<FakeFocusService *>(backend.focus.get());
    backend.workspace = std::make_unique<FakeWorkspace>();
    fakes.workspace = static_cast<FakeWorkspace *>(backend.workspace.get());
    backend.pasteboard = std::make_unique<FakePasteboard>();
    fakes.pasteboard = static_cast<FakePasteboard *>(backend.pasteboard.get());
    backend.screens = std::make_unique<FakeScreens>();
    fakes.screens = static_cast<FakeScreens *>(backend.screens.get());
    backend.application = std::make_unique<FakeApplication>();
    fakes.application = static_cast<FakeApplication *>(backend.application.get());
    setServices(std::move(backend));
    return fakes;
}

} // namespace pindle::platform::fake
