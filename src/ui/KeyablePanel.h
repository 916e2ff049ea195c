#pragma once

// The panels' window: a frameless tool window that stays on top, can take the keyboard focus,
// draws a rounded background (translucent where a compositor blends it) and says when it stops
// being the active window.

#include <QRectF>
#include <QWidget>

#include <functional>

namespace pindle::ui {

class KeyablePanel : public QWidget
{
    Q_OBJECT
public:
    explicit KeyablePanel(QWidget *parent = nullptr);

    // Told when the window stops being the active (key) window.
    std::function<void()> onResignKey;

    // The window's frame in points, origin at the bottom left of the primary screen, y up.
    QRectF frame() const { return m_frame; }
    // Moves and sizes the window; with display it is repainted at once.
    void setFrame(const QRectF &frame, bool display);

    // Whether the background is drawn translucent (a compositor blends it with what lies
    // behind); otherwise it is opaque and the rounded corners are cut with a mask.
    bool isTranslucent() const { return m_isTranslucent; }

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QRectF m_frame;
    bool m_isTranslucent = false;
};

} // namespace pindle::ui
