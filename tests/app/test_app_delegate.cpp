// The application shell with the fake desktop: what it says when it can't have its keys, and
// how Alt+I waits on the clipboard and the focus where the end-to-end scripts can't make either
// slow or absent.

#include "app/AppDelegate.h"

#include "platform/fake/FakePlatform.h"

#include "ui/Alert.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

using namespace pindle;
using platform::ActivationPolicy;
using platform::ShortcutRefusal;

namespace {

constexpr std::int64_t previousApp = 777;
const QString launcherId = u"launcher"_s;
const QString creatorId = u"creator"_s;

class Delegate : public testing::Test
{
protected:
    void SetUp() override
    {
        fakes = platform::fake::installFakePlatform();
        fakes.focus->frontmost = platform::RunningApplication{.processIdentifier = previousApp};
    }

    void launch()
    {
        delegate = std::make_unique<app::AppDelegate>();
        delegate->applicationDidFinishLaunching();
    }

    void TearDown() override { delegate.reset(); }

    // Launches with the keys in refused, and gives the start-up warning once it is shown: it
    // follows the desktop's answers through the event loop, with the application activated.
    std::optional<ui::Alert>
    launchRefusing(const QHash<QString, platform::ShortcutRefusal> &refused)
    {
        delegate.reset();
        fakes = platform::fake::installFakePlatform();
        fakes.shortcuts->refuse = refused;
        ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
        launch();
        if (!QTest::qWaitFor([this] { return fakes.application->activations > 0; }))
            return std::nullopt;
        return ui::Alert::lastAlert();
    }

    platform::fake::FakePlatform fakes;
    std::unique_ptr<app::AppDelegate> delegate;
};

using DelegateLaunching = Delegate;
using DelegateToggles = Delegate;

TEST_F(DelegateLaunching, WithBothKeysGivenStaysQuietAndLetsGoOfThemOnTerminating)
{
    launch();
    // Posted after the start-up's own queued check of the desktop's answers, so it runs later.
    bool isPastStartUp = false;
    QMetaObject::invokeMethod(
        qApp, [&] { isPastStartUp = true; }, Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&] { return isPastStartUp; }));
    EXPECT_EQ(fakes.application->activations, 0); // a warning would have activated it

    delegate->applicationWillTerminate();
    EXPECT_TRUE(fakes.shortcuts->boundIds().isEmpty());
    EXPECT_FALSE(fakes.shortcuts->press(launcherId));
}

TEST_F(DelegateLaunching, KeysRefusedAreNamedInOrderInOneWarningThatGivesTheToggleCommand)
{
    std::optional<ui::Alert> alert = launchRefusing({{creatorId, ShortcutRefusal::heldElsewhere}});
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, u"Couldn\u2019t register Alt+I"_s);
    EXPECT_EQ(alert->informativeText,
              u"Another application already owns Alt+I. Pindle is running, but that shortcut "
              u"won\u2019t open it until the other app releases the key."_s);
    EXPECT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_TRUE(delegate->launcher()->isVisible());
    // A task-bar entry and the focus only while the alert is up.
    EXPECT_EQ(fakes.application->policies,
              (QList<ActivationPolicy>{ActivationPolicy::accessory, ActivationPolicy::regular,
                                       ActivationPolicy::accessory}));

    // Keys the desktop does not give are replaced by the toggle command, one line each, in order.
    const QString binary = QCoreApplication::applicationFilePath();
    alert = launchRefusing(
        {{launcherId, ShortcutRefusal::notGiven}, {creatorId, ShortcutRefusal::heldElsewhere}});
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, u"Couldn\u2019t register Alt+U and Alt+I"_s);
    EXPECT_TRUE(alert->informativeText.endsWith(u":\n\n"_s + binary + u" --toggle launcher\n"_s +
                                                binary + u" --toggle creator"_s))
        << alert->informativeText.toStdString();
}

TEST_F(DelegateToggles, AltIOpensTheCreatorOnlyForAWebAddress)
{
    launch();
    for (const std::optional<QString> &text : QList<std::optional<QString>>{
             std::nullopt, u"  "_s, u"example.com/page"_s, u"ftp://files.example.com/"_s,
             u"http:/example.com/"_s, u"see https://example.com/"_s}) {
        fakes.pasteboard->text = text;
        ASSERT_TRUE(fakes.shortcuts->press(creatorId));
        EXPECT_FALSE(delegate->creator()->isVisible()) << text.value_or(u"<none>"_s).toStdString();
    }
    EXPECT_EQ(fakes.workspace->beeps, 0);
    EXPECT_EQ(fakes.application->activations, 0);
}

TEST_F(DelegateToggles, AltIPressedAgainWhileTheClipboardAnswersAsksOnce)
{
    launch();
    fakes.pasteboard->holdAnswers = true;
    fakes.pasteboard->text = u"https://example.com/slow"_s;
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_EQ(fakes.pasteboard->requests, 1);
    EXPECT_FALSE(delegate->creator()->isVisible());

    fakes.pasteboard->answer();
    EXPECT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->creator()->urlField()->text(), u"https://example.com/slow"_s);
}

// Where only a focused window sees the clipboard, the creator opens first and reads it once the
// compositor has given it the focus. One that never gives it: the creator does not stay up, and
// the clipboard is never read.
TEST_F(DelegateToggles, AltIGivesUpWhenTheCreatorNeverGetsTheFocusToReadTheClipboard)
{
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
    EXPECT_EQ(fakes.focus->activated.size(), 1) << "the focus goes back";
}

} // namespace
