#pragma once

// Shared by the launcher and creator tests: visible texts and key presses carrying an X
// modifier state.

#include "platform/fake/FakePlatform.h"

#include <QKeyEvent>
#include <QLabel>
#include <QString>
#include <QStringList>
#include <QWidget>

namespace pindle::test {

// Texts of the visible labels under widget, in creation order.
QStringList visibleLabelTexts(const QWidget *widget);

// One press and release as the X11 backend delivers them, shortcut override first, with the
// native modifier state QTest::keyClick cannot set.
// nativeModifiers is the X state mask (0x2 = Caps Lock, 0x4 = Control).
void sendKey(QWidget *target, Qt::Key key, Qt::KeyboardModifiers modifiers, quint32 nativeModifiers,
             const QString &text = {});

} // namespace pindle::test
