#include "platform/QtServices.h"

#include "core/LocalPath.h"

#include "support/TestSupport.h"

#include <QCursor>
#include <QDesktopServices>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

using namespace Qt::StringLiterals;

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
    const QString trash = test::homePath() + u"/.local/share/Trash/"_s;
    const QString name = QFileInfo(original).fileName();
    EXPECT_FALSE(QFile::exists(original));
    EXPECT_TRUE(QFile::exists(trash + u"files/"_s + name));
    EXPECT_TRUE(QFile::exists(trash + u"info/"_s + name + u".trashinfo"_s));
}

} // namespace

TEST(Trash, createsTheHomeTrashWhenTheDataDirectoryIsMissingAndKeepsSameNamedFilesApart)
{
    ASSERT_FALSE(QFile::exists(test::homePath() + u"/.local/share"_s));
    const WorkingDirectory cwd;
    const QString path = test::writeWebloc(u"Docs"_s, u"https://one/"_s);
    EXPECT_TRUE(moveFileToTrash(path));
    expectTrashed(path);
    test::writeWebloc(u"Docs"_s, u"https://two/"_s);
    EXPECT_TRUE(moveFileToTrash(path));
    const QDir trash(test::homePath() + u"/.local/share/Trash"_s);
    EXPECT_EQ(QDir(trash.filePath(u"files"_s)).entryList(QDir::Files).size(), 2);
    EXPECT_EQ(QDir(trash.filePath(u"info"_s)).entryList(QDir::Files).size(), 2);
    EXPECT_TRUE(cwd.isEmpty());
    EXPECT_FALSE(moveFileToTrash(test::shortcutFolder() + u"/gone.webloc"_s));
}

// A Trash that can't hold anything leaves the file where it was, and nothing else anywhere.
TEST(Trash, aTrashThatIsAFileIsAFailureThatLeavesNothingStray)
{
    const WorkingDirectory cwd;
    const QString path = test::writeWebloc(u"Docs"_s, u"https://example.org/"_s);
    const QString trash = test::homePath() + u"/.local/share/Trash"_s;
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

TEST(Workspace, opensAnHttpTargetInTheBrowserAndAnythingElseAsTheFile)
{
    const UrlCatcher catcher({u"http"_s, u"https"_s, u"ftp"_s, u"file"_s});
    const QUrl web =
        QUrl::fromLocalFile(test::writeWebloc(u"web"_s, u"HTTPS://example.org/a?b=1"_s));
    const QUrl ftp = QUrl::fromLocalFile(test::writeWebloc(u"ftp"_s, u"ftp://example.org/pub"_s));
    const QUrl notes = QUrl::fromLocalFile(test::shortcutFolder() + u"/notes.txt"_s);
    test::writeFile(notes.toLocalFile(), "plain");
    QtWorkspace workspace([] {});
    EXPECT_TRUE(workspace.openFile(web));
    EXPECT_TRUE(workspace.openFile(ftp));
    EXPECT_TRUE(workspace.openFile(notes));
    EXPECT_EQ(catcher.opened, (QList<QUrl>{QUrl(u"https://example.org/a?b=1"_s), ftp, notes}));
}

TEST(Workspace, everyFileGetsAnIcon)
{
    QtWorkspace workspace([] {});
    EXPECT_FALSE(workspace.iconForFile(test::writeWebloc(u"web"_s, u"https://a/"_s)).isNull());
    EXPECT_FALSE(workspace.iconForFile(test::shortcutFolder() + u"/no such file"_s).isNull());
    // A file that keeps turning into a pipe must not make the look wait for a writer: the alarm
    // ends the test if it does.
    const QString swapped = test::shortcutFolder() + u"/notes"_s;
    test::writeFile(swapped, "plain");
    const test::PipeSwapper swapper(swapped);
    ::alarm(30);
    for (int round = 0; round < 500; ++round)
        EXPECT_FALSE(workspace.iconForFile(swapped).isNull());
    ::alarm(0);
}

TEST(Screens, pointerOnTheTopRowIsInsideItsScreenAndFramesConvertBothWays)
{
    QtScreens screens(true);
    const QRectF frame = screens.fromWindowSystem(QRectF(10, 40, 100, 50));
    EXPECT_EQ(screens.toWindowSystem(frame), QRectF(10, 40, 100, 50));

    QCursor::setPos(5, 0);
    if (QCursor::pos() != QPoint(5, 0))
        GTEST_SKIP() << "this Qt platform cannot move the pointer";
    const QPointF mouse = screens.mouseLocation();
    const QRectF main = screens.mainScreen()->frame;
    EXPECT_EQ(mouse.x(), 5);
    EXPECT_TRUE(mouse.y() >= main.top() && mouse.y() < main.bottom()) << mouse.y();
}

#include "test_qt_services.moc"
