#include "platform/QtServices.h"

#include "core/LocalPath.h"

#include "support/TestSupport.h"

#include <QCursor>
#include <QDesktopServices>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

using namespace pindle;
using namespace pindle::platform;

namespace {

// Collects the URLs QDesktopServices would have opened.
class UrlCatcher : public QObject
{
    Q_OBJECT
public:
    explicit UrlCatcher(const QStringList &schemes) : m_schemes(schemes)
    {
        for (const QString &scheme : m_schemes)
            QDesktopServices::setUrlHandler(scheme, this, "open");
    }
    ~UrlCatcher() override
    {
        for (const QString &scheme : m_schemes)
            QDesktopServices::unsetUrlHandler(scheme);
    }
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened << url; }

private:
    QStringList m_schemes;
};

// Runs the rest of the test in an empty working directory, where a misplaced trash would land.
class WorkingDirectory
{
public:
    WorkingDirectory() { QDir::setCurrent(m_dir.path()); }
    ~WorkingDirectory() { QDir::setCurrent(m_previous); }
    bool isEmpty() const
    {
        return QDir(m_dir.path()).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    }

private:
    QString m_previous = QDir::currentPath();
    QTemporaryDir m_dir;
};

void expectTrashed(const QString &original)
{
    const QString trash = test::homePath() + QStringLiteral("/.local/share/Trash");
    const QString name = QFileInfo(original).fileName();
    EXPECT_FALSE(QFile::exists(original));
    EXPECT_TRUE(QFile::exists(trash + QStringLiteral("/files/") + name));
    EXPECT_TRUE(
        QFile::exists(trash + QStringLiteral("/info/") + name + QStringLiteral(".trashinfo")));
}

} // namespace

TEST(Trash, createsTheHomeTrashWhenTheDataDirectoryIsMissingThenAddsToIt)
{
    ASSERT_FALSE(QFile::exists(test::homePath() + QStringLiteral("/.local/share")));
    const WorkingDirectory cwd;
    const QString first = test::writeWebloc(u"Docs"_qs, u"https://example.org/"_qs);
    const QString second = test::shortcutFolder() + u"/b.url"_qs;
    test::writeFile(second, "[InternetShortcut]\nURL=https://b/\n");

    EXPECT_TRUE(moveFileToTrash(first));
    expectTrashed(first);
    EXPECT_TRUE(moveFileToTrash(second));
    expectTrashed(second);
    EXPECT_TRUE(cwd.isEmpty());
}

TEST(Trash, aSecondFileOfTheSameNameGoesBesideTheFirst)
{
    const QString path = test::writeWebloc(u"Docs"_qs, u"https://one/"_qs);
    ASSERT_TRUE(moveFileToTrash(path));
    test::writeWebloc(u"Docs"_qs, u"https://two/"_qs);
    ASSERT_TRUE(moveFileToTrash(path));
    const QDir trash(test::homePath() + u"/.local/share/Trash"_qs);
    EXPECT_EQ(trash.entryList({u"*"_qs}, QDir::Files, QDir::Name).size(), 0);
    EXPECT_EQ(QDir(trash.filePath(u"files"_qs)).entryList(QDir::Files).size(), 2);
    EXPECT_EQ(QDir(trash.filePath(u"info"_qs)).entryList(QDir::Files).size(), 2);
}

// A Trash that can't hold anything leaves the file where it was, and nothing else anywhere.
TEST(Trash, aTrashThatIsAFileIsAFailureThatLeavesNothingStray)
{
    const WorkingDirectory cwd;
    const QString path = test::writeWebloc(u"Docs"_qs, u"https://example.org/"_qs);
    const QString trash = test::homePath() + u"/.local/share/Trash"_qs;
    test::writeFile(trash, "not a folder");
    const auto everything = [] {
        QStringList paths;
        QDirIterator it(test::homePath(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            paths.append(it.next());
        paths.sort();
        return paths;
    };
    const QStringList before = everything();

    EXPECT_FALSE(moveFileToTrash(path));
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_EQ(test::readFile(trash), "not a folder");
    EXPECT_EQ(everything(), before);
    EXPECT_TRUE(cwd.isEmpty());
}

TEST(Trash, aNameThatIsNotUtf8KeepsItsBytes)
{
    const QByteArray folder = QFile::encodeName(test::shortcutFolder());
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    const QByteArray file = folder + "/caf\xE9.url";
    ::close(::open(file.constData(), O_WRONLY | O_CREAT, 0644));
    QtWorkspace workspace([] {});
    ASSERT_TRUE(workspace.moveToTrash(LocalPath::fileUrl(file)));
    EXPECT_NE(::access(file.constData(), F_OK), 0);
    const QByteArray trash = QFile::encodeName(test::homePath()) + "/.local/share/Trash";
    EXPECT_EQ(::access((trash + "/files/caf\xE9.url").constData(), F_OK), 0);
    std::ifstream info((trash + "/info/caf\xE9.url.trashinfo").toStdString());
    const std::string text((std::istreambuf_iterator<char>(info)), {});
    EXPECT_NE(text.find("/caf%E9.url\n"), std::string::npos) << text;
}

TEST(Trash, aMissingFileIsAFailure)
{
    EXPECT_FALSE(moveFileToTrash(test::shortcutFolder() + QStringLiteral("/gone.webloc")));
}

TEST(Workspace, opensAnHttpTargetInTheBrowserAndAnythingElseAsTheFile)
{
    const UrlCatcher catcher({QStringLiteral("http"), QStringLiteral("https"),
                              QStringLiteral("ftp"), QStringLiteral("file")});
    const QUrl web =
        QUrl::fromLocalFile(test::writeWebloc(u"web"_qs, u"HTTPS://example.org/a?b=1"_qs));
    const QUrl ftp = QUrl::fromLocalFile(test::writeWebloc(u"ftp"_qs, u"ftp://example.org/pub"_qs));
    const QUrl notes = QUrl::fromLocalFile(test::shortcutFolder() + u"/notes.txt"_qs);
    test::writeFile(notes.toLocalFile(), "plain");
    QtWorkspace workspace([] {});
    EXPECT_TRUE(workspace.openFile(web));
    EXPECT_TRUE(workspace.openFile(ftp));
    EXPECT_TRUE(workspace.openFile(notes));
    EXPECT_EQ(catcher.opened,
              (QList<QUrl>{QUrl(QStringLiteral("https://example.org/a?b=1")), ftp, notes}));
}

TEST(Workspace, everyFileGetsAnIcon)
{
    QtWorkspace workspace([] {});
    EXPECT_FALSE(workspace.iconForFile(test::writeWebloc(u"web"_qs, u"https://a/"_qs)).isNull());
    EXPECT_FALSE(workspace.iconForFile(test::shortcutFolder() + u"/no such file"_qs).isNull());
    // A file that keeps turning into a pipe must not make the look wait for a writer: the alarm
    // ends the test if it does.
    const QString swapped = test::shortcutFolder() + u"/notes"_qs;
    test::writeFile(swapped, "plain");
    const test::PipeSwapper swapper(swapped);
    ::alarm(30);
    for (int round = 0; round < 500; ++round)
        EXPECT_FALSE(workspace.iconForFile(swapped).isNull());
    ::alarm(0);
}

TEST(Pasteboard, writesReadsAndClearsPlainText)
{
    QtPasteboard pasteboard;
    pasteboard.setString(QStringLiteral("https://example.org/ü"));
    EXPECT_EQ(pasteboard.string(), QStringLiteral("https://example.org/ü"));
    pasteboard.clearContents();
    EXPECT_EQ(pasteboard.string(), std::nullopt);
}

TEST(Screens, framesFlipAboutThePrimaryScreensBottomEdge)
{
    QtScreens screens(true);
    const QRect primary = QGuiApplication::primaryScreen()->geometry();
    ASSERT_EQ(primary.topLeft(), QPoint(0, 0));
    const std::optional<Screen> main = screens.mainScreen();
    ASSERT_TRUE(main);
    EXPECT_EQ(main->frame, QRectF(0, 0, primary.width(), primary.height()));

    // A window 40 px below the top edge has its bottom edge 40 + 50 up from the top.
    const QRectF frame = screens.fromWindowSystem(QRectF(10, 40, 100, 50));
    EXPECT_EQ(frame, QRectF(10, primary.height() - 90, 100, 50));
    EXPECT_EQ(screens.toWindowSystem(frame), QRectF(10, 40, 100, 50));
}

TEST(Screens, pointerOnTheTopRowIsInsideItsScreen)
{
    QtScreens screens(true);
    QCursor::setPos(5, 0);
    if (QCursor::pos() != QPoint(5, 0))
        GTEST_SKIP() << "this Qt platform cannot move the pointer";
    const QPointF mouse = screens.mouseLocation();
    const QRectF frame = screens.mainScreen()->frame;
    EXPECT_EQ(mouse.x(), 5);
    EXPECT_TRUE(mouse.y() >= frame.top() && mouse.y() < frame.bottom()) << mouse.y();
}

#include "test_qt_services.moc"
