#include "ui/KeyablePanel.h"

#include "platform/Platform.h"
#include "ui/Palette.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

namespace pindle::ui {
namespace {

constexpr double cornerRadius = 12;

// Whether something blends translucent windows with what lies behind them. Without it the panel
// stays opaque and cuts its corners with a mask.
bool compositorRuns()
{
    platform::Application *application = platform::services().application.get();
    return application != nullptr && application->isCompositing();
}

QPainterPath roundedOutline(const QRectF &rect, double radius = cornerRadius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

} // namespace

KeyablePanel::KeyablePanel(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("panel"));
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setWindowTitle(QApplication::applicationDisplayName());
    m_isTranslucent = compositorRuns();
    if (m_isTranslucent)
        setAttribute(Qt::WA_TranslucentBackground);
}

void KeyablePanel::setFrame(const QRectF &frame, bool display)
{
    m_frame = frame;
    platform::Screens &screens = *platform::services().screens;
    const QRectF geometry = screens.toWindowSystem(frame);
    // Where the compositor places windows, the panel only tells it its size.
    if (screens.canPlaceWindows())
        setGeometry(QRect(qRound(geometry.x()), qRound(geometry.y()), qRound(geometry.width()),
                          qRound(geometry.height())));
    else
        resize(qRound(geometry.width()), qRound(geometry.height()));
    if (display && isVisible())
        repaint();
}

bool KeyablePanel::event(QEvent *event)
{
    if (event->type() == QEvent::WindowDeactivate && onResignKey)
        onResignKey();
    return QWidget::event(event);
}

void KeyablePanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool dark = isDark(palette());
    QColor background = palette().color(QPalette::Window);
    const QColor border = dark ? QColor(255, 255, 255, 46) : QColor(0, 0, 0, 56);
    if (m_isTranslucent) {
        background.setAlphaF(dark ? 0.88f : 0.90f);
        painter.setPen(QPen(border, 1));
        painter.setBrush(background);
        painter.drawPath(roundedOutline(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5)));
        return;
    }
    // The mask is one bit deep and cuts through an antialiased outline. So the whole window
    // gets the border's shade and the background is laid inside it, one pixel in: whatever
    // pixels the mask keeps at the corners read as the outline.
    const float a = border.alphaF();
    const QColor edge =
        QColor::fromRgbF(background.redF() + (border.redF() - background.redF()) * a,
                         background.greenF() + (border.greenF() - background.greenF()) * a,
                         background.blueF() + (border.blueF() - background.blueF()) * a);
    painter.fillRect(rect(), edge);
    painter.fillPath(roundedOutline(QRectF(rect()).adjusted(1, 1, -1, -1), cornerRadius - 1),
                     background);
}

void KeyablePanel::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (!m_isTranslucent)
        setMask(QRegion(roundedOutline(QRectF(rect())).toFillPolygon().toPolygon()));
}

} // namespace pindle::ui
