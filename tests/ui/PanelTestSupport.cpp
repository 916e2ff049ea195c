#include "PanelTestSupport.h"

#include "support/TestSupport.h"

#include <QApplication>
#include <QLabel>

#include <gtest/gtest.h>

namespace pindle::test {

IndexedFile fileNamed(const QString &name)
{
    return {QUrl::fromLocalFile(QStringLiteral("/nowhere/") + name + QStringLiteral(".webloc")),
            name};
}

QList<ScoredFile> scoredFiles(int count)
{
    QList<ScoredFile> results;
    for (int i = 0; i < count; ++i)
        results.append({fileNamed(QStringLiteral("Shortcut %1").arg(i)), 0, {}});
    return results;
}

QStringList visibleLabelTexts(const QWidget *widget)
{
    QStringList texts;
    for (const QLabel *label : widget->findChildren<QLabel *>()) {
        if (label->isVisibleTo(widget->window()))
            texts.append(label->text());
    }
    return texts;
}

void sendKey(QWidget *target, Qt::Key key, Qt::KeyboardModifiers modifiers, quint32 nativeModifiers,
             const QString &text)
{
    // With no application shortcuts, the press follows whatever the override answered.
    QKeyEvent override(QEvent::ShortcutOverride, key, modifiers, 0, 0, nativeModifiers, text);
    override.ignore();
    QApplication::sendEvent(target, &override);
    QKeyEvent press(QEvent::KeyPress, key, modifiers, 0, 0, nativeModifiers, text);
    QApplication::sendEvent(target, &press);
    QKeyEvent release(QEvent::KeyRelease, key, modifiers, 0, 0, nativeModifiers, text);
    QApplication::sendEvent(target, &release);
}

} // namespace pindle::test
