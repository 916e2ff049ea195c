// The application shell with the fake desktop: the warning for keys it can't have, how Alt+I
// waits on a clipboard or a focus the end-to-end scripts can't make slow or absent, and the
// command-line forms they don't use.

#include "app/AppDelegate.h"
#include "app/CommandLine.h"

#include "platform/fake/FakePlatform.h"
#include "ui/Alert.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

using namespace Qt::StringLiterals;
using namespace pindle;

namespace {

const QString creatorId = u"creator"_s;

class Delegate : public testing::Test
{
protected:
    void launch()
    {
        delegate = std::make_unique<app::AppDelegate>();
        delegate->applicationDidFinishLaunching();
    }

    platform::fake::FakePlatform fakes = platform::fake::installFakePlatform();
    std::unique_ptr<app::AppDelegate> delegate;
};

TEST_F(Delegate, KeysRefusedAreNamedInOrderInOneWarningThatGivesTheToggleCommand)
{
    fakes.shortcuts->refuse = {{u"launcher"_s, platform::ShortcutRefusal::notGiven},
                               {creatorId, platform::ShortcutRefusal::heldElsewhere}};
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    launch();
    ASSERT_TRUE(QTest::qWaitFor([this] { return fakes.application->activations > 0; }));
    const std::optional<ui::Alert> alert = ui::Alert::lastAlert();
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, u"Couldn\u2019t register Alt+U and Alt+I"_s);
    const QString binary = QCoreApplication::applicationFilePath();
    EXPECT_TRUE(alert->informativeText.endsWith(u":\n\n"_s + binary + u" --toggle launcher\n"_s +
                                                binary + u" --toggle creator"_s))
        << alert->informativeText.toStdString();
}

TEST_F(Delegate, AltIAsksTheClipboardOnceAndOpensTheCreatorOnlyForAWebAddress)
{
    launch();
    for (const std::optional<QString> &text : QList<std::optional<QString>>{
             std::nullopt, u"http:/example.com/"_s, u"see https://example.com/"_s}) {
        fakes.pasteboard->text = text;
        ASSERT_TRUE(fakes.shortcuts->press(creatorId));
        EXPECT_FALSE(delegate->creator()->isVisible()) << text.value_or(u"<none>"_s).toStdString();
    }
    EXPECT_EQ(fakes.workspace->beeps, 0);

    // Pressed again while the clipboard has not answered yet.
    fakes.pasteboard->holdAnswers = true;
    fakes.pasteboard->text = u"https://example.com/slow"_s;
    const int requests = fakes.pasteboard->requests;
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_EQ(fakes.pasteboard->requests, requests + 1);
    fakes.pasteboard->answer();
    EXPECT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->creator()->urlField()->text(), u"https://example.com/slow"_s);
}

// Where only a focused window sees the clipboard, the creator opens first and reads it once the
// compositor has given it the focus. One that never gives it: the creator does not stay up, and
// the clipboard is never read.
TEST_F(Delegate, AltIGivesUpWhenTheCreatorNeverGetsTheFocusToReadTheClipboard)
{
    fakes.focus->frontmost = platform::RunningApplication{.processIdentifier = 777};
    launch();
    fakes.pasteboard->readableWithoutFocus = false;
    fakes.pasteboard->text = u"https://example.com/focused"_s;
    class NoFocus final : public QObject
    {
        bool eventFilter(QObject *, QEvent *event) override
        {
            return event->type() == QEvent::WindowActivate;
        }
    } noFocus;
    qApp->installEventFilter(&noFocus);
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(delegate->creator()->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([this] { return !delegate->creator()->isVisible(); }, 5000));
    EXPECT_EQ(fakes.pasteboard->requests, 0);
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated[0].processIdentifier, 777); // the focus goes back
}

TEST(CommandLineParsing, AcceptsTheToggleAsOneWordAndRefusesWhatItDoesNotKnowInOneLine)
{
    EXPECT_EQ(app::parseCommandLine({u"--toggle=launcher"_s}),
              (app::CommandLine{.action = app::CommandLine::Action::toggle,
                                .panel = app::Panel::launcher}));
    const QList<std::pair<QStringList, QString>> refusals = {
        {{u"--toggle"_s, u"Launcher"_s}, u"Launcher"_s},
        {{u"--toggle"_s}, u"--toggle"_s},
        {{u"--toggle="_s}, u"launcher or creator"_s},
        {{u"--toggle"_s, u"launcher"_s, u"--toggle"_s, u"creator"_s}, u"--toggle"_s},
        {{u"launcher"_s}, u"launcher"_s}};
    for (const auto &[arguments, named] : refusals) {
        const auto refused = app::parseCommandLine(arguments);
        ASSERT_FALSE(refused) << named.toStdString();
        EXPECT_TRUE(refused.error().contains(named)) << refused.error().toStdString();
        EXPECT_FALSE(refused.error().contains(u'\n')) << named.toStdString();
    }
}

} // namespace
