// The application shell with the fake desktop: which keys it takes, what it says when it can't,
// what the keys toggle, and when Alt+I opens the creator.

#include "app/AppDelegate.h"

#include "platform/fake/FakePlatform.h"

#include "ui/Alert.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

using namespace pindle;
using platform::ActivationPolicy;
using platform::ShortcutRefusal;

namespace {

constexpr std::int64_t previousApp = 777;
const QString launcherId = u"launcher"_qs;
const QString creatorId = u"creator"_qs;

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
using DelegateTerminating = Delegate;

TEST_F(DelegateLaunching, WithBothKeysGivenStaysAQuietAccessory)
{
    launch();
    // Posted after the start-up's own queued check of the desktop's answers, so it runs later.
    bool isPastStartUp = false;
    QMetaObject::invokeMethod(
        qApp, [&] { isPastStartUp = true; }, Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&] { return isPastStartUp; }));
    EXPECT_EQ(fakes.application->policies, QList<ActivationPolicy>{ActivationPolicy::accessory});
    EXPECT_EQ(fakes.application->activations, 0);
    EXPECT_FALSE(delegate->launcher()->isVisible());
    EXPECT_FALSE(delegate->creator()->isVisible());
}

TEST_F(DelegateLaunching, TakenKeysAreNamedInOrderInOneWarningAndTheOthersStillWork)
{
    std::optional<ui::Alert> alert = launchRefusing({{creatorId, ShortcutRefusal::heldElsewhere}});
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, u"Couldn\u2019t register Alt+I"_qs);
    EXPECT_EQ(alert->informativeText,
              u"Another application already owns Alt+I. Pindle is running, but that shortcut "
              u"won\u2019t open it until the other app releases the key."_qs);
    EXPECT_EQ(alert->style, ui::Alert::Style::warning);
    EXPECT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_TRUE(delegate->launcher()->isVisible());

    alert = launchRefusing({{launcherId, ShortcutRefusal::heldElsewhere},
                            {creatorId, ShortcutRefusal::heldElsewhere}});
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, u"Couldn\u2019t register Alt+U and Alt+I"_qs);
    // A task-bar entry and the focus only while the alert is up.
    EXPECT_EQ(fakes.application->policies,
              (QList<ActivationPolicy>{ActivationPolicy::accessory, ActivationPolicy::regular,
                                       ActivationPolicy::accessory}));
}

TEST_F(DelegateLaunching, KeysTheDesktopDoesNotGiveAreReplacedByTheToggleCommand)
{
    const QString binary = QCoreApplication::applicationFilePath();
    std::optional<ui::Alert> alert = launchRefusing({{creatorId, ShortcutRefusal::notGiven}});
    ASSERT_TRUE(alert.has_value());
    EXPECT_TRUE(alert->informativeText.endsWith(u":\n\n"_qs + binary + u" --toggle creator"_qs))
        << alert->informativeText.toStdString();

    // Both keys, one of them held elsewhere: the command lines cover both, in order.
    alert = launchRefusing(
        {{launcherId, ShortcutRefusal::notGiven}, {creatorId, ShortcutRefusal::heldElsewhere}});
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, u"Couldn\u2019t register Alt+U and Alt+I"_qs);
    EXPECT_TRUE(alert->informativeText.endsWith(u":\n\n"_qs + binary + u" --toggle launcher\n"_qs +
                                                binary + u" --toggle creator"_qs))
        << alert->informativeText.toStdString();
}

TEST_F(DelegateToggles, AltIOpensTheCreatorOnlyForAWebAddress)
{
    launch();
    for (const std::optional<QString> &text : QList<std::optional<QString>>{
             std::nullopt, u"  "_qs, u"example.com/page"_qs, u"ftp://files.example.com/"_qs,
             u"http:/example.com/"_qs, u"see https://example.com/"_qs}) {
        fakes.pasteboard->text = text;
        ASSERT_TRUE(fakes.shortcuts->press(creatorId));
        EXPECT_FALSE(delegate->creator()->isVisible()) << text.value_or(u"<none>"_qs).toStdString();
    }
    EXPECT_EQ(fakes.workspace->beeps, 0);
    EXPECT_EQ(fakes.application->activations, 0);
}

TEST_F(DelegateToggles, AltIWaitsForTheClipboardWithoutHoldingUpTheLauncher)
{
    launch();
    fakes.pasteboard->holdAnswers = true;
    fakes.pasteboard->text = u"https://example.com/slow"_qs;
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_EQ(fakes.pasteboard->requests, 1) << "a press while the owner answers asks again";
    EXPECT_FALSE(delegate->creator()->isVisible());

    ASSERT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_TRUE(delegate->launcher()->isVisible());
    ASSERT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_FALSE(delegate->launcher()->isVisible());

    fakes.pasteboard->answer();
    ASSERT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->creator()->urlField()->text(), u"https://example.com/slow"_qs);
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_FALSE(delegate->creator()->isVisible());

    // An owner that never answers ends as no text: nothing opens, and the next press asks anew.
    fakes.pasteboard->text.reset();
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    fakes.pasteboard->answer();
    EXPECT_FALSE(delegate->creator()->isVisible());
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_EQ(fakes.pasteboard->requests, 3);
}

// Where only a focused window sees the clipboard, the creator opens first and reads it once the
// compositor has given it the focus; without a web address it closes again at once.
TEST_F(DelegateToggles, AltIReadsAClipboardOnlyAFocusedWindowSeesOnceTheCreatorHasTheFocus)
{
    launch();
    fakes.pasteboard->readableWithoutFocus = false;
    const auto focusCreator = [this] {
        QEvent activate(QEvent::WindowActivate);
        QCoreApplication::sendEvent(delegate->creator()->panel(), &activate);
    };

    fakes.pasteboard->text = u" https://example.com/focused\n"_qs;
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(fakes.pasteboard->requests, 0) << "read before the creator had the focus";
    focusCreator();
    EXPECT_EQ(fakes.pasteboard->requests, 1);
    EXPECT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->creator()->urlField()->text(), u"https://example.com/focused"_qs);
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_FALSE(delegate->creator()->isVisible());

    fakes.pasteboard->text = u"not an address"_qs;
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    focusCreator();
    EXPECT_FALSE(delegate->creator()->isVisible());
    EXPECT_EQ(fakes.focus->activated.size(), 2) << "the focus goes back each time";

    // A compositor that never gives the focus: the creator does not stay up, and the clipboard
    // is never read.
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
    EXPECT_EQ(fakes.pasteboard->requests, 2);
}

TEST_F(DelegateTerminating, LetsGoOfBothKeys)
{
    launch();
    ASSERT_EQ(fakes.shortcuts->boundIds().size(), 2);
    delegate->applicationWillTerminate();
    EXPECT_TRUE(fakes.shortcuts->boundIds().isEmpty());
    EXPECT_FALSE(fakes.shortcuts->press(launcherId));
    EXPECT_FALSE(delegate->launcher()->isVisible());
}

} // namespace
