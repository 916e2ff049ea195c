// The panels with the real desktop services behind their rows' icons and types: heap use over
// hundreds of openings, and openings while the folder keeps changing under them.

#include "platform/QtServices.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"
#include "ui/CreatorController.h"
#include "ui/LauncherController.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <gtest/gtest.h>

#include <malloc.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's own allocator, which mallinfo2() knows nothing about.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace pindle;

namespace {

size_t heapInUse()
{
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return ::mallinfo2().uordblks;
#endif
}

class RealServices : public testing::Test
{
protected:
    void SetUp() override
    {
        platform::fake::installFakePlatform();
        platform::services().workspace = std::make_unique<platform::QtWorkspace>([] {});
        for (int i = 0; i < 12; ++i)
            test::writeWebloc(u"Shortcut "_s + QString::number(i), u"https://example.org/"_s);
        test::writeFile(test::inFolder(u"Shortcut notes.txt"_s), "plain");
        auto *header = new QWidget;
        launcher = std::make_unique<ui::LauncherController>(header, 58);
        launcher->buildField(header);
        header = new QWidget;
        creator = std::make_unique<ui::CreatorController>(header, 86);
        creator->buildFields(header);
    }

    // One showing with every row painted, which is what fills the caches of scaled icons, then
    // what the event loop does before the next: pending events delivered, replaced rows deleted.
    // False when the panel was not shown, or not hidden again.
    template <typename Show>
    static bool showAndHide(ui::PanelController &panel, ui::CommandField *field, Show show)
    {
        show();
        QTest::keyClicks(field, u"s"_s);
        const bool shown =
            panel.isVisible() && !panel.results.isEmpty() && !panel.panel()->grab().isNull();
        panel.hide(false);
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return shown && !panel.isVisible();
    }
    bool showLauncher()
    {
        return showAndHide(*launcher, launcher->textField(), [this] { launcher->show(); });
    }

    std::unique_ptr<ui::LauncherController> launcher;
    std::unique_ptr<ui::CreatorController> creator;
};

TEST_F(RealServices, HeapStaysFlatOverHundredsOfOpeningsWithRowsDrawn)
{
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(showLauncher());
    const size_t before = heapInUse();
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(showLauncher());
    const size_t after = heapInUse();
    EXPECT_LT(after, before + (1 << 20)) << "grew by " << (after - before) << " bytes";
}

// As a sync client or an attacker might leave it: names turning from files into pipes and back,
// a pipe, a link to an endless file and a folder where shortcuts are expected.
TEST_F(RealServices, BothPanelsKeepOpeningAndClosingWhileTheFolderChangesUnderThem)
{
    ::alarm(50); // a panel that hangs on a file fails the test here rather than never ending
    const test::PipeSwapper swapper(test::inFolder(u"swapped.webloc"_s));
    const test::PipeSwapper typeless(test::inFolder(u"swapped"_s));
    ASSERT_EQ(::mkfifo(QFile::encodeName(test::inFolder(u"pipe.url"_s)).constData(), 0644), 0);
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, test::inFolder(u"zero.inetloc"_s)));
    ASSERT_TRUE(QDir().mkpath(test::inFolder(u"folder.webloc"_s)));
    for (int round = 0; round < 150; ++round) {
        ASSERT_TRUE(showLauncher()) << round;
        ASSERT_TRUE(showAndHide(*creator, creator->nameField(), [this] {
            creator->show(u"https://example.org/"_s);
        })) << round;
    }
    ::alarm(0);
}

} // namespace
