#pragma once

// Shared by the panel tests: a minimal mode over PanelController, made-up results, visible texts
// and key presses carrying an X modifier state. Each test starts with an empty home folder (the
// test main sees to it).

#include "platform/fake/FakePlatform.h"
#include "ui/PanelController.h"

#include <QKeyEvent>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <memory>

namespace pindle::test {

struct ModeLog
{
    QList<qsizetype> clicks;
    QList<bool> hides;
    int updates = 0;
};

// Lists every file, selects the first, and logs what the panel asked of it into a log that
// outlives it.
class TestMode : public ui::PanelController
{
public:
    TestMode(double headerHeight, std::shared_ptr<ModeLog> log)
        : PanelController(new QWidget, headerHeight), log(std::move(log))
    {}
    using PanelController::positionWindow;
    using PanelController::present;

    void hide(bool restoringFocus) override
    {
        PanelController::hide(restoringFocus);
        log->hides.append(restoringFocus);
    }
    void rowClicked(qsizetype index) override { log->clicks.append(index); }
    void updateResults() override
    {
        ++log->updates;
        results.clear();
        for (const IndexedFile &file : std::as_const(files))
            results.append({file, 0, {}});
        selectedIndex = results.isEmpty() ? -1 : 0;
        renderRows(std::nullopt);
    }

    std::shared_ptr<ModeLog> log;
};

IndexedFile fileNamed(const QString &name);
QList<ScoredFile> scoredFiles(int count);

// Texts of the visible labels under widget, in creation order.
QStringList visibleLabelTexts(const QWidget *widget);

// One press and release as the X11 backend delivers them, shortcut override first, with the
// native modifier state QTest::keyClick cannot set.
// nativeModifiers is the X state mask (0x2 = Caps Lock, 0x4 = Control).
void sendKey(QWidget *target, Qt::Key key, Qt::KeyboardModifiers modifiers, quint32 nativeModifiers,
             const QString &text = {});

} // namespace pindle::test
