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

namespace {

constexpr std::int64_t previousApp = 777;
const QString launcherId = QStringLiteral("launcher");
const QString creatorId = QStringLiteral("creator");

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

    // The start-up warning follows the desktop's answers through the event loop.
    std::optional<ui::Alert> warning()
    {
        [[maybe_unused]] const bool shown =
            QTest::qWaitFor([] { return ui::Alert::lastAlert().has_value(); });
        return ui::Alert::lastAlert();
    }

    platform::fake::FakePlatform fakes;
    std::unique_ptr<app::AppDelegate> delegate;
};

using DelegateLaunching = Delegate;
using DelegateToggles = Delegate;
using DelegateTerminating = Delegate;

TEST_F(DelegateLaunching, RegistersAltUThenAltIAndStaysAnAccessory)
{
    launch();
    const auto requests = fakes.shortcuts->requests;
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests[0].id, launcherId);
    EXPECT_EQ(requests[0].keys, QKeySequence(Qt::ALT | Qt::Key_U));
    EXPECT_EQ(requests[1].id, creatorId);
    EXPECT_EQ(requests[1].keys, QKeySequence(Qt::ALT | Qt::Key_I));
    // Both answered: the warning would be queued by now, so let it run if it were.
    QCoreApplication::processEvents();
    EXPECT_FALSE(ui::Alert::lastAlert().has_value());
    EXPECT_EQ(fakes.application->policies, QList<ActivationPolicy>{ActivationPolicy::accessory});
    ASSERT_NE(delegate->launcher(), nullptr);
    ASSERT_NE(delegate->creator(), nullptr);
    EXPECT_FALSE(delegate->launcher()->isVisible());
    EXPECT_FALSE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->launcher()->panel()->height(), 58);
    EXPECT_EQ(delegate->creator()->panel()->height(), 86);
    EXPECT_EQ(delegate->launcher()->textField()->placeholderText(), QStringLiteral("Pindle to:"));
    EXPECT_EQ(delegate->creator()->nameField()->placeholderText(), QStringLiteral("Save as:"));
}

TEST_F(DelegateLaunching, OneTakenKeyIsNamedInTheWarning)
{
    fakes.shortcuts->refuse.insert(creatorId, platform::ShortcutRefusal::heldElsewhere);
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    launch();
    const std::optional<ui::Alert> alert = warning();
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, QStringLiteral("Couldn\u2019t register Alt+I"));
    EXPECT_EQ(alert->informativeText,
              QStringLiteral("Another application already owns Alt+I. Pindle is running, but "
                             "that shortcut won\u2019t open it until the other app releases the "
                             "key."));
    EXPECT_EQ(alert->style, ui::Alert::Style::warning);
    // No buttons of its own: the alert shows the single default one.
    EXPECT_TRUE(alert->buttons().isEmpty());
    // Alt+U still works.
    EXPECT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_TRUE(delegate->launcher()->isVisible());
}

TEST_F(DelegateLaunching, TwoTakenKeysAreNamedInOrderInOneWarning)
{
    fakes.shortcuts->refuse.insert(launcherId, platform::ShortcutRefusal::heldElsewhere);
    fakes.shortcuts->refuse.insert(creatorId, platform::ShortcutRefusal::heldElsewhere);
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    launch();
    const std::optional<ui::Alert> alert = warning();
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, QStringLiteral("Couldn\u2019t register Alt+U and Alt+I"));
    EXPECT_EQ(alert->informativeText,
              QStringLiteral("Another application already owns Alt+U and Alt+I. Pindle is "
                             "running, but those shortcuts won\u2019t open it until the other app "
                             "releases the key."));
    // A task-bar entry and the focus only while the alert is up.
    EXPECT_EQ(fakes.application->policies,
              (QList<ActivationPolicy>{ActivationPolicy::accessory, ActivationPolicy::regular,
                                       ActivationPolicy::accessory}));
    EXPECT_EQ(fakes.application->activations, 1);
}

TEST_F(DelegateLaunching, KeysTheDesktopDoesNotGiveAreReplacedByTheToggleCommand)
{
    const QString binary = QCoreApplication::applicationFilePath();
    fakes.shortcuts->refuse.insert(creatorId, platform::ShortcutRefusal::notGiven);
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    launch();
    std::optional<ui::Alert> alert = warning();
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->messageText, QStringLiteral("Couldn\u2019t register Alt+I"));
    EXPECT_EQ(alert->informativeText,
              QStringLiteral("This desktop didn\u2019t give Pindle Alt+I. Pindle is running: to "
                             "open it from the keyboard, bind this command to a key in the "
                             "desktop\u2019s keyboard settings:\n\n") +
                  binary + QStringLiteral(" --toggle creator"));

    // Both keys, one of them held elsewhere: the command lines cover both, in order.
    delegate.reset();
    fakes = platform::fake::installFakePlatform();
    fakes.shortcuts->refuse.insert(launcherId, platform::ShortcutRefusal::notGiven);
    fakes.shortcuts->refuse.insert(creatorId, platform::ShortcutRefusal::heldElsewhere);
    ui::Alert::setNextAnswer(ui::Alert::firstButtonReturn);
    launch();
    ASSERT_TRUE(QTest::qWaitFor(
        [] { return ui::Alert::lastAlert()->messageText.contains(QStringLiteral("Alt+U")); }));
    alert = ui::Alert::lastAlert();
    EXPECT_EQ(alert->messageText, QStringLiteral("Couldn\u2019t register Alt+U and Alt+I"));
    EXPECT_TRUE(alert->informativeText.endsWith(QStringLiteral("these commands to a key in the "
                                                               "desktop\u2019s keyboard "
                                                               "settings:\n\n") +
                                                binary + QStringLiteral(" --toggle launcher\n") +
                                                binary + QStringLiteral(" --toggle creator")))
        << alert->informativeText.toStdString();
}

TEST_F(DelegateToggles, AltUShowsThenHidesTheLauncherAndRestoresFocus)
{
    launch();
    ASSERT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_TRUE(delegate->launcher()->isVisible());
    QTest::keyClicks(delegate->launcher()->textField(), QStringLiteral("abc"));
    ASSERT_TRUE(fakes.shortcuts->press(launcherId));
    EXPECT_FALSE(delegate->launcher()->isVisible());
    EXPECT_TRUE(delegate->launcher()->textField()->text().isEmpty());
    ASSERT_EQ(fakes.focus->activated.size(), 1);
    EXPECT_EQ(fakes.focus->activated[0].processIdentifier, previousApp);
}

TEST_F(DelegateToggles, AltIOpensTheCreatorOnlyForAWebAddress)
{
    launch();
    for (const std::optional<QString> &text :
         {std::optional<QString>(), std::optional(QStringLiteral("  ")),
          std::optional(QStringLiteral("example.com/page")),
          std::optional(QStringLiteral("ftp://files.example.com/")),
          std::optional(QStringLiteral("http:/example.com/")),
          std::optional(QStringLiteral("see https://example.com/"))}) {
        fakes.pasteboard->text = text;
        ASSERT_TRUE(fakes.shortcuts->press(creatorId));
        EXPECT_FALSE(delegate->creator()->isVisible())
            << text.value_or(QStringLiteral("<none>")).toStdString();
    }
    EXPECT_EQ(fakes.workspace->beeps, 0);
    EXPECT_EQ(fakes.application->activations, 0);
}

TEST_F(DelegateToggles, AltIKeepsTheAddressAsCopiedButTrimmed)
{
    launch();
    fakes.pasteboard->text = QStringLiteral("  HTTPS://Example.COM/Path?q=1 \n");
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->creator()->urlField()->text(),
              QStringLiteral("HTTPS://Example.COM/Path?q=1"));
    EXPECT_TRUE(delegate->creator()->nameField()->text().isEmpty());

    // Pressed again it hides, whatever the clipboard holds now.
    fakes.pasteboard->text.reset();
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_FALSE(delegate->creator()->isVisible());
    EXPECT_EQ(fakes.focus->activated.size(), 1);
}

TEST_F(DelegateToggles, AltIWaitsForTheClipboardWithoutHoldingUpTheLauncher)
{
    launch();
    fakes.pasteboard->holdAnswers = true;
    fakes.pasteboard->text = QStringLiteral("https://example.com/slow");
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
    EXPECT_EQ(delegate->creator()->urlField()->text(), QStringLiteral("https://example.com/slow"));
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

    fakes.pasteboard->text = QStringLiteral(" https://example.com/focused\n");
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    ASSERT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(fakes.pasteboard->requests, 0) << "read before the creator had the focus";
    focusCreator();
    EXPECT_EQ(fakes.pasteboard->requests, 1);
    EXPECT_TRUE(delegate->creator()->isVisible());
    EXPECT_EQ(delegate->creator()->urlField()->text(),
              QStringLiteral("https://example.com/focused"));
    ASSERT_TRUE(fakes.shortcuts->press(creatorId));
    EXPECT_FALSE(delegate->creator()->isVisible());

    fakes.pasteboard->text = QStringLiteral("not an address");
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

TEST_F(DelegateToggles, RequestsFromTheCommandLineActAsTheKeysOnceLaunched)
{
    delegate = std::make_unique<app::AppDelegate>();
    delegate->toggle(app::Panel::launcher);
    delegate->showLauncher();
    EXPECT_EQ(fakes.pasteboard->requests, 0);
    delegate->applicationDidFinishLaunching();

    delegate->showLauncher();
    delegate->showLauncher();
    EXPECT_TRUE(delegate->launcher()->isVisible()) << "showing twice must not toggle it away";
    delegate->toggle(app::Panel::launcher);
    EXPECT_FALSE(delegate->launcher()->isVisible());

    fakes.pasteboard->text = QStringLiteral("https://example.com/");
    delegate->toggle(app::Panel::creator);
    EXPECT_TRUE(delegate->creator()->isVisible());
    delegate->toggle(app::Panel::creator);
    EXPECT_FALSE(delegate->creator()->isVisible());
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
