// Both panels opened and closed again and again while another thread keeps replacing the
// folder's entries by shortcuts, pipes, links, folders and property-list bombs, as a sync client
// or an attacker might: every opening and closing must be seen, and nothing may hang.

#include "PanelTestSupport.h"

#include "core/FileIndex.h"
#include "platform/QtServices.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"
#include "ui/CreatorController.h"
#include "ui/LauncherController.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

constexpr int rounds = 150;
constexpr int swappedNames = 8;

// { URL: [[[...]]] }, each array holding the next twice: a million leaves in 90 bytes.
QByteArray doublingBomb()
{
    constexpr int levels = 20;
    QByteArray bytes = "bplist00";
    QByteArray offsets;
    const auto add = [&](const QByteArray &object) {
        offsets += char(bytes.size());
        bytes += object;
    };
    add(QByteArray("\xD1\x01\x02", 3));
    add("\x53URL");
    for (int i = 0; i < levels; ++i)
        add("\xA2" + QByteArray(2, char(3 + i)));
    add("\x09");
    const int objects = int(offsets.size());
    const QByteArray trailer = QByteArray(6, '\0') + "\x01\x01" + QByteArray(7, '\0') +
                               char(objects) + QByteArray(8, '\0') + QByteArray(7, '\0') +
                               char(bytes.size());
    return bytes + offsets + trailer;
}

// Replaces one of the folder's names by something else, each time atomically where the file
// system allows it.
void replaceAnEntry(const QByteArray &folder, QRandomGenerator &random)
{
    static const char *const names[swappedNames] = {"a.webloc", "b.url", "c.inetloc", "d",
                                                    "e.webloc", "f.txt", "g.url",     "h"};
    const QByteArray name = folder + '/' + names[random.bounded(swappedNames)];
    const QByteArray staged = folder + "/.staged";
    ::unlink(staged.constData());
    ::rmdir(staged.constData());
    switch (random.bounded(6)) {
    case 0: {
        QFile file(QString::fromUtf8(staged));
        if (file.open(QIODevice::WriteOnly))
            file.write("URL=https://example.org/stress\n");
        break;
    }
    case 1:
        ::mkfifo(staged.constData(), 0644);
        break;
    case 2:
        ::symlink(random.bounded(2) ? "/dev/zero" : "d", staged.constData());
        break;
    case 3: {
        QFile file(QString::fromUtf8(staged));
        if (file.open(QIODevice::WriteOnly))
            file.write(doublingBomb());
        break;
    }
    case 4:
        ::rmdir(name.constData());
        ::mkdir(name.constData(), 0755);
        return;
    default:
        ::unlink(name.constData());
        return;
    }
    if (::rename(staged.constData(), name.constData()) != 0 && errno == EISDIR) {
        ::rmdir(name.constData());
        ::rename(staged.constData(), name.constData());
    }
}

TEST(PanelStress, BothPanelsKeepOpeningAndClosingWhileTheFolderChangesUnderThem)
{
    ::alarm(50); // a panel that hangs on a file fails the test here rather than never ending
    platform::fake::installFakePlatform();
    platform::services().workspace = std::make_unique<platform::QtWorkspace>([] {});
    for (int i = 0; i < 20; ++i)
        test::writeWebloc(u"Stable "_s + QString::number(i), u"https://example.org/"_s);
    const QByteArray folder = QFile::encodeName(test::shortcutFolder());

    std::atomic<bool> stop = false;
    std::thread swapper([&] {
        QRandomGenerator random(12);
        while (!stop)
            replaceAnEntry(folder, random);
    });

    auto *launcherHeader = new QWidget;
    ui::LauncherController launcher(launcherHeader, 58);
    launcher.buildField(launcherHeader);
    auto *creatorHeader = new QWidget;
    ui::CreatorController creator(creatorHeader, 86);
    creator.buildFields(creatorHeader);
    int toggles = 0;
    for (int round = 0; round < rounds; ++round) {
        launcher.show();
        QTest::keyClicks(launcher.textField(), round % 2 ? u"s"_s : u"e"_s);
        toggles += launcher.panel()->isVisible() && !launcher.panel()->grab().isNull();
        launcher.hide(false);
        toggles += !launcher.panel()->isVisible();

        creator.show(u"https://example.org/stress"_s);
        QTest::keyClicks(creator.nameField(), u"a"_s);
        toggles += creator.panel()->isVisible() && !creator.panel()->grab().isNull();
        creator.hide(false);
        toggles += !creator.panel()->isVisible();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    stop = true;
    swapper.join();
    ::alarm(0);
    EXPECT_EQ(toggles, 4 * rounds);
}

} // namespace
