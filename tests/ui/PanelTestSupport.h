#pragma once

// A minimal mode over PanelController for the panel tests: it lists every file, selects the
// first, and logs what the panel asked of it into a log that outlives it.

#include "platform/fake/FakePlatform.h"
#include "ui/PanelController.h"

#include <QWidget>

#include <memory>

namespace pindle::test {

struct ModeLog
{
    QList<qsizetype> clicks;
    QList<bool> hides;
    int keyEquivalents = 0;
    int updates = 0;
    bool sawDeleteChord = false;
};

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
    bool handleKeyEquivalent(QKeyEvent *) override
    {
        ++log->keyEquivalents;
        log->sawDeleteChord = isDeleteChord();
        return consumeKeyEquivalents;
    }

    bool consumeKeyEquivalents = false;
    std::shared_ptr<ModeLog> log;
};

inline IndexedFile fileNamed(const QString &name)
{
    return {QUrl::fromLocalFile(QStringLiteral("/nowhere/") + name + QStringLiteral(".webloc")),
            name};
}

inline QList<ScoredFile> scoredFiles(int count)
{
    QList<ScoredFile> results;
    for (int i = 0; i < count; ++i)
        results.append({fileNamed(QStringLiteral("Shortcut %1").arg(i)), 0, {}});
    return results;
}

} // namespace pindle::test
